// SPDX-License-Identifier: MIT
// log, of what the real service writes.
#include <sys/stat.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

#include "e2e/support/LogFile.h"
#include "relayctl/RelayctlTest.h"

namespace {

constexpr const char* kMalformed = "0003 01";
constexpr const char* kCloseAbsentIds = "0008 02 01 DEAD BEEF";

class LogCommandTest : public RelayctlTest {
 protected:
  // The names of all lines that the file has.
  static std::set<std::string> EventsIn(const std::string& file) {
    const Outcome outcome = RunShell("relayctl -j log " + file);
    EXPECT_EQ(0, outcome.status) << outcome.output;
    std::set<std::string> events;
    std::istringstream lines(outcome.output);
    const std::string before = "{\"event\":\"";
    for (std::string line; std::getline(lines, line);) {
      events.insert(line.substr(before.size(), line.find('"', before.size()) - before.size()));
    }
    return events;
  }

  // A journalctl that shows what it was asked for, and then does what it is told.
  static void FakeJournal(const std::string& script) {
    const std::string path = std::string(workplace::kPrograms) + "/journalctl";
    workplace::WriteWhole(
        path, "#!/bin/sh\necho \"$*\" >" + std::string(workplace::kFolder) + "/asked\n" + script);
    std::filesystem::permissions(path, std::filesystem::perms::owner_all);
  }

