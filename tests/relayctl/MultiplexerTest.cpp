// SPDX-License-Identifier: MIT
// Whose command, whose answer, whose data, when several peers are on the service's one link.
#include <gtest/gtest.h>

#include <random>
#include <stdexcept>

#include "e2e/support/Wire.h"
#include "relayctl/SharedLink.h"

namespace {

TEST(MultiplexerTest, EachPeerSeesTheServiceAsIfItWereAlone) {
  for (unsigned seed = 1; seed <= 3000; ++seed) {
    std::mt19937 random(seed);
    std::string text(20 + random() % 200, '\0');
    for (char& what : text) {
      what = static_cast<char>(random());
    }
    SharedLink([seed](bool holds, const char* rule) {
      if (!holds) {
        throw std::logic_error("broken rule, seed " + std::to_string(seed) + ": " + rule);
      }
    }).Play(text, true);
  }
}

// Two peers, and a service in the test's hands.
class SharedStatusTest : public testing::Test {
 protected:
  SharedStatusTest() {
    multiplexer.Join(1, Multiplexer::Role::kTakesPart);
    multiplexer.Join(2, Multiplexer::Role::kTakesPart);
  }

  void Take(Multiplexer::Peer peer, const std::string& text) {
    const std::vector<uint8_t> bytes = WireBytes(text);
    ASSERT_TRUE(multiplexer.Take(peer, std::string(bytes.begin(), bytes.end())));
  }

  // What comes of the service's next packet: to whom, and what.
  std::string Give(const std::string& text) {
    const std::vector<uint8_t> bytes = WireBytes(text);
    told.clear();
    multiplexer.Give(std::string(bytes.begin(), bytes.end()));
    return told;
  }

  std::string sent;  // to the service
  std::string told;
  Multiplexer multiplexer{{[this](std::string_view packet) { sent += HexOf(std::string(packet)); },
                           [this](Multiplexer::Peer peer, std::string_view packet) {
                             told += std::to_string(peer) + " " + HexOf(std::string(packet));
                           }}};
};

constexpr const char* kOpenX = "0007 01 02 0001 'X'";
constexpr const char* kCloseX = "0007 02 02 0001 'X'";

std::string Open(const char* status) { return std::string("0009 01 02 0001 'X' ") + status; }
std::string Close(const char* status) { return std::string("0009 02 02 0001 'X' ") + status; }

// The second one's open waits for the first one's answer, as only that tells what it will get.
TEST_F(SharedStatusTest, AFailureIsToldToWhomeverItMeets) {
  Take(1, kOpenX);
  Take(2, kOpenX);
  EXPECT_EQ(Wire(kOpenX), sent);
  EXPECT_FALSE(multiplexer.MayTake(2));
  EXPECT_EQ("1 " + Wire(Open("0004")), Give(Open("0004")));
  EXPECT_EQ(Wire(kOpenX) + Wire(kOpenX), sent);
  EXPECT_TRUE(multiplexer.MayTake(2));
  EXPECT_EQ("2 " + Wire(Open("0000")), Give(Open("0000")));
}

// It stays with the one who could not close it, and the next one has it at once.
TEST_F(SharedStatusTest, APortThatCannotBeClosedStaysOpen) {
  Take(1, kOpenX);
  (void)Give(Open("0000"));
  Take(1, kCloseX);
  EXPECT_EQ("1 " + Wire(Close("0005")), Give(Close("0005")));
  Take(2, kOpenX);
  EXPECT_EQ("2 " + Wire(Open("0000")), Give(Open("0003")));
  EXPECT_EQ("1 0008" + Wire("04 02 0001 'X' 00") + "2 0008" + Wire("04 02 0001 'X' 00"),
            Give("0008 04 02 0001 'X' 00"));
}

// By ids nobody has opened a port.
TEST_F(SharedStatusTest, ANumberedNotificationIsForAll) {
  multiplexer.Join(3, Multiplexer::Role::kWatches);
  const std::string text = "000D 04 01 0403 6001 01 02 0001 'A'";
  EXPECT_EQ("1 " + Wire(text) + "2 " + Wire(text) + "3 " + Wire(text), Give(text));
}

// However often the one asks who has the port already.
TEST_F(SharedStatusTest, WhoeverWaitsIsNextInTurn) {
  Take(1, kOpenX);
  Take(2, kOpenX);
  Take(1, kOpenX);
  EXPECT_EQ(Wire(kOpenX), sent);
  EXPECT_EQ("1 " + Wire(Open("0000")), Give(Open("0000")));
  EXPECT_TRUE(multiplexer.MayTake(2));
  EXPECT_FALSE(multiplexer.MayTake(1));
}

TEST_F(SharedStatusTest, WhoeverLeavesAsksNoMoreAndClosesNothingOfOthers) {
  Take(1, kOpenX);
  (void)Give(Open("0000"));
  Take(1, kOpenX);
  Take(2, kOpenX);
  multiplexer.Leave(2);
  EXPECT_EQ("1 " + Wire(Open("0003")), Give(Open("0003")));
  EXPECT_EQ(Wire(kOpenX) + Wire(kOpenX), sent);
  multiplexer.Join(3, Multiplexer::Role::kTakesPart);
  Take(3, kOpenX);
  (void)Give(Open("0003"));
  sent.clear();
  multiplexer.Leave(1);
  EXPECT_EQ("", sent);
  multiplexer.Leave(3);
  EXPECT_EQ(Wire(kCloseX), sent);
}

// It refuses it, and tells of it in its log.
TEST_F(SharedStatusTest, TheServiceSeesWhatIsMalformed) {
  Take(1, "0007 03 02 0001 'X'");
  EXPECT_EQ(Wire("0007 03 02 0001 'X'"), sent);
  EXPECT_FALSE(multiplexer.HasQuestions());
}

// The service counts from the length field, and takes what follows for the packet's rest.
TEST_F(SharedStatusTest, APacketThatHasNoEndIsNotPassedOn) {
  ASSERT_TRUE(multiplexer.Take(1, ""));
  ASSERT_TRUE(multiplexer.Take(1, std::string(1, '\0')));
  EXPECT_EQ("", sent);
}

}  // namespace
