// SPDX-License-Identifier: MIT
// relayctl share between the real service and its peers.
#include <sys/stat.h>

#include <algorithm>
#include <csignal>
#include <deque>
#include <map>
#include <ostream>

#include "relay/Writer.h"
#include "relayctl/RelayctlTest.h"

namespace {

constexpr uint16_t kPeers = 60010;
constexpr uint16_t kWatchers = 60011;

relay::ClientOptions At(uint16_t port) {
  relay::ClientOptions options;
  options.port = port;
  return options;
}

class ShareTest : public RelayctlTest {
 protected:
  void Share(const std::string& options = "") {
    share =
        std::make_unique<Background>("relayctl share --listen 60010 --watchers 60011 " + options);
    ASSERT_TRUE(share->Prints("listening for peers on 127.0.0.1:60010")) << share->Output();
  }

  void PlugAndShare(const std::string& options = "") {
    ASSERT_NO_FATAL_FAILURE(PlugAndStart());
    ASSERT_NO_FATAL_FAILURE(Share(options));
  }

  static std::string FromPort0(const std::string& length, const std::string& blockAndBytes) {
    return Wire(length + " 04 02 000E '#PhysicalPort0' 01 02 " + blockAndBytes);
  }

  static bool Listens(uint16_t port) {
    return !RunShell("ss -Hltn sport = " + std::to_string(port)).output.empty();
  }

