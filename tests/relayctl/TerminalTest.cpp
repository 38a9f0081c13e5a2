// SPDX-License-Identifier: MIT
// relayctl terminal as a person uses it, with the real terminal programs: keys are typed into a
// terminal window, and its screen is read.
#include <csignal>
#include <filesystem>
#include <ostream>

#include "relayctl/RelayctlTest.h"
#include "relayctl/TmuxWindow.h"

namespace {

namespace fs = std::filesystem;

constexpr const char* kOnly = "/tmp/e2e/only";  // stands for all of PATH

struct Known {
  const char* name;
  const char* ready;  // what it shows once it has the port
  std::vector<const char*> leave;
};

void PrintTo(const Known& program, std::ostream* stream) { *stream << program.name; }

const Known kTio = {"tio", "Connected", {"C-t", "q"}};
const Known kPicocom = {"picocom", "Terminal ready", {"C-a", "C-x"}};

class TerminalTest : public RelayctlTest {
 protected:
  // Starts the terminal where nothing but `program` is installed, behind a shell that leaves its
  // process number.
  void StartTerminal(const Known& program) {
    device = std::make_unique<Device>();
    StartListening();
    before = window.Settings();
    ASSERT_TRUE(before.find(" echo ") != std::string::npos) << before;
    fs::create_directory(kOnly);
    fs::create_symlink(std::string("/usr/bin/") + program.name,
                       std::string(kOnly) + "/" + program.name);
    window.Runs(std::string("sh -c 'echo $$ >/tmp/e2e/pid; exec env PATH=") + kOnly + " " +
                workplace::kPrograms + "/relayctl terminal \"#PhysicalPort0\"'");
    ASSERT_TRUE(window.Shows(program.ready)) << window.Screen();
    ASSERT_NE(before, window.Settings());
  }

  void Presses(const std::vector<const char*>& keys) const {
    for (const char* const key : keys) {
      window.Presses(key);
    }
  }

  // The shell has the window again, as it was, and nobody is left of those who had it.
  void ExpectGone(const Known& program, const std::string& status) const {
    EXPECT_TRUE(Eventually([&] { return ProcessesOf(program.name).empty(); }));
    EXPECT_TRUE(Eventually([] { return ProcessesOf("relayctl").empty(); }));
    EXPECT_TRUE(Eventually([this] { return window.Settings() == before; })) << before << "---\n"
                                                                            << window.Settings();
    ExpectStatus(status);
  }

  // The shell has the window again. It may not have prompted yet when the line is typed.
  void ExpectStatus(const std::string& status) const {
    window.Runs("echo status $?");
    EXPECT_TRUE(window.Shows("status " + status + "\nready>")) << window.Screen();
  }

  void ExpectBothWays() {
    window.Types("*IDN?");
    EXPECT_EQ("*IDN?", device->Reads(5));
    EXPECT_TRUE(device->Sends("\r\nM10 ready\r\n"));
    EXPECT_TRUE(window.Shows("\nM10 ready\n")) << window.Screen();
  }

  static void Signal(int number) {
    (void)kill(std::stoi("0" + workplace::ReadWhole("/tmp/e2e/pid")), number);
  }

  static std::vector<pid_t> ProcessesOf(const std::string& name) {
    std::vector<pid_t> found;
    for (const fs::directory_entry& entry : fs::directory_iterator("/proc")) {
      if (workplace::ReadWhole(entry.path() / "comm") == name + "\n") {
        found.push_back(std::stoi(entry.path().filename()));
      }
    }
    return found;
  }

