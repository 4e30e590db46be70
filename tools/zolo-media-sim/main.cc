// zolo-media-sim: the simulated media engine as a daemon on the system bus.
#include <CLI/CLI.hpp>
#include <csignal>
#include <cstring>
#include <iostream>

#include "zolo_media_sim.h"

int main(int argc, char** argv) {
  CLI::App app{
      "zolo-media-sim: a simulated media engine owning zolo.media on the system bus\n"
      "(DBUS_SYSTEM_BUS_ADDRESS chooses the bus). Besides the engine's methods it answers\n"
      "sim_emit {\"name\", \"payload\"} (emit a signal) and sim_set_state {\"id\"}."};
  int state = zolo::sim::kIdle;
  app.add_option("--state", state, "Initial engine state (1 idle, 3 recording, 4 paused)")
      ->capture_default_str();
  CLI11_PARSE(app, argc, argv);

  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);  // before the simulator's thread starts

  zolo::sim::MediaSimulator simulator;
  simulator.set_state(state);
  if (int r = simulator.Start(); r < 0) {
    std::cerr << "zolo-media-sim: cannot serve zolo.media: " << std::strerror(-r) << '\n';
    return 1;
  }
  std::cout << "zolo-media-sim: serving zolo.media" << std::endl;
  int received = 0;
  sigwait(&signals, &received);
  simulator.Stop();
  return 0;
}
