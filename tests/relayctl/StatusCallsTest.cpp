// SPDX-License-Identifier: MIT
// That a look at the site is not felt by the service. A sanitizer makes calls of its own.
#include <csignal>
#include <functional>
#include <map>
#include <set>
#include <sstream>

#include "relayctl/StatusSituation.h"

namespace {

using Calls = std::map<std::string, unsigned>;

class StatusCallsTest : public StatusSituation {
 protected:
  // A byte to the device and one back.
  void GoRound() {
    relay->Sends("0019 04 02 000E '#PhysicalPort0' 01 01 0001 41");
    ASSERT_EQ("A", device->Reads(1));
    ASSERT_TRUE(device->Sends("B"));
    ASSERT_NE("nothing", relay->NextPacket());
  }

  // A read of the line ends now and then although nothing comes.
  static bool IsSilence(const std::string& line) {
    return line.find("read") != std::string::npos && line.ends_with(" = 0");
  }

  // How often the service makes each call meanwhile.
  Calls CallsDuring(const std::function<void()>& action) {
    Settle();
    Background strace("strace -f -o /tmp/e2e/calls -p " + std::to_string(service->Pid()));
    EXPECT_TRUE(strace.Prints(" attached"));
    GoRound();  // the call that a thread was in when strace came is seen or not
    Settle();
    const size_t begin = workplace::ReadWhole("/tmp/e2e/calls").size();
    action();
    Settle();  // each thread is back where it waits
    strace.Signal(SIGINT);
    (void)strace.WaitForExit();
    // How often it waits, and looks for its log file, is a matter of time.
    const std::set<std::string> kByTime = {
        "clock_nanosleep", "futex", "newfstatat", "poll", "restart_syscall", "rt_sigtimedwait"};
    Calls calls;
    std::istringstream lines(workplace::ReadWhole("/tmp/e2e/calls").substr(begin));
    // Those with a result: strace itself interrupts those that wait.
    const std::regex call("^[0-9]+ +(?:<\\.\\.\\. )?([a-z0-9_]+)(?:\\(| resumed>).* = -?[0-9]");
    std::smatch found;
    for (std::string line; std::getline(lines, line);) {
      if (std::regex_search(line, found, call) && !kByTime.contains(found[1]) && !IsSilence(line)) {
        ++calls[found[1]];
      }
    }
    return calls;
  }
};

// Whatever the service opens, reads or writes, it does as often without.
TEST_F(StatusCallsTest, TheServiceMakesTheSameCallsWhileItIsLookedAt) {
  StartWithOpenPort();
  unsigned rounds = 0;
  const Calls with = CallsDuring([&] {
    Background status("relayctl status");
    EXPECT_TRUE(Eventually([&] {
      GoRound();
      ++rounds;
      return HasFailure() || !status.Output().empty();
    }));
    EXPECT_EQ("exit 0", status.WaitForExit());
  });
  const Calls without = CallsDuring([&] {
    for (unsigned round = 0; round < rounds && !HasFailure(); ++round) {
      GoRound();
    }
  });
  EXPECT_EQ(without, with);
  EXPECT_LE(rounds, with.at("read"));  // the calls are there
  EXPECT_LE(rounds, with.at("sendto"));
}

}  // namespace
