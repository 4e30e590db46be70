// zmctl: the media library from a shell.
#include <cstdlib>
#include <iostream>

#include "context.h"

int main(int argc, char** argv) {
  zmctl::Context context;
  CLI::App app{"zmctl: read and change the media configuration, command the media engine"};
  app.require_subcommand(1);
  app.add_flag("--json", context.json, "Print results as JSON");
  app.add_option("--sandbox", context.sandbox,
                 "Sandbox root: every system path is looked up below DIR")
      ->type_name("DIR");
  app.parse_complete_callback([&context] {
    if (!context.sandbox.empty()) setenv("ZOLO_SYSROOT", context.sandbox.c_str(), 1);
  });
  zmctl::AddFrameCommands(app, context);
  zmctl::AddStreamCommands(app, context);
  zmctl::AddUtilCommands(app, context);
  zmctl::AddDeviceCommands(app, context);
  zmctl::AddCodecCommands(app, context);
  zmctl::AddAudioCommands(app, context);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    return app.exit(e);
  } catch (const std::exception& e) {
    std::cerr << "zmctl: " << e.what() << '\n';
    return 1;
  }
  return context.status;
}
