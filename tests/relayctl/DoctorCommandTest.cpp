// SPDX-License-Identifier: MIT
// What doctor says of a service that runs.
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <memory>
#include <regex>
#include <stop_token>
#include <thread>
#include <utility>

#include "relayctl/RelayctlTest.h"

namespace {

void ExpectHas(const std::string& text, const std::string& part) {
  EXPECT_NE(std::string::npos, text.find(part)) << "not there: " << part << "\nin:\n" << text;
}

class DoctorCommandTest : public RelayctlTest {
 protected:
  // A service that sees a /tmp of its own, with a configuration in it.
  void StartInItsOwnTmp() {
    const std::string program = std::filesystem::read_symlink("/proc/self/exe").parent_path();
    workplace::WriteWhole("/tmp/e2e/start", R"(set -e
mkdir /dev/shm/tmp
for top in /tmp/*; do
  mkdir "/dev/shm/tmp/${top##*/}"
  mount --rbind "$top" "/dev/shm/tmp/${top##*/}"
done
mount --rbind /dev/shm/tmp /tmp
mkdir /tmp/deviceinfo.txt
printf '[connect]\nport = 60123\n[#USBSerialPort3]\n' >/tmp/own.conf
export VOST_CONFIG=/tmp/own.conf KXLOGGER_FILE=/tmp/own.log
exec )" + Quoted(program + "/SerialPortHandler"));
    own = std::make_unique<Background>("unshare --mount sh /tmp/e2e/start");
    ASSERT_TRUE(own->Prints("[LISTEN]IP:127.0.0.1(PORT:60123)")) << own->Output();
  }

  std::unique_ptr<Background> own;
};

TEST_F(DoctorCommandTest, LooksAtWhatTheServiceSees) {
  StartInItsOwnTmp();
  const std::string root = "/proc/" + std::to_string(own->Pid()) + "/root";
  const Outcome outcome = RunShell("relayctl doctor");
  ExpectHas(outcome.output, "configuration  " + root + "/tmp/own.conf\n");
  ExpectHas(outcome.output, "relay port     60123\n");
  ExpectHas(outcome.output, "log file       /tmp/own.log\n");
  ExpectHas(outcome.output, "ok             the service listens on 127.0.0.1:60123\n");
  ExpectHas(outcome.output, "fault          " + root + "/tmp/deviceinfo.txt is no plain file");
  ExpectHas(outcome.output, "\n#USBSerialPort3\n");
  EXPECT_EQ(std::string::npos, outcome.output.find("PhysicalPort0")) << outcome.output;
  EXPECT_EQ("#USBSerialPort3\n", RunShell("relayctl suggest --configured").output);
}

TEST_F(DoctorCommandTest, CallsAFileThatBothSeeByItsOwnName) {
  StartListening();
  std::filesystem::create_directory("/tmp/deviceinfo.txt");
  const Outcome outcome = RunShell("env -u VOST_CONFIG relayctl doctor");
  ExpectHas(outcome.output, "configuration  /tmp/e2e/vost.conf\n");
  ExpectHas(outcome.output, "fault          /tmp/deviceinfo.txt is no plain file");
}

// Root without its capabilities may look into no process that has them.
TEST_F(DoctorCommandTest, SaysWhenItMayNotLookIntoTheService) {
  StartInItsOwnTmp();
  std::filesystem::create_directory("/tmp/deviceinfo.txt");
  const Outcome outcome = RunShell("setpriv --bounding-set -all relayctl doctor");
  ExpectHas(outcome.output, "configuration  /tmp/e2e/vost.conf\n");
  ExpectHas(outcome.output,
            "note           the environment and the files of SerialPortHandl "
            "(process " +
                std::to_string(own->Pid()) + ") may not be looked at");
  EXPECT_EQ(std::string::npos, outcome.output.find("deviceinfo.txt")) << outcome.output;
}

TEST_F(DoctorCommandTest, WithoutAServiceTheOwnEnvironmentCounts) {
  configuration.RelayPort("60123");
  const Outcome outcome = RunShell("relayctl doctor");
  ExpectHas(outcome.output, "configuration  /tmp/e2e/vost.conf\n");
  ExpectHas(outcome.output, "fault          nothing listens on 127.0.0.1:60123\n");
  EXPECT_EQ(7, outcome.status);
}

TEST_F(DoctorCommandTest, OfSeveralServicesTheOneOnTheGivenPortCounts) {
  StartListening();
  StartInItsOwnTmp();
  ExpectHas(RunShell("relayctl doctor").output, "configuration  /tmp/e2e/vost.conf\n");
  const std::string second = RunShell("relayctl -p 60123 doctor").output;
  ExpectHas(second, "/root/tmp/own.conf\n");
  ExpectHas(second, "note           there is another service, SerialPortHandl (process " +
                        std::to_string(service->Pid()) + ")");
}

// Where nobody listens, each says so. The relay port as the service takes it from its
// configuration: leading digits, no reserved one, and of a larger number the low 16 bits.
TEST_F(DoctorCommandTest, EachCommandTakesTheConfiguredRelayPort) {
  workplace::WriteWhole(kRecording, "0 > X close\n");
  for (const auto& [text, port] : {std::pair("60123", "60123"),
                                   {"1024", "60004"},
                                   {"125660 or so", "60124"},
                                   {"x", "60004"}}) {
    configuration.RelayPort(text);
    for (const char* const command :
         {"open X", "close X", "write X a", "pipe X", "raw 00", "replay /tmp/e2e/recording"}) {
      const Outcome outcome =
          RunShell(std::string("relayctl --patience 0 ") + command + " </dev/null");
      EXPECT_EQ(std::string("relayctl: nothing listens on 127.0.0.1:") + port +
                    ": is the service running?\n",
                outcome.output)
          << command;
      EXPECT_EQ(3, outcome.status) << command;
    }
  }
}

