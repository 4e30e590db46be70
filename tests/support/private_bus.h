// A private dbus-daemon for one test program: DBUS_SYSTEM_BUS_ADDRESS points at it while the
// object lives; the daemon is stopped and reaped at the end.
#pragma once

#include <sys/types.h>

#include <string>

namespace zolo::test {

class PrivateBus {
 public:
  PrivateBus();
  ~PrivateBus();
  PrivateBus(const PrivateBus&) = delete;
  PrivateBus& operator=(const PrivateBus&) = delete;

  bool ok() const { return pid_ > 0; }
  // Stops the daemon and starts a new one on the same address, as a restarted system bus
  // would be. False when the new one does not come up.
  bool Restart();
  const std::string& address() const { return address_; }

 private:
  std::string dir_;
  std::string address_;
  pid_t pid_ = -1;
  bool Launch();
  void Kill();
};

}  // namespace zolo::test