  std::unique_ptr<Background> share;
};

TEST_F(ShareTest, APortIsOpenAsLongAsOneHasIt) {
  ASSERT_NO_FATAL_FAILURE(PlugAndShare());
  Relay first(kPeers);
  Relay second(kPeers);
  EXPECT_EQ(Wire(kPort0Opened), first.Answer(kOpenPort0));
  EXPECT_EQ(Wire(kPort0Opened), second.Answer(kOpenPort0));
  EXPECT_EQ(Wire("0016 01 02 000E '#PhysicalPort0' 0003"), second.Answer(kOpenPort0));
  ASSERT_TRUE(device->Sends("A"));
  EXPECT_EQ(FromPort0("0019", "0001 'A'"), first.NextPacket());
  EXPECT_EQ(FromPort0("0019", "0001 'A'"), second.NextPacket());
  EXPECT_EQ(Wire(kPort0Closed), first.Answer(kClosePort0));
  EXPECT_EQ(Wire("0016 02 02 000E '#PhysicalPort0' 0002"), first.Answer(kClosePort0));
  ASSERT_TRUE(device->Sends("B"));
  EXPECT_EQ(FromPort0("0019", "0001 'B'"), second.NextPacket());
  EXPECT_EQ(Wire(kPort0Closed), second.Answer(kClosePort0));
  EXPECT_EQ(Wire(kFenceReply), first.Answer(kFence)) << "data of a port that it had let go";
}

TEST_F(ShareTest, WhoeverLeavesLetsGo) {
  ASSERT_NO_FATAL_FAILURE(PlugAndShare());
  auto first = std::make_unique<Relay>(kPeers);
  EXPECT_EQ(Wire(kPort0Opened), first->Answer(kOpenPort0));
  first->Resets();
  ASSERT_TRUE(share->Prints("peer 1 has left"));
  Relay second(kPeers);
  EXPECT_EQ(Wire("0016 02 02 000E '#PhysicalPort0' 0002"), second.Answer(kClosePort0));
  share->Signal(SIGTERM);
  EXPECT_EQ("exit 0", share->WaitForExit()) << share->Output();
}

// As a script does that pipes its commands in.
TEST_F(ShareTest, WhoeverEndsSendingIsAnsweredFirst) {
  ASSERT_NO_FATAL_FAILURE(PlugAndShare());
  Relay peer(kPeers);
  peer.Sends(std::string(kOpenPort0) + kClosePort0);
  peer.EndsSending();
  EXPECT_EQ(Wire(kPort0Opened), peer.NextPacket());
  EXPECT_EQ(Wire(kPort0Closed), peer.NextPacket());
  EXPECT_EQ("closed", peer.NextPacket());
}

TEST_F(ShareTest, AWatcherSeesAndSendsNothing) {
  ASSERT_NO_FATAL_FAILURE(PlugAndShare());
  Relay watcher(kWatchers);
  EXPECT_EQ(Wire(kPort0Opened), watcher.Answer(kOpenPort0));
  EXPECT_EQ(Wire("0009 01 02 0001 'X' 0002"), watcher.Answer("0007 01 02 0001 'X'"));
  ExpectHasNot(Service::Output(), "OPEN[");
  Relay peer(kPeers);
  EXPECT_EQ(Wire(kPort0Opened), peer.Answer(kOpenPort0));
  watcher.Sends("001B 04 02 000E '#PhysicalPort0' 01 01 0003 'no!'");
  EXPECT_EQ(Wire(kFenceReply), watcher.Answer(kFence));
  peer.Sends("001B 04 02 000E '#PhysicalPort0' 01 01 0003 'yes'");
  EXPECT_EQ("yes", device->Reads(3));
  ASSERT_TRUE(device->Sends("A"));
  EXPECT_EQ(FromPort0("0019", "0001 'A'"), peer.NextPacket());
  EXPECT_EQ(FromPort0("0019", "0001 'A'"), watcher.NextPacket());
}

TEST_F(ShareTest, ALengthOf2EndsOnlyWhoHasSentIt) {
  ASSERT_NO_FATAL_FAILURE(PlugAndShare());
  Relay wrong(kPeers);
  Relay right(kPeers);
  wrong.Sends("0002");
  EXPECT_EQ("closed", wrong.NextPacket());
  EXPECT_EQ(Wire(kPort0Opened), right.Answer(kOpenPort0));
}

TEST_F(ShareTest, AllSeeTheEndOfTheLinkAndNobodyListensUntilThereIsANewOne) {
  ASSERT_NO_FATAL_FAILURE(PlugAndShare());
  Relay peer(kPeers);
  Relay watcher(kWatchers);
  EXPECT_EQ(Wire(kPort0Opened), peer.Answer(kOpenPort0));
  EXPECT_EQ(Wire(kPort0Opened), watcher.Answer(kOpenPort0));
  service->Signal(SIGKILL);
  ASSERT_EQ("signal 9", service->WaitForExit());
  EXPECT_EQ("closed", peer.NextPacket());
  EXPECT_EQ("closed", watcher.NextPacket());
  EXPECT_FALSE(Listens(kPeers));
  EXPECT_FALSE(Listens(kWatchers));
  ASSERT_NO_FATAL_FAILURE(StartListening(2));
  ASSERT_TRUE(Eventually([] { return Listens(kWatchers); })) << share->Output();
  EXPECT_EQ(Wire(kPort0Opened), Relay(kPeers).Answer(kOpenPort0));
}

TEST_F(ShareTest, AnotherOnesPortIsNamedWhenTheServiceIsTaken) {
  ASSERT_NO_FATAL_FAILURE(PlugAndStart());
  const Relay holder;
  ASSERT_NO_FATAL_FAILURE(Share());
  const Relay peer(kPeers);
  peer.Sends(kOpenPort0);
  EXPECT_TRUE(share->Prints("no answer from 127.0.0.1:60004 yet: another peer holds the link"))
      << share->Output();
}

TEST_F(ShareTest, APortIsAPseudoTerminalBesideItsPeers) {
  ASSERT_NO_FATAL_FAILURE(
      PlugAndShare(std::string("--mode 600 --pty '#PhysicalPort0=") + kLink + "'"));
  ASSERT_TRUE(share->Prints(std::string(kLink) + " -> /dev/pts/")) << share->Output();
  struct stat node {};
  ASSERT_EQ(0, stat(kLink, &node));
  EXPECT_EQ(mode_t{0600}, node.st_mode & 0777);
  Relay peer(kPeers);
  EXPECT_EQ(Wire(kPort0Opened), peer.Answer(kOpenPort0));
  const PtyProgram program;
  EXPECT_TRUE(program.Writes("by a program"));
  EXPECT_EQ("by a program", device->Reads(12));
  peer.Sends("001A 04 02 000E '#PhysicalPort0' 01 01 0002 'by'");
  EXPECT_EQ("by", device->Reads(2));
  ASSERT_TRUE(device->Sends("A"));
  EXPECT_EQ("A", program.Reads(1));
  EXPECT_EQ(FromPort0("0019", "0001 'A'"), peer.NextPacket());
}

// It loses bytes, as at any serial port, and what it writes still goes out.
TEST_F(ShareTest, AProgramThatDoesNotReadHoldsUpNobody) {
  ASSERT_NO_FATAL_FAILURE(PlugAndShare(std::string("--pty '#PhysicalPort0=") + kLink + "'"));
  ASSERT_TRUE(share->Prints(std::string(kLink) + " -> ")) << share->Output();
  const PtyProgram program;
  EXPECT_TRUE(program.Writes("A"));
  EXPECT_EQ("A", device->Reads(1));
  const std::string bytes(600000, 'x');
  size_t received = 0;
  relay::Events events;
  events.received = [&](const relay::Port&, std::string_view data) { received += data.size(); };
  relay::Client client(At(kPeers), events);
  client.KeepOpen(relay::Port{"#PhysicalPort0"});
  client.Start();
  client.RunUntil([&] { return client.IsOpen(relay::Port{"#PhysicalPort0"}); }, kDeadline);
  EXPECT_TRUE(device->Sends(bytes));
  client.RunUntil([&] { return received == bytes.size(); }, kDeadline);
  EXPECT_TRUE(share->Prints("does not read; what comes is thrown away")) << share->Output();
  EXPECT_TRUE(program.Writes("B"));
  EXPECT_EQ("B", device->Reads(1));
}

// A megabyte each way on all seven ports, of which each echoes, beside two watchers.
class SharedPortsTest : public ShareTest {
 protected:
  static constexpr size_t kMegabyte = size_t{1} << 20;

