// SPDX-License-Identifier: MIT
// The client against a service that does what the test says.
#include <gtest/gtest.h>
#include <poll.h>

#include <vector>

#include "ScriptedService.h"
#include "relay/Client.h"
#include "support/Eventually.h"

namespace {

using relay::Clock;
using relay::Millis;
using relay::Port;

constexpr relay::Millis kLimit{30000};

class ClientTest : public testing::Test {
 protected:
  ClientTest() : client(Options(service.TcpPort())) {}

  static relay::ClientOptions Options(uint16_t tcpPort) {
    relay::ClientOptions options;
    options.port = tcpPort;
    options.reconnect = true;
    options.retryPause = relay::Millis(1);
    return options;
  }

  void Link() {
    client.RunUntil([this] { return service.HasPeer() && client.IsConnected(); }, kLimit);
  }

  // The next packet that the client sends.
  std::string Packet() {
    std::optional<std::string> packet;
    client.RunUntil([&] { return (packet = service.Takes()).has_value(); }, kLimit);
    return *packet;
  }

  ScriptedService service;
  relay::Client client;
};

TEST_F(ClientTest, KeepsAPortOpenUntilItLetsGo) {
  const Port port = Port::FromText("X");
  client.KeepOpen(port);
  client.Start();
  for (int link = 0; link < 2; ++link) {
    Link();
    EXPECT_EQ("00070102000158", Packet());
    service.Sends("0009 01 02 0001 58 0000");
    client.RunUntil([&] { return client.IsOpen(port); }, kLimit);
    if (link == 0) {
      service.Leave();
      client.RunUntil([&] { return !client.IsOpen(port); }, kLimit);
    }
  }
  client.LetGo(port);
  EXPECT_EQ("00070202000158", Packet());
  EXPECT_FALSE(client.IsOpen(port));
  service.Leave();
  client.RunUntil([this] { return !client.IsConnected(); }, kLimit);
  Link();
  client.Close(Port::FromText("Y"));  // the first of this link: the port is not opened any more
  EXPECT_EQ("00070202000159", Packet());
}

TEST_F(ClientTest, AnswersGoToWhoAskedAndDataToEverybody) {
  std::string told;
  relay::Events events;
  events.received = [&](const Port& port, std::string_view data) {
    told += port.Text() + ":" + std::string(data) + " ";
  };
  client.SetEvents(events);
  client.Start();
  Link();
  client.Open(Port::FromText("X"), [&](const relay::Reply& reply) {
    told += "open " + std::to_string(reply.status) + " ";
  });
  client.Close(Port::FromText("X"),
               [&](const relay::Reply& reply) { told += "close " + std::to_string(reply.status); });
  service.Sends(
      "0009 01 02 0001 58 0003  000C 04 02 0001 58 01 02 0001 41  0009 02 02 0001 58 0002");
  client.RunUntil([&] { return told.ends_with("close 2"); }, kLimit);
  EXPECT_EQ("open 3 X:A close 2", told);
}

// The first send is told of it, and nobody after that: the stream then looks as if it had ended.
TEST_F(ClientTest, AResetThatMeetsTheFirstCommandIsNoEndOfALink) {
  std::optional<relay::ErrorKind> told;
  relay::Events events;
  events.disconnected = [&](const relay::Error& error) { told = error.Kind(); };
  client.SetEvents(events);
  client.Start();
  Link();
  service.Reset();
  pollfd reset{client.Descriptor(), 0, 0};
  ASSERT_EQ(1, poll(&reset, 1, -1));
  client.Open(Port::FromText("X"));
  client.RunUntil([&] { return told.has_value(); }, kLimit);
  EXPECT_EQ(relay::ErrorKind::kNotListening, *told);
}

TEST_F(ClientTest, ClosesOnlyWhatMayBeOpen) {
  const Port refused = Port::FromText("X");
  const Port early = Port::FromText("Z");
  client.KeepOpen(refused);
  client.KeepOpen(early);
  bool isAnswered = false;
  relay::Events events;
  events.connected = [&] { EXPECT_FALSE(client.LetGo(early)); };
  events.reply = [&](const relay::Reply&) { isAnswered = true; };
  client.SetEvents(events);
  client.Start();
  Link();
  EXPECT_EQ("00070102000158", Packet());
  service.Sends("0009 01 02 0001 58 0004");
  client.RunUntil([&] { return isAnswered; }, kLimit);
  EXPECT_FALSE(client.LetGo(refused));
  client.Close(Port::FromText("Y"));
  EXPECT_EQ("00070202000159", Packet());
}

TEST_F(ClientTest, RunsForATime) {
  client.Start();
  Link();
  const auto begin = Clock::now();
  EXPECT_FALSE(client.RunFor(Millis(20)));
  EXPECT_LE(Millis(20), Clock::now() - begin);
  EXPECT_TRUE(client.RunFor(Millis::max(), [] { return true; }));
  EXPECT_FALSE(client.RunTo(Clock::time_point::min()));
}

TEST_F(ClientTest, ATimeThatIsOverTakesWhatHasCome) {
  std::string told;
  relay::Events events;
  events.received = [&](const Port&, std::string_view data) { told += data; };
  client.SetEvents(events);
  client.Start();
  Link();
  for (const char* const expected : {"A", "AA"}) {
    service.Sends("000C 04 02 0001 58 01 02 0001 41");
    pollfd come{client.Descriptor(), POLLIN, 0};
    ASSERT_EQ(1, poll(&come, 1, -1));
    EXPECT_TRUE(client.RunFor(Millis(0), [&] { return told == expected; })) << told;
  }
}

TEST_F(ClientTest, RunsNoMoreWhenItIsOver) {
  relay::ClientOptions options = Options(service.TcpPort());
  options.reconnect = false;
  relay::Client once(options);
  EXPECT_THROW(once.RunFor(Millis(0)), relay::Error);  // not started
  once.Start();
  once.RunUntil([this] { return service.HasPeer(); }, kLimit);
  service.Leave();
  EXPECT_THROW(once.RunFor(kLimit), relay::Error);
}

TEST(ClientRetryTest, WaitsLongerEachTimeUntilSomethingComes) {
  ScriptedService service(false);
  relay::ClientOptions options;
  options.port = service.TcpPort();
  options.reconnect = true;
  options.retryPause = Millis(2);
  options.longestPause = Millis(10);
  relay::Client client(options);
  std::vector<Millis> pauses;
  Clock::time_point processBegan = Clock::now();  // the pause begins in it
  Clock::time_point mayTry = processBegan;
  unsigned inVain = 0;
  bool hasReceived = false;
  const auto processUntil = [&](const auto& done) {
    return Eventually([&] {
      processBegan = Clock::now();
      client.Process();
      return done();
    });
  };
  relay::Events events;
  events.retrying = [&](const relay::Retry& retry) {
    EXPECT_LE(mayTry, Clock::now());
    mayTry = processBegan + retry.pause;
    pauses.push_back(retry.pause);
    inVain = retry.triesInVain;
  };
  events.received = [&](const Port&, std::string_view) { hasReceived = true; };
  client.SetEvents(events);
  const auto isLinked = [&] { return service.HasPeer() && client.IsConnected(); };

  client.Start();
  ASSERT_TRUE(processUntil([&] { return pauses.size() == 5; }));
  EXPECT_EQ((std::vector{Millis(2), Millis(4), Millis(8), Millis(10), Millis(10)}), pauses);
  EXPECT_EQ(5U, inVain);

  service.Listen();  // a service that takes links, and does no more
  ASSERT_TRUE(processUntil(isLinked));
  service.Leave();
  ASSERT_TRUE(processUntil([&] { return !client.IsConnected(); }));
  EXPECT_EQ(pauses.size(), inVain);
  EXPECT_EQ(Millis(10), pauses.back());

  ASSERT_TRUE(processUntil(isLinked));
  service.Sends("000C 04 02 0001 58 01 02 0001 41");
  ASSERT_TRUE(processUntil([&] { return hasReceived; }));
  service.Leave();
  ASSERT_TRUE(processUntil([&] { return !client.IsConnected(); }));
  EXPECT_EQ(0U, inVain);
  EXPECT_EQ(Millis(2), pauses.back());
}

TEST(ClientRetryTest, TellsOfNoTryThatIsNotMade) {
  const ScriptedService service(false);
  relay::ClientOptions options;
  options.port = service.TcpPort();
  options.reconnect = true;
  relay::Client client(options);
  bool isTold = false;
  relay::Events events;
  events.disconnected = [&](const relay::Error&) { client.Stop(); };
  events.retrying = [&](const relay::Retry&) { isTold = true; };
  client.SetEvents(events);
  client.Start();
  EXPECT_THROW(client.RunFor(kLimit), relay::Error);
  EXPECT_FALSE(isTold);
}

}  // namespace
