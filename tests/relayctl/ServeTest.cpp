// SPDX-License-Identifier: MIT
// The played service as a relay service meets it.
#include "relayctl/ServeTest.h"

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <ostream>
#include <set>

#include "relay/Packet.h"

namespace {

namespace fs = std::filesystem;

constexpr const char* kPort0 = "#PhysicalPort0";
constexpr size_t kMegabyte = size_t{1} << 20;

std::string DataForPort0(const std::string& bytes) {
  return relay::DataCommand(relay::Port::FromText(kPort0), {{1, bytes}});
}

// Each byte of a stream that has no period of a power of two.
std::string StreamOf(size_t size) {
  std::string bytes(size, '\0');
  for (size_t i = 0; i < size; ++i) {
    bytes[i] = static_cast<char>(i % 251);
  }
  return bytes;
}

class PlayedPortTest : public ServeTest {
 protected:
  void ServeOpen(const std::string& choice) {
    ASSERT_NO_FATAL_FAILURE(Serve("--port '#PhysicalPort0=" + choice + "'"));
    ASSERT_EQ(Wire(kPort0Opened), relay->Answer(kOpenPort0));
  }

  // The bytes of the notifications that come, until there are so many.
  std::string Receives(size_t size) const {
    std::string bytes;
    while (bytes.size() < size) {
      const std::string packet = relay->NextPacket();
      if (packet.find_first_not_of("0123456789ABCDEF") != std::string::npos) {
        return bytes + " and " + packet;
      }
      const std::vector<uint8_t> raw = WireBytes(packet);
      bytes += relay::ParsePacket({reinterpret_cast<const char*>(raw.data()), raw.size()},
                                  relay::Direction::kFromService)
                   .packet.Data();
    }
    return bytes;
  }

  // Whether the link takes no more and nothing happens any more.
  bool HasHalted() const {
    const uint64_t waits = serve->Waits();
    const bool isFull = !RunShell("ss -Htn sport = 60004 | awk '$3 > 65536'").output.empty();
    return isFull && serve->Waits() == waits;
  }

