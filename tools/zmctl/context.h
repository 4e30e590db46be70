// What every zmctl command shares: the output style and the exit status.
#pragma once

#include <CLI/CLI.hpp>

#include "output.h"

namespace zmctl {

struct Context {
  Output out() const { return Output(json); }
  bool json = false;
  std::string sandbox;
  int status = 0;
};

void AddFrameCommands(CLI::App& app, Context& context);
void AddUtilCommands(CLI::App& app, Context& context);
void AddDeviceCommands(CLI::App& app, Context& context);

}  // namespace zmctl
