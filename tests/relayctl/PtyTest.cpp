// SPDX-License-Identifier: MIT
// relayctl pty: a port of the real service as a pseudo-terminal.
#include <csignal>
#include <filesystem>
#include <ostream>

#include "relayctl/RelayctlTest.h"

namespace {

namespace fs = std::filesystem;

class PtyTest : public RelayctlTest {
 protected:
  void StartAll() {
    PlugAndStart();
    StartPty();
    ASSERT_TRUE(pty->Prints(std::string(kLink) + " -> /dev/pts/")) << pty->Output();
  }

  void ExpectBothWays(const PtyProgram& program) const {
    EXPECT_TRUE(program.Writes("to the device"));
    EXPECT_EQ("to the device", device->Reads(13));
    EXPECT_TRUE(device->Sends("from the device"));
    EXPECT_EQ("from the device", program.Reads(15));
  }

  // Whether bytes from the service wait to be received.
  static bool LinkHoldsBytes() {
    return !RunShell("ss -Htn dport = 60004 | awk '$2 > 0'").output.empty();
  }

  // Whether it sleeps ("S") or is stopped ("T").
  bool IsPtyInState(const std::string& letter) const {
    const std::string stat = workplace::ReadWhole("/proc/" + std::to_string(pty->Pid()) + "/stat");
    return stat.find(") " + letter + " ") != std::string::npos;
  }

  // Waits until relayctl has taken what is on the link, and waits for more.
  void SettlePty() const {
    // In this order: what it has just taken it may still be at.
    ASSERT_TRUE(Eventually([this] { return !LinkHoldsBytes() && IsPtyInState("S"); }));
  }

  // Starts all with a program on it.
  void StartProgram(const std::string& command) {
    device = std::make_unique<Device>();
    StartListening();
    RunProgram(command);
  }

