// SPDX-License-Identifier: MIT
// Faults of the relay: how it leaves, how it sends, and what it does not read.
#include <unistd.h>

#include <array>
#include <cstdio>
#include <map>
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

// How long the relay reads nothing: as long as a busy relay may really be away.
constexpr std::chrono::seconds kStall{30};

std::string AdapterName(unsigned port) { return "#USBSerialPort" + std::to_string(port); }

// Numbers one after another for as long as the relay stalls, and a semicolon behind the last one.
void FeedUntil(std::chrono::steady_clock::time_point end, const Device& device, std::string& sent) {
  for (int number = 0; std::chrono::steady_clock::now() < end;) {
    std::string piece;
    for (int i = 0; i < 50; ++i) {
      piece += std::to_string(number++) + ",";
    }
    sent += piece;
    size_t taken = 0;
    EXPECT_TRUE(Eventually(
        [&] {
          const ssize_t count = write(device.FarEnd(), piece.data() + taken, piece.size() - taken);
          taken += count > 0 ? static_cast<size_t>(count) : 0;
          return taken == piece.size();
        },
        kStall + kDeadline));
  }
  sent += ";";
  EXPECT_TRUE(device.Sends(";"));
}

// What the relay gets from six ports, in hex, up to the semicolon of each.
std::map<std::string, std::string> ReceivedFromSix(Relay& relay) {
  constexpr size_t kName = size_t{2} * (2 + 1 + 1 + 2);
  constexpr size_t kHeader = kName + size_t{2} * (15 + 1 + 1 + 2);
  std::map<std::string, std::string> received;
  for (int ended = 0; ended < 6;) {
    const std::string packet = relay.NextPacket();
    if (packet.size() <= kHeader) {
      ADD_FAILURE() << packet;
      break;
    }
    received[packet.substr(kName, size_t{2} * 15)] += packet.substr(kHeader);
    ended += packet.ends_with(HexOf(";")) ? 1 : 0;
  }
  return received;
}

void ReadsNothingForAWhile(FaultTest& test) {
  std::vector<std::unique_ptr<Device>> devices;
  test.adapter.reset();
  test.udev.Clear();
  for (unsigned port = 0; port < 6; ++port) {
    const std::string node = "/dev/ttyUSB" + std::to_string(port);
    devices.push_back(std::make_unique<Device>(node));
    test.udev.AddAdapterAtPort(port, node);
    test.configuration.Port(AdapterName(port), "115200 8 none 1 none");
    ASSERT_EQ(Wire("0017 01 02 000F '" + AdapterName(port) + "' 0000"),
              test.relay->Answer("0015 01 02 000F '" + AdapterName(port) + "'"));
  }
  std::map<std::string, std::string> sent;
  std::vector<std::thread> feeders;
  const auto end = std::chrono::steady_clock::now() + kStall;
  for (unsigned port = 0; port < 6; ++port) {
    std::string& bytes = sent[HexOf(AdapterName(port))];
    feeders.emplace_back(
        [&bytes, end, device = devices[port].get()] { FeedUntil(end, *device, bytes); });
  }
  std::this_thread::sleep_until(end);  // the fault's own time
  const std::map<std::string, std::string> received = ReceivedFromSix(*test.relay);
  for (std::thread& feeder : feeders) {
    feeder.join();
  }
  for (const auto& [name, bytes] : sent) {
    EXPECT_TRUE(received.contains(name) && received.at(name) == HexOf(bytes)) << name;
    EXPECT_LT(10000U, bytes.size());
  }
}

// On a busy machine a line may rest for a moment before its bytes go on: the halt has to last.
void ClogForHalfASecond(FaultTest& test) {
  using Clock = std::chrono::steady_clock;
  const std::string piece(4096, 'x');
  Clock::time_point moved = Clock::now();
  ASSERT_TRUE(Eventually([&] {
    while (write(test.device->FarEnd(), piece.data(), piece.size()) > 0) {
      moved = Clock::now();
    }
    moved = test.service->IsIdle() ? moved : Clock::now();
    return Clock::now() - moved > std::chrono::milliseconds(500);
  }));
}

// The port's receive thread waits inside a send and may hold the old link a little longer than the
// handler does. The link must have let go of the port number before the next one takes it.
void HalfClosesUnderAFlood(FaultTest& test) {
  for (int round = 0; round < 15; ++round) {
    ASSERT_NO_FATAL_FAILURE(ClogForHalfASecond(test));
    test.relay->EndsSending();
    ASSERT_NO_FATAL_FAILURE(test.Link());
    ASSERT_EQ(Wire(kPort0Opened), test.relay->Answer(kOpenPort0)) << "round " << round;
  }
}

// The second port's thread waits behind the first one's, for the lock under which both send.
void HalfClosesUnderTwoFloods(FaultTest& test) {
  for (int round = 0; round < 5; ++round) {
    ASSERT_EQ(Wire(kAdapterOpened), test.relay->Answer(kOpenAdapter)) << "round " << round;
    ASSERT_NO_FATAL_FAILURE(ClogForHalfASecond(test));
    ASSERT_TRUE(test.adapter->Sends("A"));
    test.relay->EndsSending();
    ASSERT_NO_FATAL_FAILURE(test.Link());
    ASSERT_EQ(Wire(kPort0Opened), test.relay->Answer(kOpenPort0)) << "round " << round;
  }
}

const std::vector<const char*> kNothing = {};

// clang-format off
const FaultRow kRelayRows[] = {
    // name                      state             start    happens                     log            outcome
    {"LeavesWithoutItsReplies",  State::kPortOpen, nullptr, LeavesWithoutItsReplies,    kNothing, Outcome::kListensAgain},
    {"SixtyThousandCommands",    State::kLinked,   nullptr, SendsSixtyThousandCommands, kNothing, Outcome::kGoesOn},
    {"ReadsNothingForAWhile",    State::kLinked,   nullptr, ReadsNothingForAWhile,      kNothing, Outcome::kGoesOn},
    {"HalfClosesUnderAFlood",    State::kPortOpen, nullptr, HalfClosesUnderAFlood,      kNothing, Outcome::kGoesOn},
    {"HalfClosesUnderTwoFloods", State::kPortOpen, nullptr, HalfClosesUnderTwoFloods,   kNothing, Outcome::kGoesOn},
};
// clang-format on

INSTANTIATE_TEST_SUITE_P(Peer, FaultTable, testing::ValuesIn(kRelayRows), NameOf<FaultRow>);

}  // namespace
