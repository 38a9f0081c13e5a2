// SPDX-License-Identifier: MIT
// Faults of the relay: how it leaves, and how it sends. What it does not read is in
// tests/simulation/FloodScenarios.cpp.
#include <array>
#include <cstdio>
#include <thread>

#include "faults/FaultTest.h"

namespace {

// The replies come back as resets: nobody is there any more.
void LeavesWithoutItsReplies(FaultTest& test) {
  for (int i = 0; i < 100; ++i) {
    test.relay->Sends(kFence);
  }
  test.relay->Leaves();
}

std::string FiveDigits(int number) {
  std::array<char, 16> text{};
  (void)std::snprintf(text.data(), text.size(), "%05d", number);
  return text.data();
}

// A close of a port of its own name each, so that the replies tell their order.
void SendsSixtyThousandCommands(FaultTest& test) {
  constexpr int kCommands = 60000;
  std::string commands;
  for (int i = 0; i < kCommands; ++i) {
    commands += std::string("\x00\x0B\x02\x02\x00\x05", 6) + FiveDigits(i);
  }
  std::thread sender([&] { test.relay->SendsBytes(commands); });
  // Nothing is read before all is sent, or before both sides have come to a halt.
  EXPECT_TRUE(Eventually([&] { return test.service->IsIdle(); }));
  int inOrder = 0;
  for (std::string packet = test.relay->NextPacket();
       packet == Wire("000D 02 02 0005 '" + FiveDigits(inOrder) + "' 0002");
       packet = test.relay->NextPacket()) {
    if (++inOrder == kCommands) {
      break;
    }
  }
  sender.join();
  EXPECT_EQ(kCommands, inOrder);
}

const std::vector<const char*> kNothing = {};

// clang-format off
const FaultRow kRelayRows[] = {
    // name                      state             start    happens                     log            outcome
    {"LeavesWithoutItsReplies",  State::kPortOpen, nullptr, LeavesWithoutItsReplies,    kNothing, Outcome::kListensAgain},
    {"SixtyThousandCommands",    State::kLinked,   nullptr, SendsSixtyThousandCommands, kNothing, Outcome::kGoesOn},
};
// clang-format on

INSTANTIATE_TEST_SUITE_P(Peer, FaultTable, testing::ValuesIn(kRelayRows), NameOf<FaultRow>);

}  // namespace
