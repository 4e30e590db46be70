// zmctl: the media library from a shell.
#include <zolo/version.h>

#include <cstdlib>
#include <cstring>
#include <iostream>
#include <string>

#include "context.h"

namespace {

// The deepest command the parse got to, for its help after a usage error.
const CLI::App* DeepestCommand(const CLI::App& app) {
  for (const CLI::App* sub : app.get_subcommands())
    if (sub->parsed()) return DeepestCommand(*sub);
  return &app;
}

// Shell completion: prints, one a line, the commands and long options that may follow the
// words already typed. Driven by the same command tree as parsing, so it never drifts.
int Complete(CLI::App& app, int argc, char** argv) {
  CLI::App* at = &app;
  for (int i = 0; i < argc; ++i) {
    if (argv[i][0] == '-') continue;
    for (CLI::App* sub : at->get_subcommands([](CLI::App*) { return true; }))
      if (sub->get_name() == argv[i]) {
        at = sub;
        break;
      }
  }
  for (const CLI::App* sub : at->get_subcommands([](CLI::App*) { return true; }))
    if (!sub->get_group().empty()) std::cout << sub->get_name() << '\n';
  for (const CLI::Option* option : at->get_options())
    for (const std::string& name : option->get_lnames()) std::cout << "--" << name << '\n';
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  zmctl::Context context;
  CLI::App app{"zmctl: read and change the media configuration, command the media engine"};
  app.require_subcommand(1);
  app.set_version_flag("--version", std::string("zmctl ") + ZM_VERSION_STRING + " (headers " +
                                        ZM_VERSION_STRING + ", library " + zm_version() + ")");
  app.footer(
      "Exit status: 0 on success, 1 when a library call fails (its result code and meaning\n"
      "are printed), 2 for a missing or unknown command or option.");
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
  zmctl::AddSourceCommands(app, context);
  zmctl::AddCodecCommands(app, context);
  zmctl::AddAudioCommands(app, context);
  zmctl::AddMixerConfigCommands(app, context);
  zmctl::AddRecordingCommands(app, context);
  zmctl::AddMixerLiveCommands(app, context);
  // "__complete" may follow the global options, as the completion script passes them on.
  for (int i = 1; i < argc; ++i)
    if (std::strcmp(argv[i], "__complete") == 0) return Complete(app, argc - i - 1, argv + i + 1);
  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp& e) {
    return app.exit(e);
  } catch (const CLI::CallForAllHelp& e) {
    return app.exit(e);
  } catch (const CLI::CallForVersion& e) {
    return app.exit(e);
  } catch (const CLI::ParseError& e) {
    std::cerr << "zmctl: " << e.what() << "\n\n" << DeepestCommand(app)->help();
    return 2;
  } catch (const std::exception& e) {
    std::cerr << "zmctl: " << e.what() << '\n';
    return 1;
  }
  return context.status;
}
