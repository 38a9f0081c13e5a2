// SPDX-License-Identifier: MIT
// What doctor says of a service that hangs: what docs/operations.md has under "It runs and does not
// work".
#include <unistd.h>

#include <array>
#include <chrono>
#include <filesystem>
#include <regex>
#include <stop_token>
#include <thread>

#include "relayctl/HangingServiceTest.h"

namespace {

class HangTest : public HangingServiceTest {
 protected:
  HangTest() { configuration.Port("#PhysicalPort0", "115200 8 none 1 none"); }

  // Doctor's words; its status must be `status`.
  // How long it has looked depends on the machine: "N s".
  std::string Doctor(int status, const std::string& prefix = "") {
    const Outcome outcome = RunShell(prefix + "relayctl doctor");
    EXPECT_EQ(status, outcome.status) << outcome.output;
    return std::regex_replace(outcome.output, std::regex("[0-9]+\\.[0-9] s"), "N s");
  }
};

TEST_F(HangTest, AServiceThatWorksHasNoFault) {
  StartWithOpenPort();
  const std::string said = Doctor(0);
  ExpectHas(said, "ok             the service listens on 127.0.0.1:60004\n");
  ExpectHasNot(said, "hangs");
  ExpectHasNot(said, "unread");
}

TEST_F(HangTest, NamesThePortWhoseWriteIsStuckAndWhatWaitsBehindIt) {
  StartWithOpenPort();
  StickWrite();
  relay->Sends(kFence);
  const std::string said = Doctor(7);
  ExpectHas(said, "fault          the write to " + device->Node() +
                      " (#PhysicalPort0) has not moved for N s");
  ExpectHas(said, ": the device takes no bytes, or far fewer than its speed allows (thread ");
  ExpectHas(said, "fault          7 bytes of RelayctlDoctorT (process " + std::to_string(getpid()) +
                      ") wait to be read, and none was in N s");
  ExpectHas(said, ": the service hangs\n");
}

TEST_F(HangTest, NamesThePeerThatHasLeft) {
  StartWithOpenPort();
  StickWrite();
  relay->Sends(kFence);
  relay->Leaves();
  const std::string said = Doctor(7);
  ExpectHas(said, "fault          the peer has left, which the service has not noticed for N s");
  ExpectHas(said, "; 7 bytes of it wait to be read, and none was in N s");
}

// The far end reads 16 kB a second; a pseudo-terminal takes more in steps of 4 kB.
TEST_F(HangTest, ALineThatMovesIsNoFault) {
  StartWithOpenPort();
  StickWrite();
  for (int packet = 0; packet < 8; ++packet) {
    relay->SendsBytes(LongWrite());
  }
  const std::jthread reader([this](const std::stop_token& isOver) {
    std::array<char, 1000> bytes;
    while (!isOver.stop_requested()) {
      (void)!read(device->FarEnd(), bytes.data(), bytes.size());
      std::this_thread::sleep_for(std::chrono::milliseconds(60));  // the line's speed
    }
  });
  const auto hasBoth = [&](const std::string& said) {
    return said.find("note           a write to " + device->Node() +
                     " (#PhysicalPort0) is under way, and moves") != std::string::npos &&
           said.find(" wait to be read, and none was in N s") != std::string::npos;
  };
  // A look at the moment between two packets shows less.
  EXPECT_TRUE(Eventually([&] { return HasFailure() || hasBoth(Doctor(0)); }));
}

// Its far end may read so slowly: 4 kB at a time, of which nothing is seen meanwhile.
TEST_F(HangTest, DoesNotTakeASlowPseudoTerminalForAStuckOne) {
  configuration.Port("#PhysicalPort0", "2400 8 none 1 none");
  StartWithOpenPort();
  StickWrite();
  ExpectHas(Doctor(0),
            "note           a write to " + device->Node() +
                " (#PhysicalPort0) has not moved for N s: the line is slow, or the "
                "device takes no bytes\n"
                "                 -> look again: this line does not tell how far it is\n");
}

TEST_F(HangTest, WithoutRightsSaysThatThePortCannotBeNamed) {
  StartWithOpenPort();
  StickWrite();
  relay->Sends(kFence);
  const std::string said = Doctor(0, "setpriv --bounding-set -all ");
  ExpectHas(said,
            "warning        7 bytes of a process that this user may not look into wait to be "
            "read, and none was in N s");
  ExpectHas(said, ": the service hangs, or writes to a slow line\n");
  ExpectHas(said, "the port of a write that is stuck cannot be named\n");
  ExpectHasNot(said, "the write to");
}

TEST_F(HangTest, NamesTheProcessorThatAWriteTakesWhichIsOfferedAgain) {
  StartWithOpenPort();
  StickWrite();
  const std::string node = device->Node();
  device->Unplug();
  ASSERT_TRUE(LogFile::Shows(
      "1 SerialPortHandler SerialPort.cpp 4 Close serial device. [Port /dev/ttyS2]"));
  const std::string said = Doctor(7);
  ExpectHas(said, " ms of a processor in N s");
  ExpectHas(said,
            ", and no command is read: a write is offered again and again; configured and "
            "without a device: #PhysicalPort0\n");
}

TEST_F(HangTest, SaysThatTheServiceIsStopped) {
  StartWithOpenPort();
  StopService();
  relay->Sends(kFence);
  const std::string said = Doctor(7);
  ExpectHas(said, "fault          the service is stopped by a signal, and does nothing\n");
  ExpectHas(said, "-> let it go on: kill -CONT " + std::to_string(service->Pid()) + "\n");
  ExpectHas(said, " bytes of RelayctlDoctorT (process " + std::to_string(getpid()) +
                      ") wait to be read, and none was in N s");
}

TEST_F(HangTest, NamesAPeerThatIsNotAccepted) {
  StartListening();
  StopService();
  relay = std::make_unique<Relay>();
  const Relay second;
  ASSERT_TRUE(second.IsConnected());
  const std::string words = "fault          RelayctlDoctorT (process " + std::to_string(getpid()) +
                            ") is connected and has not been accepted for N s";
  const std::string said = Doctor(7);
  ExpectHas(said, words);
  EXPECT_EQ(said.find(words), said.rfind(words)) << said;
}

TEST_F(HangTest, NamesASecondPeerThatWaits) {
  StartWithOpenPort();
  const Relay second;
  ASSERT_TRUE(second.IsConnected());
  ExpectHas(Doctor(0), "warning        RelayctlDoctorT (process " + std::to_string(getpid()) +
                           ") is connected as well, and waits for ever in the queue\n");
}

TEST_F(HangTest, NamesThePeerThatDoesNotRead) {
  StartWithOpenPort();
  Clog();
  const std::string said = Doctor(7);
  ExpectHas(said, "fault          RelayctlDoctorT (process " + std::to_string(getpid()) +
                      ") does not read: ");
  ExpectHas(said, " bytes wait for it, and it took none in N s");
}

TEST_F(HangTest, NamesTheSearchThatHangs) {
  configuration.Port("#USBSerialPort0", "9600 8 none 1 none");
  UdevDatabase::Does("mkdir /tmp/e2e/first 2>/dev/null && sleep 1000");
  StartLinked();
  relay->Sends("0015 01 02 000F '#USBSerialPort0'");
  ASSERT_TRUE(Eventually([] { return std::filesystem::exists("/tmp/e2e/first"); }));
  std::string said;
  EXPECT_TRUE(Eventually([&] {
    said = RunShell("relayctl doctor").output;
    return said.find("the service waits for udevadm (process ") != std::string::npos;
  })) << said;
  EXPECT_EQ(7, RunShell("relayctl doctor").status);
}

// Then doctor's own search hangs as well.
TEST_F(HangTest, EndsAlsoWhenUdevadmNeverDoes) {
  UdevDatabase::WaitsFor("/tmp/e2e/never");
  StartLinked();
  ExpectHas(Doctor(7),
            "fault          no USB port can be found: \"udevadm info --export-db\" does not end\n");
}

}  // namespace
