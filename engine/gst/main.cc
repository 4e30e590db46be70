// zolo-media-engine: the media engine on GStreamer, owning zolo.media on the system bus. It
// answers the same methods with the same replies, rows, files and signals as the simulated
// engine; the pictures (inputs, the program mixer, snapshots) are real.
#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <memory>
#include <string>

#include <zolo_model/channel.h>
#include <zolo_model/media_model.h>
#include <zolo_model/mixer.h>
#include <zolo_model/mixer_config.h>
#include <zolo_model/source.h>

#include "gst_media.h"
#include "zolo_media_sim.h"

int main(int argc, char** argv) {
  CLI::App app{
      "zolo-media-engine: the media engine owning zolo.media on the system bus\n"
      "(DBUS_SYSTEM_BUS_ADDRESS chooses the bus), on GStreamer: an input per channel (its\n"
      "capture device, network or file source, or a moving test pattern with its name on a\n"
      "machine without one) over a live \"no signal\" slate, a compositor per video mixer\n"
      "following the layouts, the program audio mix with measured levels, and snapshots of\n"
      "the live pictures."};
  std::string database;
  app.add_option("--database", database,
                 "Media database (default: [Application] database of /etc/media.conf, below "
                 "the sandbox root)");
  std::string initial_sql;
  app.add_option("--initial-sql", initial_sql,
                 "Create the database from this SQL file when it does not exist yet");
  std::string sandbox;
  app.add_option("--sandbox", sandbox, "Sandbox root: every system path is looked up below it");
  zolo::engine::GstMediaOptions media;
  app.add_option("--width", media.width, "Width of every input and the program")
      ->capture_default_str()
      ->check(CLI::Range(16, 3840));
  app.add_option("--height", media.height, "Height of every input and the program")
      ->capture_default_str()
      ->check(CLI::Range(16, 2160));
  app.add_option("--fps", media.fps, "Frame rate")->capture_default_str()->check(CLI::Range(1, 60));
  app.add_flag("--test-colours", media.test_colours,
               "Every input a solid colour, one per channel, whatever its source (for tests)");
  app.add_flag("--test-tones", media.audio.test_tones,
               "Audio inputs as tones of known levels, one per port (for tests)");
  int level_rate = 10;
  app.add_option("--level-rate", level_rate,
                 "\"audio_level\" of every audio port this many times a second (0: none)")
      ->capture_default_str()
      ->check(CLI::Range(0, 60));
  CLI11_PARSE(app, argc, argv);
  if (!sandbox.empty()) setenv("ZOLO_SYSROOT", sandbox.c_str(), 1);
  if (database.empty()) database = zolo::sim::ConfiguredDatabase();

  sigset_t signals = zolo::sim::BlockStopSignals();  // before any thread starts

  if (!initial_sql.empty() && !database.empty() &&
      MediaModel::Instance()->Initialize(database, initial_sql) < 0) {
    std::cerr << "zolo-media-engine: cannot create " << database << " from " << initial_sql << '\n';
    return 1;
  }
  // The database may not exist yet (the library creates it on first use): wait for it.
  bool said = false;
  while (MediaModel::Instance()->Connect(database) < 0) {
    if (!said)
      std::cerr << "zolo-media-engine: waiting for the media database " << database << '\n';
    said = true;
    timespec second{1, 0};
    if (sigtimedwait(&signals, nullptr, &second) > 0) return 0;
  }
  // An input for every channel with a video source (its user source when it has one), and
  // a compositor for every video mixer, the main one first.
  std::vector<zolo::engine::InputSetup> inputs;
  std::vector<Channel*> channels;
  Channel::QueryAll(&channels);
  for (Channel* channel : channels) {
    const MediaSource* source = channel->video_user_source();
    if (source == nullptr) source = channel->video_source();
    if (source == nullptr || !channel->visible() || !source->available()) continue;
    inputs.push_back({channel->id(), channel->video_source_id(), source->name(),
                      media.test_colours ? "" : source->url()});
  }
  MediaModel::CleanQuery(&channels);
  std::vector<int> mixer_ids;
  std::vector<Mixer*> mixers;
  Mixer::QueryByType(0, &mixers);
  for (Mixer* mixer : mixers) mixer_ids.push_back(mixer->id());
  if (mixer_ids.empty()) mixer_ids.push_back(1);
  media.audio.ports = zolo::engine::GstAudio::ConfiguredPorts();
  if (level_rate > 0) media.audio.level_interval_ms = 1000 / level_rate;

  auto gst = std::make_shared<zolo::engine::GstMedia>(media);
  std::string error;
  if (!gst->Start(inputs, mixer_ids, &error)) {
    std::cerr << "zolo-media-engine: " << error << '\n';
    return 1;
  }
  // Every mixer starts with the layout it shows.
  for (Mixer* mixer : mixers)
    if (mixer->config() != nullptr) gst->ShowLayout(mixer->id(), mixer->config()->content());
  MediaModel::CleanQuery(&mixers);

  zolo::sim::MediaSimulator engine;
  engine.set_database(database);
  engine.set_media(gst);
  if (int r = engine.Start(); r < 0) {
    std::cerr << "zolo-media-engine: cannot serve zolo.media: " << std::strerror(-r) << '\n';
    return 1;
  }
  engine.set_level_interval_ms(level_rate > 0 ? 1000 / level_rate : 0);
  std::cout << "zolo-media-engine: serving zolo.media with " << inputs.size() << " inputs at "
            << media.width << "x" << media.height << "@" << media.fps << std::endl;
  while (sigwaitinfo(&signals, nullptr) < 0) {
  }
  engine.Stop();
  gst->Stop();
  return 0;
}
