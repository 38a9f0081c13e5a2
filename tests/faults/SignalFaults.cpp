// SPDX-License-Identifier: MIT
// Storms of signals, sudden deaths, and what a parent may do to its child's signals.
#include <csignal>
#include <fstream>

#include "faults/FaultTest.h"

namespace {

// A thousand stops of three kinds, as fast as they go. Those that come while one of their kind is
// waiting count once.
void Storm(FaultTest& test) {
  for (int i = 0; i < 1000; ++i) {
    constexpr int kSignals[] = {SIGTERM, SIGHUP, SIGINT};
    test.service->Signal(kSignals[i % 3]);
  }
}

void StormAfterSettling(FaultTest& test) {
  test.Settle();
  Storm(test);
}

// At the end of a stop there is nothing left that a signal could reach.
void StormUntilTheEnd(FaultTest& test) {
  test.Settle();
  ASSERT_TRUE(Eventually([&] {
    Storm(test);
    return test.service->State() != "still running";
  }));
}

void IsKilledAndStartedAnew(FaultTest& test) {
  test.service->Signal(SIGKILL);
  EXPECT_EQ("signal 9", test.service->WaitForExit());
  test.StartService();
}

// The second "[LISTEN]" line is the new one's: Link counts the first one's too.
void IsKilledWhileListening(FaultTest& test) {
  IsKilledAndStartedAnew(test);
  ASSERT_TRUE(Service::Prints("[LISTEN]IP:", 2));
  test.Link();
}

// The relay of the one that was killed still holds its end.
void IsKilledUnderItsRelay(FaultTest& test) {
  const std::unique_ptr<Relay> old = std::move(test.relay);
  IsKilledAndStartedAnew(test);
  test.Link();
  EXPECT_EQ(Wire(kPort0Opened), test.relay->Answer(kOpenPort0));
  test.ExpectDataBothWays();
}

void IsKilledUnderAFlood(FaultTest& test) {
  test.Clog();
  IsKilledUnderItsRelay(test);
}

void IsHaltedForAWhile(FaultTest& test) {
  test.service->Signal(SIGSTOP);
  test.relay->Sends(kFence);
  ASSERT_TRUE(test.device->Sends("A"));
  test.service->Signal(SIGCONT);
  const std::string one = test.relay->NextPacket();
  const std::string other = test.relay->NextPacket();
  EXPECT_TRUE((one == Wire(kFenceReply) && other == Wire(kReceivedA)) ||
              (one == Wire(kReceivedA) && other == Wire(kFenceReply)))
      << one << " " << other;
}

// The process that was started waits for the service, which is the first one of its namespace.
void FindFirstProcess(FaultTest& test) {
  const std::string pid = std::to_string(test.service->Pid());
  std::ifstream("/proc/" + pid + "/task/" + pid + "/children") >> test.inner;
  ASSERT_LT(0, test.inner);
  test.ExpectDataBothWays();
  EXPECT_EQ(Wire(kAdapterOpened), test.relay->Answer(kOpenAdapter));
}

void Converse(FaultTest& test) {
  test.ExpectDataBothWays();
  EXPECT_EQ(Wire(kAdapterOpened), test.relay->Answer(kOpenAdapter));
}

constexpr const char* kAsFirst = "exec unshare --pid --fork \"$@\"";
constexpr const char* kBlocked = "exec env --block-signal \"$@\"";
constexpr const char* kIgnored = "exec env --ignore-signal=TERM,HUP,INT,PIPE \"$@\"";
constexpr const char* kNoChildren = "exec env --ignore-signal=CHLD \"$@\"";

// clang-format off
const FaultRow kSignalRows[] = {
    // name                    state              start        happens                 log               outcome
    {"StormWhileListening",    State::kListening, nullptr,     StormAfterSettling,     {kStopRequested}, Outcome::kEndsWith255},
    {"StormWhileLinked",       State::kLinked,    nullptr,     StormAfterSettling,     {kStopRequested}, Outcome::kEndsWith0},
    {"StormWithAnOpenPort",    State::kPortOpen,  nullptr,     StormAfterSettling,     {kStopRequested}, Outcome::kEndsWith0},
    {"StormUntilTheEnd",       State::kPortOpen,  nullptr,     StormUntilTheEnd,       {kStopRequested}, Outcome::kEndsWith0},
    {"KilledWhileListening",   State::kListening, nullptr,     IsKilledWhileListening, {}, Outcome::kGoesOn},
    {"KilledUnderItsRelay",    State::kPortOpen,  nullptr,     IsKilledUnderItsRelay,  {}, Outcome::kGoesOn},
    {"KilledUnderAFlood",      State::kPortOpen,  nullptr,     IsKilledUnderAFlood,    {}, Outcome::kGoesOn},
    {"HaltedForAWhile",        State::kPortOpen,  nullptr,     IsHaltedForAWhile,      {}, Outcome::kGoesOn},
    {"FirstOfItsNamespace",    State::kPortOpen,  kAsFirst,    FindFirstProcess,       {}, Outcome::kGoesOn},
    {"AllSignalsBlocked",      State::kPortOpen,  kBlocked,    Converse,               {}, Outcome::kGoesOn},
    {"StopSignalsIgnored",     State::kPortOpen,  kIgnored,    Converse,               {}, Outcome::kGoesOn},
    {"ChildSignalIgnored",     State::kPortOpen,  kNoChildren, Converse,               {}, Outcome::kGoesOn},
};
// clang-format on

INSTANTIATE_TEST_SUITE_P(Signal, FaultTable, testing::ValuesIn(kSignalRows), NameOf<FaultRow>);

}  // namespace