  size_t Memory() const { return serve->FromStatus("VmRSS"); }  // kB
};

TEST_F(PlayedPortTest, WithoutAnyAllPortsEcho) {
  ASSERT_NO_FATAL_FAILURE(Serve(""));
  EXPECT_EQ(Wire(kPort0Opened), relay->Answer(kOpenPort0));
  EXPECT_EQ(Wire("0017 01 02 000F '#USBSerialPort5' 0000"),
            relay->Answer("0015 01 02 000F '#USBSerialPort5'"));
  EXPECT_EQ(Wire("001C 04 02 000F '#USBSerialPort5' 01 02 0003 4100FF"),
            relay->Answer("001C 04 02 000F '#USBSerialPort5' 01 01 0003 4100FF"));
  ExpectEnd();
}

TEST_F(PlayedPortTest, ThereIsNoOtherPortThanThoseGiven) {
  ASSERT_NO_FATAL_FAILURE(Serve("--port '#USBSerialPort1=echo'"));
  EXPECT_EQ(Wire("0016 01 02 000E '#PhysicalPort0' 0004"), relay->Answer(kOpenPort0));
  EXPECT_EQ(Wire("0017 01 02 000F '#USBSerialPort0' 0002"),
            relay->Answer("0015 01 02 000F '#USBSerialPort0'"));
  EXPECT_EQ(Wire("0017 01 02 000F '#USBSerialPort1' 0000"),
            relay->Answer("0015 01 02 000F '#USBSerialPort1'"));
}

TEST_F(PlayedPortTest, ARelayServiceThatReadsGetsAMegabyteBack) {
  ASSERT_NO_FATAL_FAILURE(ServeOpen("echo"));
  const std::string stream = StreamOf(kMegabyte);
  std::string came;
  for (size_t sent = 0; sent < stream.size(); sent += 65000) {
    relay->SendsBytes(DataForPort0(stream.substr(sent, 65000)));
    came += Receives(std::min<size_t>(65000, stream.size() - sent));
  }
  EXPECT_TRUE(stream == came);
}

// Each open starts it anew.
TEST_F(PlayedPortTest, AProgramIsTheDevice) {
  ASSERT_NO_FATAL_FAILURE(ServeOpen("exec:echo ready; exec sed -u s/ping/pong/"));
  for (int round = 0; round < 3; ++round) {
    EXPECT_EQ("ready\n", Receives(6));
    relay->SendsBytes(DataForPort0("ping 1\n"));
    EXPECT_EQ("pong 1\n", Receives(7));
    EXPECT_EQ(Wire(kPort0Closed), relay->Answer(kClosePort0));
    EXPECT_EQ(Wire(kPort0Opened), relay->Answer(kOpenPort0));
  }
}

TEST_F(PlayedPortTest, AProgramThatHasEndedIsASilentLine) {
  ASSERT_NO_FATAL_FAILURE(ServeOpen("exec:echo bye"));
  EXPECT_EQ("bye\n", Receives(4));
  EXPECT_TRUE(serve->Prints("#PhysicalPort0: its program has closed the line"));
  relay->SendsBytes(DataForPort0("nobody is there"));
  EXPECT_EQ(Wire(kFenceReply), relay->Answer(kFence));
}

// At the close it is told, and at the end of all it is killed with those that it has started.
TEST_F(PlayedPortTest, AProgramDoesNotOutliveTheLine) {
  ASSERT_NO_FATAL_FAILURE(
      ServeOpen("exec:trap \"echo told >/tmp/e2e/told\" HUP; "
                "(trap \"\" HUP; exec sleep 1000) & echo $! ready; wait; wait"));
  const std::string said = Receives(8);
  const std::string folder = "/proc/" + said.substr(0, said.find(' '));
  ASSERT_TRUE(fs::exists(folder)) << said;
  EXPECT_EQ(Wire(kPort0Closed), relay->Answer(kClosePort0));
  EXPECT_TRUE(Eventually([] { return workplace::ReadWhole("/tmp/e2e/told") == "told\n"; }));
  ExpectEnd();
  EXPECT_TRUE(Eventually([&] {
    const std::string stat = workplace::ReadWhole(folder + "/stat");
    return stat.empty() || stat.find(") Z ") != std::string::npos;
  }));
}

TEST_F(PlayedPortTest, APseudoTerminalIsTheLine) {
  ASSERT_NO_FATAL_FAILURE(Serve(std::string("--port '#PhysicalPort0=pty:") + kLink + "'"));
  ASSERT_TRUE(serve->Prints(std::string("#PhysicalPort0 is ") + kLink + " -> /dev/pts/"));
  {
    const PtyProgram program;
    EXPECT_TRUE(program.Writes("before the open"));
    EXPECT_EQ(Wire(kPort0Opened), relay->Answer(kOpenPort0));
    EXPECT_TRUE(program.Writes("from the device"));
    EXPECT_EQ("from the device", Receives(15));
    relay->SendsBytes(DataForPort0("to the device"));
    EXPECT_EQ("to the device", program.Reads(13));
    EXPECT_TRUE(program.Writes("its last words"));
  }
  EXPECT_EQ("its last words", Receives(14));
  relay->SendsBytes(DataForPort0(StreamOf(65000)));  // to nobody
  EXPECT_EQ(Wire(kFenceReply), relay->Answer(kFence));
  ExpectEnd();
  EXPECT_FALSE(fs::is_symlink(kLink));
}

// Whoever waits for that then uses the devices, the signals and the keys.
TEST_F(PlayedPortTest, ToldLastIsThatItListens) {
  ASSERT_NO_FATAL_FAILURE(Serve(std::string("--port '#PhysicalPort0=pty:") + kLink + "'"));
  const std::string told = serve->Output();
  EXPECT_LT(told.find(" -> /dev/pts/"), told.find("listening on")) << told;
}

// A line whose flow control says no: the commands behind wait, as they do with the service.
TEST_F(PlayedPortTest, ADeviceThatTakesNothingHoldsUpCommandsAndNotTheEnd) {
  ASSERT_NO_FATAL_FAILURE(ServeOpen(std::string("pty:") + kLink));
  const PtyProgram program;
  const std::string stream = StreamOf(60000);
  relay->SendsBytes(DataForPort0(stream));
  relay->Sends(kFence);
  EXPECT_TRUE(stream.substr(0, 30000) == program.Reads(30000));
  EXPECT_TRUE(stream.substr(30000) == program.Reads(30000));
  EXPECT_EQ(Wire(kFenceReply), relay->NextPacket());
  relay->SendsBytes(DataForPort0(stream));
  relay->Sends(kFence);
  ASSERT_TRUE(Eventually([&] { return !program.Reads(1).empty(); }));
  ExpectEnd();
}

// What a device sends without end waits in front of it.
TEST_F(PlayedPortTest, ARelayServiceThatReadsNothingCostsNoMemoryAndHoldsUpNoEnd) {
  ASSERT_NO_FATAL_FAILURE(ServeOpen("exec:yes"));
  const size_t before = Memory();
  ASSERT_TRUE(Eventually([this] { return HasHalted(); }));
  EXPECT_LE(std::max(Memory(), before) - before, size_t{SPH_MOST_MEMORY}) << "kB";
  ExpectEnd();
}

struct Unanswered {
  const char* name;
  int status;
  const char* command;
  const char* answer;
  const char* after;  // the answer to the same once more
};

void PrintTo(const Unanswered& row, std::ostream* stream) { *stream << row.status; }

class ProvokedStatusTest : public ServeTest, public testing::WithParamInterface<Unanswered> {};

TEST_P(ProvokedStatusTest, IsTheAnswerToOneCommand) {
  ASSERT_NO_FATAL_FAILURE(Serve(""));
  if (GetParam().status == 5) {
    ASSERT_EQ(Wire(kPort0Opened), relay->Answer(kOpenPort0));
  }
  Order("status " + std::to_string(GetParam().status),
        "is answered with status " + std::to_string(GetParam().status));
  EXPECT_EQ(Wire(GetParam().answer), relay->Answer(GetParam().command));
  EXPECT_EQ(Wire(GetParam().after), relay->Answer(GetParam().command));
}

constexpr Unanswered kStatuses[] = {
    {"NoPort", 2, kOpenPort0, "0016 01 02 000E '#PhysicalPort0' 0002", kPort0Opened},
    {"OpenAlready", 3, kOpenPort0, "0016 01 02 000E '#PhysicalPort0' 0003", kPort0Opened},
    {"OpenFailed", 4, kOpenPort0, "0016 01 02 000E '#PhysicalPort0' 0004", kPort0Opened},
    {"CloseFailed", 5, kClosePort0, "0016 02 02 000E '#PhysicalPort0' 0005", kPort0Closed},
};

INSTANTIATE_TEST_SUITE_P(Each, ProvokedStatusTest, testing::ValuesIn(kStatuses),
                         NameOf<Unanswered>);

// By a line and by a signal; the port stays open, and has the new device by itself.
TEST_F(PlayedPortTest, ADeviceGoesAndComesBack) {
  ASSERT_NO_FATAL_FAILURE(ServeOpen("echo"));
  Order("unplug #PhysicalPort0", "#PhysicalPort0: unplugged");
  relay->SendsBytes(DataForPort0("lost"));
  EXPECT_EQ(Wire("0016 01 02 000E '#PhysicalPort0' 0003"), relay->Answer(kOpenPort0));
  serve->Signal(SIGUSR2);
  ASSERT_TRUE(serve->Prints("#PhysicalPort0: plugged in")) << serve->Output();
  relay->SendsBytes(DataForPort0("back"));
  EXPECT_EQ("back", Receives(4));
}

TEST_F(PlayedPortTest, AnOpenPortOpensTheDeviceThatComesBack) {
  ASSERT_NO_FATAL_FAILURE(ServeOpen("exec:echo ready; exec cat"));
  EXPECT_EQ("ready\n", Receives(6));
  Order("unplug", "#PhysicalPort0: unplugged");
  Order("plug", "#PhysicalPort0: plugged in");
  EXPECT_EQ("ready\n", Receives(6));
}

TEST_F(PlayedPortTest, AnOrderThatIsNoneIsTold) {
  ASSERT_NO_FATAL_FAILURE(ServeOpen("echo"));
  Order("jump",
        "relayctl: \"jump\" is none of unplug, plug, cable, status, numbered, "
        "late, never, break, end, reset, away");
  Order("status 1", "relayctl: \"1\" is no status from 2 to 5");
  Order("unplug #USBSerialPort3", "relayctl: #USBSerialPort3 is not served");
  Order("plug 7", "relayctl: 7 is no VID:PID");
  Order("cable now", "relayctl: \"now\" is too much behind cable");
  EXPECT_EQ(Wire(kFenceReply), relay->Answer(kFence));
}

TEST_F(PlayedPortTest, ANotificationComesByIds) {
  ASSERT_NO_FATAL_FAILURE(ServeOpen("echo"));
  Order("numbered 0001:0002 0D 0A", "sent by ids: 0001:0002");
  EXPECT_EQ(Wire("000E 04 01 0001 0002 01 02 0002 0D0A"), relay->NextPacket());
  relay->Leaves();
  ASSERT_TRUE(serve->Prints("the link has ended"));
  Order("numbered 0001:0002 0D 0A", "no relay service is there");
}

// What is sent behind it waits, and so does what the port receives.
TEST_F(PlayedPortTest, AnAnswerComesLate) {
  ASSERT_NO_FATAL_FAILURE(Serve("--port '#PhysicalPort0=exec:echo early; exec cat'"));
  Order("late 0.4", "the next answer comes late");
  EXPECT_GE(TimeOf([this] {
              relay->Sends(kOpenPort0);
              relay->Sends(kFence);
              EXPECT_EQ(Wire(kPort0Opened), relay->NextPacket());
            }),
            std::chrono::milliseconds(400));
  std::set<std::string> rest = {relay->NextPacket(), relay->NextPacket()};
  EXPECT_EQ((std::set<std::string>{Wire("001E 04 02 000E '#PhysicalPort0' 01 02 0006 6561726C790A"),
                                   Wire(kFenceReply)}),
            rest);
}

TEST_F(PlayedPortTest, AnAnswerNeverComes) {
  ASSERT_NO_FATAL_FAILURE(Serve(""));
  Order("never", "the next answer never comes");
  relay->Sends(kOpenPort0);
  EXPECT_EQ(Wire(kFenceReply), relay->Answer(kFence));
  EXPECT_EQ(Wire("0016 01 02 000E '#PhysicalPort0' 0003"), relay->Answer(kOpenPort0));
}

TEST_F(PlayedPortTest, TheLinkBreaksInAPacket) {
  ASSERT_NO_FATAL_FAILURE(ServeOpen("echo"));
  serve->Signal(SIGUSR1);
  ASSERT_TRUE(serve->Prints("the link breaks in the next packet")) << serve->Output();
  EXPECT_EQ("closed after " + Wire(kPort0Closed).substr(0, 22), relay->Answer(kClosePort0));
  EXPECT_TRUE(serve->Prints("a packet of 22 bytes broke off behind 11\n"));
}

TEST_F(PlayedPortTest, TheLinkBreaksBehindSoManyBytes) {
  ASSERT_NO_FATAL_FAILURE(ServeOpen("echo"));
  for (const size_t size : {0U, 1U, 2U, 21U, 22U}) {
    Order("break " + std::to_string(size), "the link breaks in the next packet");
    const std::string whole = Wire("0016 01 02 000E '#PhysicalPort0' 0003");
    const std::string part = whole.substr(0, 2 * size);
    if (size == 22) {
      EXPECT_EQ(whole, relay->Answer(kOpenPort0));
      EXPECT_EQ("closed", relay->NextPacket());
    } else {
      EXPECT_EQ("closed" + (size > 0 ? " after " + part : ""), relay->Answer(kOpenPort0));
    }
    Connect();
    ASSERT_EQ(Wire(kPort0Opened), relay->Answer(kOpenPort0));
  }
}

TEST_F(PlayedPortTest, TheLinkEndsInOrderOrByAReset) {
  ASSERT_NO_FATAL_FAILURE(ServeOpen("echo"));
  for (const char* const ending : {"end", "reset"}) {
    Order(ending, "the link has ended");
    EXPECT_EQ("closed", relay->NextPacket());
    Connect();
    ASSERT_EQ(Wire(kPort0Opened), relay->Answer(kOpenPort0));
  }
}

TEST_F(PlayedPortTest, NobodyListensForATime) {
  ASSERT_NO_FATAL_FAILURE(ServeOpen("echo"));
  Order("away 1000", "nobody listens on 127.0.0.1:60004");
  EXPECT_EQ("closed", relay->NextPacket());
  const Outcome outcome = RunShell("relayctl --patience 0 open '#PhysicalPort0'");
  EXPECT_EQ("relayctl: nothing listens on 127.0.0.1:60004: is the service running?\n",
            outcome.output);
  Order("away 0.1", "nobody listens on 127.0.0.1:60004");
  Connect();
  EXPECT_EQ(Wire(kPort0Opened), relay->Answer(kOpenPort0));
}

// As with the service, whose address somebody has taken while it did not listen.
TEST_F(PlayedPortTest, AnAddressThatIsTakenMeanwhileEndsIt) {
  ASSERT_NO_FATAL_FAILURE(ServeOpen("echo"));
  Order("away 1000", "nobody listens on 127.0.0.1:60004");
  const Background other("relayctl record --listen 60004 -o /dev/null");
  ASSERT_TRUE(other.Prints("waiting for a relay service")) << other.Output();
  Order("away 0", "nobody listens on 127.0.0.1:60004");
  EXPECT_EQ("exit 1", serve->WaitForExit());
  ExpectHas(serve->Output(), "cannot listen on 127.0.0.1:60004: Address already in use");
}

// As with the service: the ports are closed, and who has connected meanwhile is reset.
TEST_F(PlayedPortTest, TheNextRelayServiceStartsAnew) {
  ASSERT_NO_FATAL_FAILURE(ServeOpen("echo"));
  Relay waiting;
  ASSERT_TRUE(waiting.IsConnected());
  relay->Leaves();
  EXPECT_EQ("closed", waiting.NextPacket());
  Connect();
  EXPECT_EQ(Wire("0016 02 02 000E '#PhysicalPort0' 0002"), relay->Answer(kClosePort0));
}

TEST_F(PlayedPortTest, ALengthOf2EndsTheLink) {
  ASSERT_NO_FATAL_FAILURE(ServeOpen("echo"));
  relay->Sends("0002");
  EXPECT_EQ("closed", relay->NextPacket());
  Connect();
  EXPECT_EQ(Wire(kPort0Opened), relay->Answer(kOpenPort0));
}

// Lengths of 0 and 1 count 65534 and 65535 bytes behind them as one packet.
TEST_F(PlayedPortTest, AMalformedPacketIsRefusedAndNotAnswered) {
  ASSERT_NO_FATAL_FAILURE(ServeOpen("echo"));
  relay->Sends("0007 03 02 0001 'X'");
  relay->SendsBytes(std::string(65536, '\0'));
  relay->SendsBytes(std::string("\0\1", 2) + std::string(65535, '\1'));
  EXPECT_EQ(Wire(kFenceReply), relay->Answer(kFence));
  EXPECT_TRUE(serve->Prints("was refused, and is not answered: 00 07 03 02 00 01 58\n"));
}

TEST_F(PlayedPortTest, IdsOfNoAdapterEndIt) {
  ASSERT_NO_FATAL_FAILURE(Serve(""));
  relay->Sends("0008 02 01 0403 6002");
  EXPECT_EQ("closed", relay->NextPacket());
  EXPECT_EQ("exit 134", serve->WaitForExit());
  ExpectHas(serve->Output(), "relayctl: a close or data for 0403:6002, which no adapter is");
}

TEST_F(PlayedPortTest, APeerFromAnotherAddressEndsIt) {
  ASSERT_NO_FATAL_FAILURE(ServeOpen("echo"));
  Order("end", "the link has ended");
  ASSERT_TRUE(ListensAgain());
  Relay stranger(Relay::kDefaultPort, "127.0.0.2");
  ASSERT_TRUE(stranger.IsConnected());
  EXPECT_EQ("closed", stranger.NextPacket());
  EXPECT_EQ("exit 1", serve->WaitForExit());
  ExpectHas(serve->Output(), "a peer came from 127.0.0.2: it is refused, and the service ends");
}

// With relayctl itself: its port of the service in front of the command, the devices behind it.
TEST_F(ServeTest, ThePortInFrontOfTheCommandIsTheOneToListenOn) {
  serve = std::make_unique<Background>(
      "relayctl --port 7000 serve --port '#PhysicalPort0=exec:cat /etc/passwd; echo over' "
      "</dev/null");
  ASSERT_TRUE(serve->Prints("listening on 127.0.0.1:7000")) << serve->Output();
  const Outcome outcome = RunShell(
      "relayctl -p 7000 pipe '#PhysicalPort0' --until 'over\\n' --exit-after 100 </dev/null");
  EXPECT_EQ(workplace::ReadWhole("/etc/passwd") + "over\n", outcome.output);
}

TEST_F(ServeTest, SaysSoWhenTheAddressIsInUse) {
  ASSERT_NO_FATAL_FAILURE(Serve(""));
  const Outcome second = RunShell("relayctl serve </dev/null");
  EXPECT_EQ(1, second.status);
  ExpectHas(second.output, "cannot listen on 127.0.0.1:60004: Address already in use");
}

}  // namespace
