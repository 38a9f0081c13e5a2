// SPDX-License-Identifier: MIT
// A sweep: the n-th allocation of a short conversation fails, for each n that the conversation has.
// The process ends by the standard path or goes on; it never corrupts an answer or hangs.
#include <csignal>
#include <filesystem>

#include "faults/FaultTest.h"

namespace {

constexpr unsigned kRowsOfTheSweep = 8;
constexpr const char* kFailed = "/dev/shm/allocation-failed";
constexpr std::chrono::seconds kPatience{5};

constexpr const char* kLastCommand =
    "3 SerialPortHandler SerialPortHandler.cpp 4 close command proc.";

// Where the platform library could not read its file.
constexpr const char* kNoPort =
    "1 libvost Libvost.cpp 4 /tmp/e2e/vost.conf: Cannot allocate memory";

bool HasEnded(FaultTest& test) { return test.service->State() != "still running"; }

// Waits for what comes unless the process has ended, or a part of it that it has to do without.
template <typename Condition>
bool Comes(FaultTest& test, Condition condition) {
  return Eventually([&] { return HasEnded(test) || condition(); }, kPatience) && !HasEnded(test);
}

bool Printed(const std::string& text) { return Service::Output().find(text) != std::string::npos; }

// The reply without its status, which may tell of the failure.
std::string Echo(const std::string& packet) { return packet.substr(0, packet.size() - 4); }

// One reply for each command but the one with data, in order; notifications may come between. A
// process that ends meanwhile owes no further ones.
void ExpectReplies(FaultTest& test) {
  for (const char* const reply : {kPort0Opened, kAdapterOpened, kPort0Closed, kFenceReply}) {
    std::string packet = test.relay->NextPacket();
    while (packet == Wire(kReceivedA)) {
      packet = test.relay->NextPacket();
    }
    if (packet == "closed") {
      EXPECT_TRUE(Eventually([&] { return HasEnded(test); }));
      return;
    }
    EXPECT_EQ(Echo(Wire(reply)), Echo(packet));
  }
}

// With a relay that is not heard, as no thread could be made for it, the log shows no command.
void ConverseWithoutReplies(FaultTest& test) {
  test.relay->Sends(kOpenPort0);
  if (Comes(test, [] { return Printed("OPEN[/dev/ttyS2]\n") || LogFile::Count(kNoPort) == 1; })) {
    ASSERT_TRUE(test.device->Sends("A"));
  }
  for (const char* const command : {kWriteB, kOpenAdapter, kClosePort0, kFence}) {
    test.relay->Sends(command);
  }
  if (!Comes(test, [] { return LogFile::Count(kLastCommand) == 2; })) {
    return;
  }
  ExpectReplies(test);
  test.relay->Leaves();
  (void)Comes(test, [] { return Service::Output().rfind("[LISTEN]") != 0; });
}

class AllocationTest : public FaultTest, public testing::WithParamInterface<unsigned> {
 protected:
  // Whether there was an n-th allocation.
  bool FailAllocation(unsigned n) {
    SCOPED_TRACE("allocation " + std::to_string(n));
    for (const char* const file :
         {workplace::kOutput, workplace::kErrors, workplace::kLog, kFailed}) {
      std::filesystem::remove(file);
    }
    device.reset();  // the old one takes its path away
    device = std::make_unique<Device>();
    command =
        "exec env LD_PRELOAD=$FAULT_TOOLS/../lib/libfailing-allocation.so "
        "FAIL_ALLOCATION=" +
        std::to_string(n) + " \"$@\"";
    start = command.c_str();
    StartAs();
    if (Comes(*this, [] { return Printed("[LISTEN]"); })) {
      relay = std::make_unique<Relay>();
      ConverseWithoutReplies(*this);
    }
    const std::string end = HasEnded(*this) ? service->State() : StopAtOnce(SIGTERM);
    EXPECT_TRUE(end == "exit 0" || end == "exit 255" || end == "signal 6") << end;
    EXPECT_EQ(end == "signal 6", Service::Errors().find("terminate called") != std::string::npos)
        << Service::Errors();
    return std::filesystem::exists(kFailed);
  }

 private:
  std::string command;
};

// Each row takes every eighth allocation.
TEST_P(AllocationTest, MayFail) {
  unsigned swept = 0;
  for (unsigned n = GetParam(); FailAllocation(n) && !HasFailure(); n += kRowsOfTheSweep) {
    ++swept;
  }
  EXPECT_LT(3U, swept);
  RecordProperty("allocations", static_cast<int>(swept));
}

INSTANTIATE_TEST_SUITE_P(EveryEighthFrom, AllocationTest, testing::Range(1U, 1 + kRowsOfTheSweep));

}  // namespace