  SharedPortsTest() : serve(std::make_unique<Background>("relayctl serve --listen 60004")) {
    EXPECT_TRUE(serve->Prints("listening on"));
    for (size_t i = 0; i < kMegabyte; ++i) {
      stream += static_cast<char>(i % 251);
    }
    for (int i = 0; i < 6; ++i) {
      ports.push_back(relay::Port{"#USBSerialPort" + std::to_string(i)});
    }
    ports.push_back(relay::Port{"#PhysicalPort0"});
  }

  // Opens all ports, and keeps what they receive.
  void Open(relay::Client& client, std::map<relay::Port, std::string>& received) const {
    relay::Events events;
    events.received = [&received](const relay::Port& port, std::string_view bytes) {
      received[port] += bytes;
    };
    client.SetEvents(events);
    for (const relay::Port& port : ports) {
      client.KeepOpen(port);
    }
    client.Start();
    client.RunUntil(
        [&] {
          return std::all_of(ports.begin(), ports.end(),
                             [&](const relay::Port& port) { return client.IsOpen(port); });
        },
        kDeadline);
  }

  bool HasAll(std::map<relay::Port, std::string>& received) const {
    return std::all_of(ports.begin(), ports.end(), [&](const relay::Port& port) {
      return received[port].size() >= stream.size();
    });
  }

  std::unique_ptr<Background> serve;
  std::vector<relay::Port> ports;
  std::string stream;
};

TEST_F(SharedPortsTest, NothingIsLostBesideAWatcherThatSleeps) {
  ASSERT_NO_FATAL_FAILURE(Share());
  std::map<relay::Port, std::string> echo;
  std::map<relay::Port, std::string> seen;
  relay::Client client(At(kPeers));
  relay::Client watcher(At(kWatchers));
  const Relay sleeper(kWatchers);
  ASSERT_NO_FATAL_FAILURE(Open(watcher, seen));
  for (const relay::Port& port : ports) {
    sleeper.SendsBytes(relay::OpenCommand(port));
  }
  ASSERT_NO_FATAL_FAILURE(Open(client, echo));
  std::deque<relay::Writer> writers;
  for (const relay::Port& port : ports) {
    writers.emplace_back(client, port).Write(stream);
  }
  client.RunUntil(
      [&] {
        watcher.Process();
        return HasAll(echo);
      },
      kDeadline);
  watcher.RunUntil([&] { return HasAll(seen); }, kDeadline);
  for (const relay::Port& port : ports) {
    EXPECT_TRUE(echo[port] == stream) << port.Text();
    EXPECT_TRUE(seen[port] == stream) << port.Text();
  }
  EXPECT_TRUE(share->Prints("is dropped: it did not read, and 10")) << share->Output();
  EXPECT_LT(share->FromStatus("VmHWM"), size_t{SPH_MOST_MEMORY} * 4) << "kB";
}

}  // namespace
