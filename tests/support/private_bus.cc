#include "private_bus.h"

#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <thread>
#include <vector>

#include "sandbox.h"

namespace zolo::test {

PrivateBus::PrivateBus() {
  char pattern[] = "/tmp/zolo-bus-XXXXXX";
  if (mkdtemp(pattern) == nullptr) return;
  dir_ = pattern;
  std::string socket = dir_ + "/system_bus_socket";
  std::string config = ReadFile(SourceDir() + "/data/dbus/private-bus.conf.in");
  config.replace(config.find("@SOCKET@"), 8, socket);
  std::ofstream(dir_ + "/bus.conf") << config;
  address_ = "unix:path=" + socket;
  if (Launch()) setenv("DBUS_SYSTEM_BUS_ADDRESS", address_.c_str(), 1);
}

bool PrivateBus::Launch() {
  std::string socket = dir_ + "/system_bus_socket";
  std::string config_arg = "--config-file=" + dir_ + "/bus.conf";
  unlink(socket.c_str());
  pid_ = fork();
  if (pid_ == 0) {
    execlp("dbus-daemon", "dbus-daemon", config_arg.c_str(), "--nofork", "--nopidfile",
           static_cast<char*>(nullptr));
    _exit(127);
  }
  struct stat st;
  for (int i = 0; i < 500 && stat(socket.c_str(), &st) != 0; ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  if (stat(socket.c_str(), &st) != 0) {
    Kill();
    return false;
  }
  return true;
}

void PrivateBus::Kill() {
  if (pid_ <= 0) return;
  kill(pid_, SIGTERM);
  waitpid(pid_, nullptr, 0);
  pid_ = -1;
}

bool PrivateBus::Restart() {
  Kill();
  return Launch();
}

PrivateBus::~PrivateBus() {
  Kill();
  unsetenv("DBUS_SYSTEM_BUS_ADDRESS");
  std::error_code ec;
  if (!dir_.empty()) std::filesystem::remove_all(dir_, ec);
}

}  // namespace zolo::test
