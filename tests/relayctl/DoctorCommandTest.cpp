// SPDX-License-Identifier: MIT
// What doctor says of a service that runs.
#include <filesystem>
#include <memory>
#include <utility>

#include "relayctl/RelayctlTest.h"

namespace {

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

}  // namespace
