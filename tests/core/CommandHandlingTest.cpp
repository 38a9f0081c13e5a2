// SPDX-License-Identifier: MIT
// What the service does with each command and with received data, between a relay and ports that
// the test plays. Ports are named "A" and "B".
#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <stdexcept>

#include "core/Fakes.h"
#include "core/SerialPortHandler.h"
#include "support/Hex.h"

namespace {

constexpr const char* kOpenA = "0007 01 02 0001 41";
constexpr const char* kCloseA = "0007 02 02 0001 41";

class CommandHandlingTest : public testing::Test {
 protected:
  CommandHandlingTest() {
    world.configuration["A"] = {"9600", "8", "none", "1", "none"};
    world.configuration["B"] = {"115200", "7", "even", "2", "hardware"};
    service = std::async(std::launch::async, [this] { return handler.Run(); });
    relay = world.RelayNumber(1);
  }
  ~CommandHandlingTest() override {
    do {
      handler.RequestStop();  // one before the link stands is forgotten
    } while (service.wait_for(std::chrono::milliseconds(5)) != std::future_status::ready);
  }

  std::string Answer(const std::string& packet) {
    relay->Sends(packet);
    return relay->sent.empty() ? "nothing" : relay->sent.back();
  }
  // On the thread that calls, in the place of a port's receive thread.
  void PortReads(const std::vector<uint8_t>& bytes) {
    world.receive.onData("A", bytes.data(), static_cast<int>(bytes.size()), world.receive.context);
  }
  bool IsReleased(size_t index) { return world.ports.at(index).expired(); }
  FakePort& Port(size_t index) {
    const auto port = world.ports.at(index).lock();
    if (port == nullptr) {
      throw std::logic_error("the port is released");
    }
    return *port;  // the service holds it
  }