  static std::string Asked() {
    return workplace::ReadWhole(std::string(workplace::kFolder) + "/asked");
  }
};

TEST_F(LogCommandTest, KnowsEveryLineOfAServiceUpToItsAbort) {
  configuration.Port("#PhysicalPort1", "9600 8 none 1 none");
  device = std::make_unique<Device>();
  StartLinked();
  EXPECT_EQ(Wire(kPort0Opened), relay->Answer(kOpenPort0));
  ASSERT_TRUE(device->Sends("42\n"));
  (void)relay->NextPacket();
  relay->Sends(kMalformed);
  EXPECT_EQ(Wire("0016 01 02 000E '#PhysicalPort1' 0002"),
            relay->Answer("0014 01 02 000E '#PhysicalPort1'"));
  device->Unplug();
  // It is logged after the console's line, by a thread that the abort does not wait for.
  ASSERT_TRUE(LogFile::Shows(
      "1 SerialPortHandler SerialPort.cpp 4 Close serial device. [Port /dev/ttyS2]"));
  relay->Sends(kCloseAbsentIds);
  EXPECT_EQ("signal 6", service->WaitForExit());

  EXPECT_EQ((std::set<std::string>{"started", "open-command", "close-command", "malformed-packet",
                                   "no-device", "device-lost"}),
            EventsIn(workplace::kLog));
  EXPECT_EQ((std::set<std::string>{"listening", "connected", "device-open", "device-closed"}),
            EventsIn(workplace::kOutput));
  EXPECT_EQ((std::set<std::string>{"received", "read-failed", "aborted"}),
            EventsIn(workplace::kErrors));
}

TEST_F(LogCommandTest, ReadsTheFileOfTheServiceThatRuns) {
  StartLinked();
  relay->Sends(kMalformed);
  ASSERT_EQ(Wire(kFenceReply), relay->Answer(kFence));
  const Outcome outcome = RunShell("relayctl log --level error");
  EXPECT_EQ(0, outcome.status);
  ExpectHas(outcome.output, std::string("the service's log file: ") + workplace::kLog);
  ExpectHas(outcome.output,
            ": Command parse failed.\n    a malformed packet was dropped; the "
            "connection stays\n    -> mend the relay service\n");
  ExpectHasNot(outcome.output, "start running");
}

TEST_F(LogCommandTest, TellsOfOneDevice) {
  workplace::WriteWhole(workplace::kOutput, "OPEN[/dev/a]\nOPEN[/dev/b]\n(/dev/a)port close\nx");
  const Outcome outcome =
      RunShell(std::string("relayctl log --brief --device /dev/a <") + workplace::kOutput + " -");
  EXPECT_EQ(
      "- progress standard output: OPEN[/dev/a]\n"
      "- error    standard output: (/dev/a)port close\n",
      outcome.output);
}

TEST_F(LogCommandTest, FollowsAFileWhoseNameAnotherOneTakes) {
  StartLinked();
  Background log(std::string("relayctl log --brief --follow ") + workplace::kLog);
  ASSERT_TRUE(log.Prints("start running."));
  std::filesystem::rename(workplace::kLog, std::string(workplace::kLog) + ".1");
  ASSERT_TRUE(Eventually([&] {
    (void)relay->Answer(kFence);
    return std::filesystem::exists(workplace::kLog);
  }));
  relay->Sends(kMalformed);
  EXPECT_TRUE(log.Prints("Command parse failed."));
  log.Signal(SIGINT);
  EXPECT_EQ("exit 0", log.WaitForExit());
}

// Two lines of two files are never made into one.
TEST_F(LogCommandTest, EndsALineThatARotationLeftUnfinished) {
  workplace::WriteWhole(workplace::kLog, "first\nunfinished");
  Background log(std::string("relayctl log --brief --follow ") + workplace::kLog);
  ASSERT_TRUE(log.Prints("first\n"));
  workplace::WriteWhole(workplace::kLog, "of another file\nand cut");
  ASSERT_TRUE(log.Prints("of another file\n"));
  std::ofstream(workplace::kLog, std::ios::trunc) << "emptied\n";
  ASSERT_TRUE(log.Prints("emptied\n"));
  log.Signal(SIGINT);
  EXPECT_EQ("exit 0", log.WaitForExit());
  EXPECT_EQ(
      "- -        first\n"
      "- -        unfinished\n"
      "- -        of another file\n"
      "- -        and cut\n"
      "- -        emptied\n",
      log.Output());
}

TEST_F(LogCommandTest, FollowsNoFileThatIsNotThere) {
  const Outcome outcome = RunShell("relayctl log --follow /tmp/e2e/none");
  EXPECT_EQ("relayctl: cannot open /tmp/e2e/none: No such file or directory\n", outcome.output);
  EXPECT_EQ(1, outcome.status);
}

TEST_F(LogCommandTest, AnEmptyNameIsNotNone) {
  FakeJournal("");
  const Outcome file = RunShell("relayctl log ''");
  EXPECT_EQ("relayctl: log: FILE: is empty\n", file.output);
  EXPECT_EQ(2, file.status);
  EXPECT_EQ("relayctl: log: --unit: is empty\n", RunShell("relayctl log --unit ''").output);
}

TEST_F(LogCommandTest, EndsAsSoonAsNobodyReadsItsOutput) {
  workplace::WriteWhole(workplace::kLog, "first\n");
  const Outcome outcome = RunShell(std::string("{ timeout 60 relayctl log --brief --follow ") +
                                   workplace::kLog + "; echo status $? >&2; } | head -n 1");
  ExpectHas(outcome.output, "status 141\n");
}

TEST_F(LogCommandTest, EndsByCtrlCWhereAPipeHasNoWriter) {
  ASSERT_EQ(0, mkfifo(workplace::kLog, 0600));
  Background log(std::string("relayctl log ") + workplace::kLog);
  ASSERT_TRUE(Eventually([&log] {
    const std::string stat = workplace::ReadWhole("/proc/" + std::to_string(log.Pid()) + "/stat");
    return stat.find("(sh)") == std::string::npos && stat.find(") S ") != std::string::npos;
  }));
  log.Signal(SIGINT);
  EXPECT_EQ("signal 2", log.WaitForExit());
}

TEST_F(LogCommandTest, CtrlCIsNotForTheToolThatItReads) {
  FakeJournal("[ \"$(ps -o pgid= $$)\" != \"$(ps -o pgid= $PPID)\" ]");
  EXPECT_EQ(0, RunShell("relayctl log --unit other").status);
}

TEST_F(LogCommandTest, ReadsTheJournalWhereNoServiceRuns) {
  FakeJournal(
      "printf 'MESSAGE=OPEN[/dev/ttyS2]\\n_TRANSPORT=stdout\\n__REALTIME_TIMESTAMP=0\\n\\n'\n"
      "printf 'MESSAGE=Stopped.\\nSYSLOG_IDENTIFIER=systemd\\nPRIORITY=4\\n\\n'\n");
  EXPECT_EQ(
      "1970-01-01T00:00:00.000000Z progress standard output: OPEN[/dev/ttyS2]\n"
      "- warning  systemd: Stopped.\n",
      RunShell("relayctl log --brief").output);
  ExpectHas(Asked(), "--unit=serial-port-handler --output=export");
  EXPECT_EQ(0, RunShell("relayctl log --unit other --follow").status);
  ExpectHas(Asked(), "--unit=other ");
  ExpectHas(Asked(), " --follow");
}

TEST_F(LogCommandTest, SaysThatTheJournalHasNothing) {
  FakeJournal("");
  const Outcome outcome = RunShell("relayctl log --unit other");
  EXPECT_EQ(0, outcome.status);
  EXPECT_EQ("relayctl: the journal has nothing of other that this user may read\n", outcome.output);
}

TEST_F(LogCommandTest, SaysThatTheJournalCannotBeRead) {
  FakeJournal("exit 3");
  const Outcome outcome = RunShell("relayctl log --unit other");
  EXPECT_EQ(1, outcome.status);
  EXPECT_EQ("relayctl: journalctl ended with status 3\n", outcome.output);
}

}  // namespace