  void RunProgram(const std::string& command, const std::string& options = "") {
    pty = std::make_unique<Background>("relayctl " + options + " pty " + kPort + " --link " +
                                       kLink + " --exec " + Quoted(command));
  }
};

TEST_F(PtyTest, ProgramsComeAndGo) {
  ASSERT_NO_FATAL_FAILURE(StartAll());
  for (int round = 0; round < 5; ++round) {
    ExpectBothWays(PtyProgram());
  }
}

// Each comes while relayctl is still tidying up behind the one before.
TEST_F(PtyTest, LosesNothingOfProgramsThatComeAsOthersGo) {
  ASSERT_NO_FATAL_FAILURE(StartAll());
  const std::string bytes(2000, 'x');
  for (const char byte : bytes) {
    EXPECT_TRUE(PtyProgram().Writes({byte}));
  }
  EXPECT_EQ(bytes, device->Reads(bytes.size()));
}

// What it has asked for in another way is there when relayctl notices that it has come.
TEST_F(PtyTest, LosesNothingThatComesRightBehindAProgram) {
  ASSERT_NO_FATAL_FAILURE(StartAll());
  ASSERT_NO_FATAL_FAILURE(SettlePty());
  pty->Signal(SIGSTOP);
  ASSERT_TRUE(Eventually([this] { return IsPtyInState("T"); }));
  const PtyProgram program;
  ASSERT_TRUE(device->Sends("from the device"));
  ASSERT_TRUE(Eventually(LinkHoldsBytes));
  pty->Signal(SIGCONT);
  EXPECT_EQ("from the device", program.Reads(15));
}

TEST_F(PtyTest, TheServiceLeavesAndComesBackUnderAProgram) {
  ASSERT_NO_FATAL_FAILURE(StartAll());
  const PtyProgram program;
  ExpectBothWays(program);
  for (size_t round = 2; round < 4; ++round) {
    service->Signal(SIGKILL);
    ASSERT_EQ("signal 9", service->WaitForExit());
    ASSERT_NO_FATAL_FAILURE(StartListening(round));
    ASSERT_TRUE(Eventually([&] {
      const std::string text = pty->Output();
      size_t count = 0;
      for (size_t at = 0; (at = text.find(": open\n", at)) != std::string::npos; ++at) {
        ++count;
      }
      return count == round;
    })) << pty->Output();
    ExpectBothWays(program);
  }
}

TEST_F(PtyTest, WaitsForTheService) {
  device = std::make_unique<Device>();
  StartPty();
  ASSERT_TRUE(pty->Prints("waiting for the service on 127.0.0.1:60004")) << pty->Output();
  EXPECT_FALSE(fs::is_symlink(kLink));
  ASSERT_NO_FATAL_FAILURE(StartListening());
  ASSERT_TRUE(Eventually([] { return fs::is_symlink(kLink); }));
  ExpectBothWays(PtyProgram());
}

TEST_F(PtyTest, WaitsForAnotherPeerToLeave) {
  device = std::make_unique<Device>();
  StartLinked();
  StartPty();
  ASSERT_TRUE(
      pty->Prints("relayctl: no answer from 127.0.0.1:60004 yet: another peer holds the link: "))
      << pty->Output();
  relay.reset();
  ASSERT_TRUE(pty->Prints(std::string(kLink) + " -> /dev/pts/")) << pty->Output();
  EXPECT_EQ(std::string::npos, pty->Output().find("reset the link")) << pty->Output();
  ExpectBothWays(PtyProgram());
}

TEST_F(PtyTest, SaysWhyThePortIsNotOpenAndWaitsForIt) {
  StartListening();
  StartPty();
  ASSERT_TRUE(pty->Prints("#PhysicalPort0: status 4")) << pty->Output();
  ASSERT_TRUE(LogFile::Shows("3 SerialPortHandler SerialPortHandler.cpp 4 open command proc.", 3));
  EXPECT_EQ(pty->Output().find("status 4"), pty->Output().rfind("status 4")) << pty->Output();
  device = std::make_unique<Device>();
  ASSERT_TRUE(Eventually([] { return fs::is_symlink(kLink); }));
  ExpectBothWays(PtyProgram());
}

TEST_F(PtyTest, WhatNobodyReadsIsNotKeptForTheNextProgram) {
  ASSERT_NO_FATAL_FAILURE(StartAll());
  { const PtyProgram leaves; }
  ASSERT_TRUE(device->Sends("nobody is here"));
  ASSERT_TRUE(Service::PrintsError("Received("));
  Settle();  // its notification is on the link, in front of what follows
  SettlePty();
  const PtyProgram program;
  ExpectBothWays(program);
}

// Both when no program has ever been there, and when one has left.
TEST_F(PtyTest, DoesNothingWhileNobodyHasItOpen) {
  ASSERT_NO_FATAL_FAILURE(StartAll());
  for (int round = 0; round < 2; ++round) {
    SettlePty();  // what it does about the program that has left is not meant
    const uint64_t time = pty->ProcessorTime();
    const uint64_t waits = pty->Waits();
    (void)Eventually([] { return false; }, std::chrono::milliseconds(500));
    EXPECT_LE(pty->ProcessorTime(), time + 20) << "ms of processor in half a second";
    EXPECT_LE(pty->Waits(), waits + 5);
    ExpectBothWays(PtyProgram());
  }
}

struct End {
  const char* name;
  int signal;
  const char* exit;
};

void PrintTo(const End& end, std::ostream* stream) { *stream << end.exit; }

class PtyEndTest : public PtyTest, public testing::WithParamInterface<End> {};

TEST_P(PtyEndTest, RemovesTheLink) {
  ASSERT_NO_FATAL_FAILURE(StartAll());
  pty->Signal(GetParam().signal);
  EXPECT_EQ(GetParam().exit, pty->WaitForExit());
  EXPECT_TRUE(Eventually([] { return !fs::is_symlink(kLink); }));
}

INSTANTIATE_TEST_SUITE_P(By, PtyEndTest,
                         testing::Values(End{"Interrupt", SIGINT, "exit 0"},
                                         End{"Terminate", SIGTERM, "exit 0"},
                                         End{"HangUp", SIGHUP, "exit 0"},
                                         End{"Quit", SIGQUIT, "exit 0"},
                                         End{"Kill", SIGKILL, "signal 9"}),
                         NameOf<End>);

TEST_F(PtyTest, RunsAProgramAndGivesItsStatus) {
  StartProgram("exec 3<>{}; printf ready >&3; head -c 5 <&3 >/tmp/e2e/got; exit 7");
  EXPECT_EQ("ready", device->Reads(5));
  EXPECT_TRUE(device->Sends("hello"));
  EXPECT_EQ("exit 7", pty->WaitForExit());
  EXPECT_EQ("hello", workplace::ReadWhole("/tmp/e2e/got"));
  EXPECT_EQ(std::string::npos, pty->Output().find("/dev/pts/")) << pty->Output();
  EXPECT_FALSE(fs::is_symlink(kLink));
}

// Another peer holds the port open, as its close would drop what the device has not read.
TEST_F(PtyTest, LeavesOnceTheServiceHasTakenWhatTheProgramWrote) {
  std::string bytes;
  for (unsigned i = 0; bytes.size() < 200000; ++i) {
    bytes += static_cast<char>(i * 5 + i / 256);
  }
  workplace::WriteWhole("/tmp/e2e/upload", bytes);
  ASSERT_NO_FATAL_FAILURE(PlugAndStart());
  const Background share("relayctl share --listen 60010");
  ASSERT_TRUE(share.Prints("listening for peers on")) << share.Output();
  Relay holder(60010);
  ASSERT_EQ(Wire(kPort0Opened), holder.Answer(kOpenPort0));
  RunProgram("cat /tmp/e2e/upload >{}", "--port 60010");
  EXPECT_TRUE(bytes == device->Reads(bytes.size()));
  EXPECT_EQ("exit 0", pty->WaitForExit());
}

TEST_F(PtyTest, AProgramsSignalIsTheStatus) {
  StartProgram("printf ready >{}; kill -USR1 $$");
  EXPECT_EQ("ready", device->Reads(5));
  EXPECT_EQ("exit 138", pty->WaitForExit());
}

TEST_F(PtyTest, WhatEndsItIsPassedOnToTheProgram) {
  StartProgram(
      "trap 'echo told >/tmp/e2e/told; exit' TERM; exec 3<>{}; printf ready >&3; cat <&3 & wait");
  EXPECT_EQ("ready", device->Reads(5));
  pty->Signal(SIGTERM);
  EXPECT_EQ("exit 143", pty->WaitForExit());
  EXPECT_EQ("told\n", workplace::ReadWhole("/tmp/e2e/told"));
}

}  // namespace