TEST_F(DoctorCommandTest, AGivenPortCountsAlsoWhenItIsTheUsualOne) {
  configuration.RelayPort("60123");
  EXPECT_EQ("relayctl: nothing listens on 127.0.0.1:60004: is the service running?\n",
            RunShell("relayctl -p 60004 --patience 0 open X").output);
  ExpectHas(RunShell("relayctl -p 60004 doctor").output,
            "fault          nothing listens on 127.0.0.1:60004\n");
}

TEST_F(DoctorCommandTest, TellsWhatTheLibraryComplainsAboutOnceAndLogsNothing) {
  StartListening();
  workplace::WriteWhole(workplace::kConfiguration, "[connect]\nport = 60004\nnonsense\n");
  const std::string log = workplace::ReadWhole(workplace::kLog);
  const Outcome outcome = RunShell("KXLOGGER_FILE=/tmp/e2e/log relayctl doctor");
  ExpectHas(outcome.output,
            "  fault          the configuration counts as empty: /tmp/e2e/vost.conf:3: neither "
            "comment, [section] nor key = value\n"
            "                 -> mend /tmp/e2e/vost.conf\n");
  EXPECT_EQ(outcome.output.find("neither comment"), outcome.output.rfind("neither comment"));
  EXPECT_EQ(7, outcome.status);
  EXPECT_EQ(log, workplace::ReadWhole(workplace::kLog));
}

// What docs/operations.md has under "It runs and does not work".
class HangTest : public RelayctlTest {
 protected:
  // A data command for #PhysicalPort0 with more bytes than the device's buffer holds.
  static std::string LongWrite() {
    const std::string name = "#PhysicalPort0";
    const size_t count = 60000;
    const auto number = [](size_t value) {
      return std::string{static_cast<char>(value >> 8), static_cast<char>(value & 0xFF)};
    };
    return number(2 + 2 + 2 + name.size() + 2 + 2 + count) + "\x04\x02" + number(name.size()) +
           name + "\x01\x01" + number(count) + std::string(count, 'x');
  }

  // The device takes no more, in the middle of a write.
  void StickWrite() {
    StartWithOpenPort();
    relay->SendsBytes(LongWrite());
    ASSERT_TRUE(Eventually([this] { return IsWriting() && service->IsIdle(); }));
  }

  // The main thread and the port's never write to the terminal.
  bool IsWriting() const {
    for (const auto& thread : std::filesystem::directory_iterator(Process() + "/task")) {
      if (workplace::ReadWhole(thread.path() / "syscall").starts_with("1 ")) {
        return true;
      }
    }
    return false;
  }

  void StopService() {
    service->Signal(SIGSTOP);
    ASSERT_TRUE(Eventually([this] {
      return workplace::ReadWhole(Process() + "/stat").find(") T ") != std::string::npos;
    }));
  }

  std::string Process() const { return "/proc/" + std::to_string(service->Pid()); }

  // Doctor's words; its status must be `status`.
  // How long it has looked depends on the machine: "N s".
  std::string Doctor(int status, const std::string& prefix = "") {
    const Outcome outcome = RunShell(prefix + "relayctl doctor");
    EXPECT_EQ(status, outcome.status) << outcome.output;
    return std::regex_replace(outcome.output, std::regex("[0-9]+\\.[0-9] s"), "N s");
  }
};

void ExpectHasNot(const std::string& text, const std::string& part) {
  EXPECT_EQ(std::string::npos, text.find(part)) << "there: " << part << "\nin:\n" << text;
}

TEST_F(HangTest, AServiceThatWorksHasNoFault) {
  StartWithOpenPort();
  const std::string said = Doctor(0);
  ExpectHas(said, "ok             the service listens on 127.0.0.1:60004\n");
  ExpectHasNot(said, "hangs");
  ExpectHasNot(said, "unread");
}

TEST_F(HangTest, NamesThePortWhoseWriteIsStuckAndWhatWaitsBehindIt) {
  StickWrite();
  relay->Sends(kFence);
  const std::string said = Doctor(7);
  ExpectHas(said, "fault          the write to " + device->Node() +
                      " (#PhysicalPort0) has not moved for N s");
  ExpectHas(said, ": the device takes no bytes (thread ");
  ExpectHas(said, "fault          7 bytes of RelayctlDoctorT (process " + std::to_string(getpid()) +
                      ") wait to be read, and none was in N s");
  ExpectHas(said, ": the service hangs\n");
}

TEST_F(HangTest, NamesThePeerThatHasLeft) {
  StickWrite();
  relay->Sends(kFence);
  relay->Leaves();
  const std::string said = Doctor(7);
  ExpectHas(said, "fault          the peer has left, which the service has not noticed for N s");
  ExpectHas(said, "; 7 bytes of it wait to be read, and none was in N s");
}

// The far end reads 16 kB a second; a pseudo-terminal takes more in steps of 4 kB.
TEST_F(HangTest, ALineThatMovesIsNoFault) {
  StickWrite();
  for (int packet = 0; packet < 4; ++packet) {
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

TEST_F(HangTest, WithoutRightsSaysThatThePortCannotBeNamed) {
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
  StickWrite();
  const std::string node = device->Node();
  device->Unplug();
  ASSERT_TRUE(Eventually([this] { return !service->IsIdle(); }));
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
  ExpectHas(Doctor(7), "fault          RelayctlDoctorT (process " + std::to_string(getpid()) +
                           ") is connected and has not been accepted for N s");
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
