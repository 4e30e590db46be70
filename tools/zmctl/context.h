// What every zmctl command shares: the output style and the exit status.
#pragma once

#include <zolo/media.h>
#include <CLI/CLI.hpp>

#include "output.h"

namespace zmctl {

struct Context {
  Output out() const { return Output(json); }
  bool json = false;
  std::string sandbox;
  int status = 0;
};

// The library, brought up for one command and released afterwards.
class Session {
 public:
  Session() : result_(zm_init(true)) {}
  ~Session() {
    if (result_ == 0) zm_release();
  }
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;
  int result() const { return result_; }

 private:
  int result_;
};

// Runs `call` in a library session; a failure (of the session or the call) is printed with
// its meaning and sets the exit status. True when the call succeeded.
template <class Call>
bool Run(Context& context, const std::string& what, Call call) {
  Session session;
  int result = session.result() != 0 ? session.result() : call();
  if (result < 0) {
    context.status = Fail(what, result);
    return false;
  }
  return true;
}

void AddStreamCommands(CLI::App& app, Context& context);
void AddFrameCommands(CLI::App& app, Context& context);
void AddUtilCommands(CLI::App& app, Context& context);
void AddDeviceCommands(CLI::App& app, Context& context);
void AddSourceCommands(CLI::App& app, Context& context);
void AddCodecCommands(CLI::App& app, Context& context);
void AddAudioCommands(CLI::App& app, Context& context);
// recording, bookmark, snapshot, image.
void AddRecordingCommands(CLI::App& app, Context& context);
// "storage info", added to the storage group.
void AddStorageInfoCommand(CLI::App& storage, Context& context);
void AddMixerConfigCommands(CLI::App& app, Context& context);
// mixer, color, playback, ringtone: the mixers on air and playback.
void AddMixerLiveCommands(CLI::App& app, Context& context);

}  // namespace zmctl
