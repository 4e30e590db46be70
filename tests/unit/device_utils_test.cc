// Time strings, IPv4 checks, device facts below the sandbox root, and the idle helper.
#include <glib.h>
#include <gtest/gtest.h>
#include <zolo/utils.h>

#include <cstdlib>
#include <ctime>
#include <string>

#include "log_capture.h"
#include "sandbox.h"

namespace {

using zolo::test::LogCapture;
using zolo::test::Sandbox;

// Sets TZ for the life of the object.
class TimeZone {
 public:
  explicit TimeZone(const char* tz) {
    if (const char* old = std::getenv("TZ")) saved_ = old, had_ = true;
    setenv("TZ", tz, 1);
    tzset();
  }
  ~TimeZone() {
    if (had_)
      setenv("TZ", saved_.c_str(), 1);
    else
      unsetenv("TZ");
    tzset();
  }

 private:
  std::string saved_;
  bool had_ = false;
};

TEST(TimeStrings, MakeTimeStringUsesLocalTime) {
  TimeZone tz("Asia/Tokyo");
  // 2024-03-05 07:08:09 in Tokyo (UTC+9) is 2024-03-04 22:08:09 UTC.
  long t = 1709590089;
  std::string stamp, day;
  EXPECT_EQ(MakeTimeString(t, &stamp, &day), 0);
  EXPECT_EQ(stamp, "2024_03_05_07_08_09");
  EXPECT_EQ(day, "2024_03_05");
  EXPECT_EQ(MakeTimeString(t, &stamp, nullptr), 0);
  EXPECT_DOUBLE_EQ(GetCurrentTzOffset(), 32400.0);
}

struct IsoCase {
  unsigned long t;
  double offset;
  const char* expected;
};
class Iso8601Test : public testing::TestWithParam<IsoCase> {};
TEST_P(Iso8601Test, ShiftsAndAppendsTheZone) {
  EXPECT_EQ(TransferIso8601(GetParam().t, GetParam().offset), GetParam().expected);
}
INSTANTIATE_TEST_SUITE_P(Table, Iso8601Test,
                         testing::Values(IsoCase{0, 32400, "1970-01-01T09:00:00+09:00"},
                                         IsoCase{0, 0, "1970-01-01T00:00:00+00:00"},
                                         IsoCase{86400, -12600, "1970-01-01T20:30:00-03:-30"},
                                         IsoCase{1700000000, 19800, "2023-11-15T03:43:20+05:30"}));

TEST(TimeStamps, MicrosecondsAgreeWithSeconds) {
  int64_t s = GetTimeStamp();
  uint64_t us = GetTimeStampU();
  EXPECT_GE(static_cast<int64_t>(us / 1000000), s);
  EXPECT_LE(static_cast<int64_t>(us / 1000000), s + 1);
}

struct IpCase {
  const char* address;
  bool valid;
  bool multicast;
};
class IpTest : public testing::TestWithParam<IpCase> {};
TEST_P(IpTest, DottedIpv4Only) {
  EXPECT_EQ(IsValidIpAddress(GetParam().address), GetParam().valid);
  EXPECT_EQ(IsMulticastIpAddress(GetParam().address), GetParam().multicast);
}
INSTANTIATE_TEST_SUITE_P(
    Table, IpTest,
    testing::Values(IpCase{"239.255.255.250", true, true}, IpCase{"224.0.0.1", true, true},
                    IpCase{"240.0.0.1", true, false}, IpCase{"223.255.255.255", true, false},
                    IpCase{"192.168.1.1", true, false}, IpCase{"media.local", false, false},
                    IpCase{"::1", false, false}, IpCase{"", false, false},
                    IpCase{"1.2.3", false, false}));

TEST(Network, LoopbackHasAnAddressAndUnknownInterfacesDoNot) {
  std::string ip = "unchanged";
  EXPECT_EQ(GetIpAddress("no-such-if0", &ip), -1);
  EXPECT_EQ(ip, "unchanged");
  EXPECT_EQ(GetIpAddress(std::string(40, 'x'), &ip), -1);
  if (GetIpAddress("lo", &ip) == 0) {
    EXPECT_EQ(ip, "127.0.0.1");
  }
}

TEST(DeviceFacts, ReadFromTheSandboxRoot) {
  Sandbox sandbox;
  sandbox.WriteFile("/etc/hostname", "studio-7\n");
  sandbox.WriteFile("/etc/description", "Room 4 recorder\n\n");
  sandbox.WriteFile("/sys/class/net/eth0/address", "00:1a:2b:3c:4d:5e\n");
  EXPECT_EQ(GetDeviceHostname(), "studio-7");
  EXPECT_EQ(GetDeviceDescription(), "Room 4 recorder");
  EXPECT_EQ(GetMacAddressStr(false), "001A2B3C4D5E");
  EXPECT_EQ(GetMacAddressStr(true), "001a2b3c4d5e");
  sandbox.WriteFile("/etc/hostname", std::string(40, 'h'));
  EXPECT_EQ(GetDeviceHostname(), std::string(32, 'h'));
}

TEST(DeviceFacts, MissingFilesLogAndGiveEmptyText) {
  Sandbox sandbox;
  LogCapture log;
  EXPECT_EQ(GetDeviceHostname(), "");
  // The host-name reader names the description file in its message.
  EXPECT_TRUE(log.HasFragment("file open /etc/description error ")) << log.Dump();
  EXPECT_FALSE(log.HasFragment("/etc/hostname"));
  EXPECT_EQ(GetMacAddressStr(false), "");
  EXPECT_TRUE(log.HasFragment("file open /sys/class/net/eth0/address error ")) << log.Dump();
}

struct Counter {
  int runs = 0;
  int keep_for = 0;
  GMainLoop* loop = nullptr;
};

int CountAndMaybeStop(void* data) {
  auto* counter = static_cast<Counter*>(data);
  ++counter->runs;
  if (counter->runs > counter->keep_for) {
    g_main_loop_quit(counter->loop);
    return 0;
  }
  return 1;
}

TEST(MainLoopIdle, RunsUntilTheFunctionReturnsZeroAndLogsTheTime) {
  LogCapture log;
  Counter counter;
  counter.keep_for = 2;
  counter.loop = g_main_loop_new(nullptr, FALSE);
  EXPECT_EQ(_GMainLoopIdleAdd(CountAndMaybeStop, &counter, "count"), 0);
  g_main_loop_run(counter.loop);
  g_main_loop_unref(counter.loop);
  EXPECT_EQ(counter.runs, 3);
  EXPECT_TRUE(log.HasFragment("count time spent ")) << log.Dump();
  EXPECT_EQ(log.Lines().back().level, 4);
  EXPECT_EQ(log.Lines().back().source, "MainLoopHandler");
}

TEST(MainLoopIdle, NullNameSchedulesNothing) {
  LogCapture log;
  Counter counter;
  EXPECT_EQ(_GMainLoopIdleAdd(CountAndMaybeStop, &counter, nullptr), 0);
  EXPECT_TRUE(log.Has("Function name is NULL!!", 0));
  EXPECT_FALSE(g_main_context_iteration(nullptr, FALSE));
  EXPECT_EQ(counter.runs, 0);
  EXPECT_EQ(_GMainLoopIdleAdd(nullptr, &counter, "none"), -1);
}

}  // namespace