  World& world = World::Get();
  SerialPortHandler handler{{MakeRelay, MakePort}};
  std::shared_ptr<FakeRelay> relay;
  std::future<bool> service;
};

struct StatusCase {
  int result;
  const char* reply;
};

std::string ResultName(const testing::TestParamInfo<StatusCase>& info) {
  return info.param.result < 0 ? "Minus" + std::to_string(-info.param.result)
                               : std::to_string(info.param.result);
}

void PrintTo(const StatusCase& row, std::ostream* out) { *out << row.result; }

class OpenStatusTest : public CommandHandlingTest,
                       public testing::WithParamInterface<StatusCase> {};

TEST_P(OpenStatusTest, OpenResultBecomesStatus) {
  world.prepare = [](FakePort& port) { port.openResult = GetParam().result; };
  EXPECT_EQ(Packed(GetParam().reply), Answer(kOpenA));
}

INSTANTIATE_TEST_SUITE_P(AllRows, OpenStatusTest,
                         testing::Values(StatusCase{0, "0009 01 02 0001 41 0000"},
                                         StatusCase{-1, "0009 01 02 0001 41 0002"},
                                         StatusCase{-2, "0009 01 02 0001 41 0004"},
                                         StatusCase{-3, "0009 01 02 0001 41 0003"},
                                         StatusCase{-7, "0009 01 02 0001 41 0000"}),
                         ResultName);

class CloseStatusTest : public CommandHandlingTest,
                        public testing::WithParamInterface<StatusCase> {};

TEST_P(CloseStatusTest, CloseResultBecomesStatus) {
  world.prepare = [](FakePort& port) { port.closeResult = GetParam().result; };
  (void)Answer(kOpenA);
  EXPECT_EQ(Packed(GetParam().reply), Answer(kCloseA));
}

INSTANTIATE_TEST_SUITE_P(AllRows, CloseStatusTest,
                         testing::Values(StatusCase{0, "0009 02 02 0001 41 0000"},
                                         StatusCase{-1, "0009 02 02 0001 41 0005"},
                                         StatusCase{-2, "0009 02 02 0001 41 0000"},
                                         StatusCase{1, "0009 02 02 0001 41 0000"}),
                         ResultName);

TEST_F(CommandHandlingTest, APortWhoseCloseFailsStaysOpen) {
  world.prepare = [](FakePort& port) { port.closeResult = -1; };
  (void)Answer(kOpenA);
  (void)Answer(kCloseA);
  EXPECT_EQ(Packed("0009 01 02 0001 41 0003"), Answer(kOpenA));
}

TEST_F(CommandHandlingTest, ClosingAPortReleasesIt) {
  (void)Answer(kOpenA);
  ASSERT_FALSE(IsReleased(0));
  (void)Answer(kCloseA);
  EXPECT_TRUE(IsReleased(0));
}

TEST_F(CommandHandlingTest, AFailingSecondBlockSkipsTheThirdAndIsLoggedOnce) {
  world.prepare = [](FakePort& port) { port.failingWrite = 1; };
  (void)Answer(kOpenA);
  relay->Sends("0014 04 02 0001 41 03 01 0001 61 01 0001 62 01 0001 63");
  EXPECT_EQ((std::vector<std::string>{"61", "62"}), Port(0).writes);
  EXPECT_EQ(1, world.TimesLogged("1 SerialPortHandler.cpp Serial Device Send Error."));
  EXPECT_EQ(1U, relay->sent.size());
}

TEST_F(CommandHandlingTest, ReceivedDataOfAPortOpenedByIdsCarryTheIds) {
  world.prepare = [](FakePort& port) {
    port.openKind = kOpenedByIds;
    port.vendorId = 1;
    port.productId = 2;
  };
  (void)Answer(kOpenA);
  PortReads(FromHex("0D0A"));
  EXPECT_EQ(Packed("000E 04 01 0001 0002 01 02 0002 0D0A"), relay->sent.back());
}

// A relay that makes its record of a port when the open is answered would lose what came before.
TEST_F(CommandHandlingTest, TheReplyToAnOpenComesBeforeThePortsFirstData) {
  world.prepare = [](FakePort& port) { port.receivesAtOnce = "\r\n"; };
  (void)Answer(kOpenA);
  EXPECT_EQ((std::vector<std::string>{Packed("0009 01 02 0001 41 0000"),
                                      Packed("000D 04 02 0001 41 01 02 0002 0D0A")}),
            relay->sent);
}

TEST_F(CommandHandlingTest, AnOpenPortThatIsOpenedAgainDoesNotBeginToReceiveAgain) {
  world.prepare = [](FakePort& port) { port.receivesAtOnce = "\r\n"; };
  (void)Answer(kOpenA);
  EXPECT_EQ(Packed("0009 01 02 0001 41 0003"), Answer(kOpenA));
  EXPECT_EQ(3U, relay->sent.size());
}

TEST_F(CommandHandlingTest, DataThatComeAfterAFailedOpenAreDropped) {
  world.prepare = [](FakePort& port) { port.openResult = -2; };
  (void)Answer(kOpenA);
  PortReads(FromHex("0D0A"));
  EXPECT_EQ(1U, relay->sent.size());
}

TEST_F(CommandHandlingTest, ACountOf65536BytesLeavesTheBareHeader) {
  (void)Answer(kOpenA);
  PortReads(std::vector<uint8_t>(65536));
  EXPECT_EQ(Packed("0007 04 02 0001 41"), relay->sent.back());
}

TEST_F(CommandHandlingTest, DataOfAClosedPortLeaveAnEntryThatCountsAsNoOpenPort) {
  (void)Answer(kOpenA);
  (void)Answer(kCloseA);
  PortReads(FromHex("61"));
  PortReads(FromHex("61"));
  relay->Sends("000C 04 02 0001 41 01 01 0001 61");
  EXPECT_EQ(2U, relay->sent.size()) << "the answers to the open and the close";
  EXPECT_EQ(Packed("0009 02 02 0001 41 0002"), Answer(kCloseA));
  EXPECT_EQ(Packed("0009 01 02 0001 41 0000"), Answer(kOpenA));
}

TEST_F(CommandHandlingTest, ACommandIsHandledWhileAPortsDataAreBeingHandled) {
  (void)Answer(kOpenA);
  relay->whenSending = [this] {
    auto command = std::async(std::launch::async,
                              [this] { relay->Sends("000C 04 02 0001 41 01 01 0001 62"); });
    EXPECT_EQ(std::future_status::ready, command.wait_for(std::chrono::seconds(20)));
  };
  PortReads(FromHex("61"));
  EXPECT_EQ(std::vector<std::string>{"62"}, Port(0).writes);
}

TEST_F(CommandHandlingTest, WhatTheRelayConnectionTellsWaitsForTheCommandThatIsBeingHandled) {
  std::vector<std::future<void>> others;
  std::atomic<bool> hasBegun{false};
  relay->whenSending = [&] {
    if (hasBegun.exchange(true)) {
      return;  // the answer to the close
    }
    others.push_back(std::async(std::launch::async, [this] { relay->Sends(kCloseA); }));
    others.push_back(std::async(std::launch::async, [this] {
      (void)relay->callbacks.onError("", -1, relay->callbacks.context);
    }));
    for (const auto& other : others) {
      EXPECT_EQ(std::future_status::timeout, other.wait_for(std::chrono::milliseconds(50)));
    }
  };
  relay->Sends(kOpenA);
  for (const auto& other : others) {
    EXPECT_EQ(std::future_status::ready, other.wait_for(std::chrono::seconds(20)));
  }
  EXPECT_EQ(Packed("0009 02 02 0001 41 0000"), relay->sent.back());
}

TEST_F(CommandHandlingTest, TheSerialEventHookOnlyWaitsForItsTurn) {
  (void)Answer(kOpenA);
  std::future<void> event;
  relay->whenSending = [&] {
    event =
        std::async(std::launch::async, [this] { world.receive.onEvent(world.receive.context); });
    EXPECT_EQ(std::future_status::timeout, event.wait_for(std::chrono::milliseconds(50)));
  };
  PortReads(FromHex("61"));
  EXPECT_EQ(std::future_status::ready, event.wait_for(std::chrono::seconds(20)));
  EXPECT_EQ(2U, relay->sent.size());
}

}  // namespace