  const TmuxWindow window;
  std::string before;  // the window's settings
};

class TerminalProgramTest : public TerminalTest, public testing::WithParamInterface<Known> {};

TEST_P(TerminalProgramTest, TalksToThePort) {
  ASSERT_NO_FATAL_FAILURE(StartTerminal(GetParam()));
  ExpectBothWays();
  window.Presses("C-c");
  EXPECT_EQ("\x03", device->Reads(1));
  Presses(GetParam().leave);
  ExpectGone(GetParam(), "0");
}

// By itself, without a wish for the port to come back.
TEST_P(TerminalProgramTest, EndsWhenRelayctlIsKilled) {
  ASSERT_NO_FATAL_FAILURE(StartTerminal(GetParam()));
  ExpectBothWays();  // it has the terminal, and will not set it up again behind relayctl's back
  Signal(SIGKILL);
  ExpectGone(GetParam(), "137");
}

TEST_P(TerminalProgramTest, IsToldToEnd) {
  ASSERT_NO_FATAL_FAILURE(StartTerminal(GetParam()));
  Signal(SIGTERM);
  ExpectGone(GetParam(), "143");
}

TEST_P(TerminalProgramTest, LeavesTheTerminalRightWhenItIsKilled) {
  ASSERT_NO_FATAL_FAILURE(StartTerminal(GetParam()));
  const std::vector<pid_t> processes = ProcessesOf(GetParam().name);
  ASSERT_EQ(1u, processes.size());
  (void)kill(processes[0], SIGKILL);
  ExpectGone(GetParam(), "137");
}

// As tio does, and the shell may have taken the terminal back before the last time. It kills
// relayctl as the first thing that it does.
TEST_F(TerminalTest, IsPutRightBehindAProgramThatSetsItWhileItEnds) {
  device = std::make_unique<Device>();
  StartListening();
  before = window.Settings();
  workplace::WriteWhole("/tmp/e2e/slow",
                        "#!/bin/sh\nkill -KILL $PPID\ntrap '' TTOU\nexec <\"$1\"\ncat\n"
                        "sleep 0.2\nexec </dev/tty\nstty raw -echo\n");
  fs::permissions("/tmp/e2e/slow", fs::perms::owner_all);
  window.Runs("relayctl terminal '#PhysicalPort0' --with 'exec /tmp/e2e/slow {}'");
  EXPECT_TRUE(window.Shows("Killed\n")) << window.Screen();
  ExpectGone({"slow", "", {}}, "137");
}

// Who has it then has set it up for himself.
TEST_F(TerminalTest, IsLeftToOthersBehindAProgramThatStays) {
  device = std::make_unique<Device>();
  StartListening();
  before = window.Settings();
  workplace::WriteWhole("/tmp/e2e/stays",
                        "#!/bin/sh\ntrap '' HUP\nstty raw -echo\n: \"$1\"\n"
                        "kill -KILL $PPID\nexec sleep 1000\n");
  fs::permissions("/tmp/e2e/stays", fs::perms::owner_all);
  window.Runs("relayctl terminal '#PhysicalPort0' --with 'exec /tmp/e2e/stays {}'");
  ASSERT_TRUE(Eventually([] { return !ProcessesOf("sleep").empty(); }));
  ASSERT_TRUE(Eventually([this] { return window.Settings() == before; })) << window.Settings();
  ASSERT_EQ(0, RunShell("stty -F " + window.Terminal() + " -echo").status);
  const std::string others = window.Settings();
  ASSERT_FALSE(ProcessesOf("relayctl-will").empty());
  ASSERT_TRUE(Eventually([] { return ProcessesOf("relayctl-will").empty(); }));
  EXPECT_EQ(others, window.Settings());
}

INSTANTIATE_TEST_SUITE_P(With, TerminalProgramTest, testing::Values(kTio, kPicocom), NameOf<Known>);

// Whoever sends them means the program that has the terminal, as the keyboard does.
TEST_F(TerminalTest, LeavesInterruptAndQuitToTheProgram) {
  ASSERT_NO_FATAL_FAILURE(StartTerminal(kPicocom));
  Signal(SIGINT);
  Signal(SIGQUIT);
  ExpectBothWays();
}

TEST_F(TerminalTest, RunsAnotherProgramAndGivesItsStatus) {
  device = std::make_unique<Device>();
  StartListening();
  window.Runs("relayctl terminal '#PhysicalPort0' --with 'printf hello >{}; exit 7'");
  EXPECT_EQ("hello", device->Reads(5));
  EXPECT_TRUE(window.ShowsPrompt()) << window.Screen();
  ExpectStatus("7");
}

TEST_F(TerminalTest, SaysThatThereIsNoProgram) {
  device = std::make_unique<Device>();
  StartListening();
  const Outcome outcome = RunShell(std::string("env PATH=/nowhere ") + workplace::kPrograms +
                                   "/relayctl terminal '#PhysicalPort0' </dev/null");
  EXPECT_EQ(127, outcome.status);
  EXPECT_TRUE(outcome.output.ends_with(
      "relayctl: neither tio nor picocom is installed; --with names another program\n"))
      << outcome.output;
}

TEST_F(TerminalTest, TellsThatAnotherPeerHoldsTheLinkAndIsInterrupted) {
  StartLinked();
  window.Runs("relayctl terminal '#PhysicalPort0'");
  EXPECT_TRUE(window.Shows("no answer from 127.0.0.1:60004 yet: another peer holds the link: "))
      << window.Screen();
  window.Presses("C-c");
  EXPECT_TRUE(window.Shows("^Cready>")) << window.Screen();
  ExpectStatus("130");
}

}  // namespace
