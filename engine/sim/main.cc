// zolo-media-sim: the simulated media engine as a daemon on the system bus.
#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <string>

#include <zolo_model/media_model.h>

#include "zolo_media_sim.h"

int main(int argc, char** argv) {
  CLI::App app{
      "zolo-media-sim: a simulated media engine owning zolo.media on the system bus\n"
      "(DBUS_SYSTEM_BUS_ADDRESS chooses the bus). Besides the engine's methods it answers\n"
      "sim_emit {\"name\", \"payload\"} (emit a signal) and sim_set_state {\"id\"}."};
  int state = zolo::sim::kIdle;
  app.add_option("--state", state, "Initial engine state (1 idle, 3 recording, 4 paused)")
      ->capture_default_str();
  std::string database;
  app.add_option("--database", database,
                 "Media database the stream methods read (default: [Application] database of "
                 "/etc/media.conf, below the sandbox root)");
  std::string initial_sql;
  app.add_option("--initial-sql", initial_sql,
                 "Create the database from this SQL file when it does not exist yet");
  std::string sandbox;
  app.add_option("--sandbox", sandbox,
                 "Sandbox root: the configuration and the recordings are read and written "
                 "below it");
  int level_rate = 10;
  app.add_option("--level-rate", level_rate,
                 "\"audio_level\" of every configured audio port and the program mix this many "
                 "times a second (0: none)")
      ->capture_default_str()
      ->check(CLI::Range(0, 60));
  int generate = 0;
  app.add_option("--generate-recordings", generate,
                 "Fill the recording database with N generated recordings (3 videos each, "
                 "10 minutes apart) and a few snapshots with images, in one transaction; only "
                 "the 300 newest get their files (videos, information.json, bookmark.json), "
                 "so that N = 100000 takes seconds")
      ->type_name("N")
      ->check(CLI::NonNegativeNumber);
  CLI11_PARSE(app, argc, argv);
  if (!sandbox.empty()) setenv("ZOLO_SYSROOT", sandbox.c_str(), 1);
  if (database.empty()) database = zolo::sim::ConfiguredDatabase();

  sigset_t signals = zolo::sim::BlockStopSignals();  // before any thread starts

  if (!initial_sql.empty() && !database.empty() &&
      MediaModel::Instance()->Initialize(database, initial_sql) < 0) {
    std::cerr << "zolo-media-sim: cannot create " << database << " from " << initial_sql << '\n';
    return 1;
  }
  if (generate > 0 && zolo::sim::MediaSimulator::GenerateRecordings(generate) != 0) {
    std::cerr << "zolo-media-sim: cannot write the generated recordings\n";
    return 1;
  }
  zolo::sim::MediaSimulator simulator;
  simulator.set_state(state);
  simulator.set_database(database);
  if (int r = simulator.Start(); r < 0) {
    std::cerr << "zolo-media-sim: cannot serve zolo.media: " << std::strerror(-r) << '\n';
    return 1;
  }
  simulator.set_level_interval_ms(level_rate > 0 ? 1000 / level_rate : 0);
  std::cout << "zolo-media-sim: serving zolo.media" << std::endl;
  while (sigwaitinfo(&signals, nullptr) < 0) {
  }
  simulator.Stop();
  return 0;
}
