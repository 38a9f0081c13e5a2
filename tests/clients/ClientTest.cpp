// SPDX-License-Identifier: MIT
// The client against a service that does what the test says.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "relay/Client.h"
#include "relay/Text.h"

namespace {

using relay::FromHex;
using relay::Port;
using relay::ToHex;

constexpr relay::Millis kLimit{30000};

// Listens on a free port; one peer.
class ScriptedService {
 public:
  ScriptedService() {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* const generic = reinterpret_cast<sockaddr*>(&address);
    EXPECT_EQ(0, bind(listening, generic, size));
    EXPECT_EQ(0, listen(listening, 1));
    EXPECT_EQ(0, getsockname(listening, generic, &size));
    tcpPort = ntohs(address.sin_port);
  }
  ~ScriptedService() {
    Leave();
    (void)close(listening);
  }
  ScriptedService(const ScriptedService&) = delete;
  ScriptedService& operator=(const ScriptedService&) = delete;

  uint16_t TcpPort() const { return tcpPort; }
  bool HasPeer() {
    peer = peer == -1 ? accept(listening, nullptr, nullptr) : peer;
    return peer != -1;
  }
  void Leave() { (void)close(std::exchange(peer, -1)); }
  void Reset() {
    const linger atOnce = {1, 0};
    EXPECT_EQ(0, setsockopt(peer, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce));
    Leave();
  }

  void Sends(const char* hex) const {
    const std::string bytes = FromHex(hex);
    EXPECT_EQ(static_cast<ssize_t>(bytes.size()),
              send(peer, bytes.data(), bytes.size(), MSG_NOSIGNAL));
  }

  // The next packet, while the client does its part.
  std::string Packet(relay::Client& client) const {
    relay::PacketCutter cutter;
    std::optional<std::string> packet;
    client.RunUntil(
        [&] {
          char byte = 0;
          while (!packet && recv(peer, &byte, 1, MSG_DONTWAIT) == 1) {
            cutter.Add(std::string_view(&byte, 1));
            packet = cutter.Next();
          }
          return packet.has_value();
        },
        kLimit);
    return ToHex(*packet);
  }

 private:
  int listening = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  int peer = -1;
  uint16_t tcpPort = 0;
};

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

  ScriptedService service;
  relay::Client client;
};

TEST_F(ClientTest, KeepsAPortOpenUntilItLetsGo) {
  const Port port = Port::FromText("X");
  client.KeepOpen(port);
  client.Start();
  for (int link = 0; link < 2; ++link) {
    Link();
    EXPECT_EQ("00070102000158", service.Packet(client));
    service.Sends("0009 01 02 0001 58 0000");
    client.RunUntil([&] { return client.IsOpen(port); }, kLimit);
    if (link == 0) {
      service.Leave();
      client.RunUntil([&] { return !client.IsOpen(port); }, kLimit);
    }
  }
  client.LetGo(port);
  EXPECT_EQ("00070202000158", service.Packet(client));
  EXPECT_FALSE(client.IsOpen(port));
  service.Leave();
  client.RunUntil([this] { return !client.IsConnected(); }, kLimit);
  Link();
  client.Close(Port::FromText("Y"));  // the first of this link: the port is not opened any more
  EXPECT_EQ("00070202000159", service.Packet(client));
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

}  // namespace
