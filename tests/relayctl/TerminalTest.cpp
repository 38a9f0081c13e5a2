// SPDX-License-Identifier: MIT
// relayctl terminal as a person uses it: keys are typed into a terminal window, and its screen is
// read.
#include <csignal>
#include <filesystem>
#include <ostream>

#include "relayctl/RelayctlTest.h"
#include "relayctl/TmuxWindow.h"

namespace {

class TerminalTest : public RelayctlTest {
 protected:
  // Starts the terminal behind a shell that leaves its process number.
  void StartTerminal(const std::string& options = "") {
    device = std::make_unique<Device>();
    StartListening();
    before = window.Settings();
    ASSERT_TRUE(before.find(" echo ") != std::string::npos) << before;
    window.Runs("sh -c 'echo $$ >/tmp/e2e/pid; exec relayctl terminal \"#PhysicalPort0\" " +
                options + "'");
    ASSERT_TRUE(window.Shows("[#PhysicalPort0: open]")) << window.Screen();
    ASSERT_NE(before, window.Settings());
  }

  void ExpectRestored() const {
    EXPECT_TRUE(Becomes([this] { return window.Settings() == before; })) << before << "---\n"
                                                                         << window.Settings();
  }

  static void Signal(int number) {
    (void)kill(std::stoi("0" + workplace::ReadWhole("/tmp/e2e/pid")), number);
  }

  const TmuxWindow window;
  std::string before;  // the window's settings
};

TEST_F(TerminalTest, SendsWhatIsTypedAndShowsWhatComes) {
  ASSERT_NO_FATAL_FAILURE(StartTerminal());
  window.Types("*IDN?");
  window.Presses("Enter");
  EXPECT_EQ("*IDN?\r", device->Reads(6));
  EXPECT_TRUE(device->Sends("M10\r\nready\n"));
  EXPECT_TRUE(window.Shows("\nM10\nready\n")) << window.Screen();
  window.Presses("C-c");
  EXPECT_EQ("\x03", device->Reads(1));
  window.Presses("C-]");
  window.Presses("q");
  EXPECT_TRUE(window.Shows("[left #PhysicalPort0: 11 bytes received, 7 sent]")) << window.Screen();
  EXPECT_TRUE(window.ShowsPrompt()) << window.Screen();
  ExpectRestored();
}

TEST_F(TerminalTest, HelpShowsItsKeys) {
  ASSERT_NO_FATAL_FAILURE(StartTerminal("--escape Ctrl-A"));
  window.Presses("C-a");
  window.Presses("h");
  EXPECT_TRUE(window.Shows("Ctrl-A, and then\n  q       leave\n")) << window.Screen();
  EXPECT_TRUE(window.Shows("  s       send a file\n")) << window.Screen();
  window.Presses("C-a");
  window.Presses("C-a");
  EXPECT_EQ("\x01", device->Reads(1));
  window.Presses("C-a");
  window.Presses("5");
  EXPECT_TRUE(window.Shows("[no such key; Ctrl-A h for help]")) << window.Screen();
}

TEST_F(TerminalTest, ShowsHexAndTextSideBySide) {
  ASSERT_NO_FATAL_FAILURE(StartTerminal());
  window.Presses("C-]");
  window.Presses("x");
  EXPECT_TRUE(window.Shows("[hex on]"));
  EXPECT_TRUE(device->Sends(std::string("A\0\x1B[2J", 6)));
  EXPECT_TRUE(
      window.Shows("< 00000000  41 00 1b 5b 32 4a                                "
                   "|A..[2J|"))
      << window.Screen();
  window.Presses("C-]");
  window.Presses("x");
  EXPECT_TRUE(window.Shows("[hex off]"));
  EXPECT_TRUE(device->Sends("plain\n"));
  EXPECT_TRUE(window.Shows("\nplain\n")) << window.Screen();
}

TEST_F(TerminalTest, EchoesAndChangesTheLineEnding) {
  ASSERT_NO_FATAL_FAILURE(StartTerminal("--echo --enter crlf"));
  window.Types("abc");
  window.Presses("Enter");
  EXPECT_EQ("abc\r\n", device->Reads(5));
  EXPECT_TRUE(window.Shows("\nabc\n")) << window.Screen();
  window.Presses("C-]");
  window.Presses("n");
  EXPECT_TRUE(window.Shows("[Enter sends CR]")) << window.Screen();
  window.Presses("C-]");
  window.Presses("e");
  EXPECT_TRUE(window.Shows("[local echo off]")) << window.Screen();
  window.Types("quiet");
  window.Presses("Enter");
  EXPECT_EQ("quiet\r", device->Reads(6));
  window.Presses("C-]");
  window.Presses("i");
  EXPECT_TRUE(window.Shows("[0 bytes received, 11 sent]")) << window.Screen();
  EXPECT_EQ(std::string::npos, window.Screen().find("\nquiet"));
}

TEST_F(TerminalTest, SendsAFileAndTellsHowFarItIs) {
  ASSERT_NO_FATAL_FAILURE(StartTerminal());
  std::string bytes;
  for (unsigned i = 0; bytes.size() < 200000; ++i) {
    bytes += static_cast<char>(i * 5 + i / 256);
  }
  workplace::WriteWhole("/tmp/e2e/upload", bytes);
  window.Presses("C-]");
  window.Presses("s");
  EXPECT_TRUE(window.Shows("file to send:")) << window.Screen();
  window.Runs("/tmp/e2e/uploax");
  EXPECT_TRUE(window.Shows("No such file or directory]")) << window.Screen();
  window.Presses("C-]");
  window.Presses("s");
  window.Types("/tmp/e2e/uploax");
  window.Presses("BSpace");
  window.Runs("d");
  EXPECT_TRUE(bytes.substr(0, 50000) == device->Reads(50000));
  EXPECT_TRUE(window.Shows("upload: ")) << window.Screen();
  EXPECT_TRUE(window.Shows(" left")) << window.Screen();  // the device reads no more for a while
  EXPECT_TRUE(bytes.substr(50000) == device->Reads(150000));
  EXPECT_TRUE(window.Shows("upload: 200000 of 200000 bytes, 100 %, ")) << window.Screen();
  EXPECT_TRUE(window.Shows("[sent]")) << window.Screen();
  window.Types("on");
  EXPECT_EQ("on", device->Reads(2));
}

TEST_F(TerminalTest, AFilesNameCanBeTypedAhead) {
  ASSERT_NO_FATAL_FAILURE(StartTerminal());
  workplace::WriteWhole("/tmp/e2e/upload", "bytes");
  window.Types("\x1Ds/tmp/e2e/upload\r");
  EXPECT_TRUE(window.Shows("[sent]")) << window.Screen();
  EXPECT_EQ("bytes", device->Reads(5));
}

TEST_F(TerminalTest, AFileCanBeGivenUp) {
  ASSERT_NO_FATAL_FAILURE(StartTerminal());
  workplace::WriteWhole("/tmp/e2e/upload", std::string(1000000, 'x'));
  window.Presses("C-]");
  window.Presses("s");
  window.Runs("/tmp/e2e/upload");
  EXPECT_TRUE(window.Shows(" left")) << window.Screen();
  window.Presses("C-c");
  EXPECT_TRUE(window.Shows("[given up; what is on its way is still sent]")) << window.Screen();
  std::string rest;
  window.Types("Z");
  EXPECT_TRUE(Becomes([&] {
    rest += device->ReadsWaiting();
    return rest.ends_with('Z');
  }));
  EXPECT_LT(rest.size(), 500000u);
}

TEST_F(TerminalTest, WaitsForTheServiceAndOpensThePortAgain) {
  ASSERT_NO_FATAL_FAILURE(StartTerminal());
  service->Signal(SIGKILL);
  ASSERT_EQ("signal 9", service->WaitForExit());
  EXPECT_TRUE(window.Shows("waiting for the service on 127.0.0.1:60004")) << window.Screen();
  window.Types("x");
  EXPECT_TRUE(window.Shows("[not sent: the port is not open]")) << window.Screen();
  StartListening(2);
  EXPECT_TRUE(Becomes([this] {
    const std::string screen = window.Screen();
    return screen.rfind(": open]") > screen.find("[not sent");
  })) << window.Screen();
  window.Types("y");
  EXPECT_EQ("y", device->Reads(1));
}

TEST_F(TerminalTest, TellsThatAnotherPeerHoldsTheLink) {
  StartLinked();
  window.Runs("relayctl terminal '#PhysicalPort0'");
  EXPECT_TRUE(window.Shows("[no answer from 127.0.0.1:60004 yet: another peer holds the link: "))
      << window.Screen();
}

TEST_F(TerminalTest, StopsAndContinuesAsAJob) {
  ASSERT_NO_FATAL_FAILURE(StartTerminal());
  for (int round = 0; round < 2; ++round) {
    if (round == 0) {
      window.Presses("C-]");
      window.Presses("z");
    } else {
      Signal(SIGTSTP);
    }
    EXPECT_TRUE(window.Shows("Stopped")) << window.Screen();
    EXPECT_TRUE(window.ShowsPrompt()) << window.Screen();
    ExpectRestored();
    window.Runs("clear; fg");
    EXPECT_TRUE(Becomes([&] { return window.Settings() != before; }));
    window.Types("on");
    EXPECT_EQ("on", device->Reads(2));
  }
  window.Presses("C-]");
  window.Presses("q");
  EXPECT_TRUE(window.ShowsPrompt()) << window.Screen();
  ExpectRestored();
}

struct End {
  const char* name;
  int signal;
  const char* status;  // as the shell tells it
};

void PrintTo(const End& end, std::ostream* stream) { *stream << end.status; }

class TerminalEndTest : public TerminalTest, public testing::WithParamInterface<End> {};

TEST_P(TerminalEndTest, RestoresTheTerminal) {
  ASSERT_NO_FATAL_FAILURE(StartTerminal());
  Signal(GetParam().signal);
  ExpectRestored();
  EXPECT_TRUE(window.ShowsPrompt()) << window.Screen();
  window.Runs("echo status $?");
  EXPECT_TRUE(window.Shows(std::string("\nstatus ") + GetParam().status)) << window.Screen();
}

INSTANTIATE_TEST_SUITE_P(By, TerminalEndTest,
                         testing::Values(End{"Interrupt", SIGINT, "130"},
                                         End{"Terminate", SIGTERM, "143"},
                                         End{"HangUp", SIGHUP, "129"}, End{"Quit", SIGQUIT, "131"},
                                         End{"Kill", SIGKILL, "137"}, End{"Abort", SIGABRT, "134"}),
                         NameOf<End>);

TEST_F(TerminalTest, NeedsATerminal) {
  const Outcome outcome = RunShell("relayctl terminal '#PhysicalPort0' </dev/null");
  EXPECT_EQ(2, outcome.status);
  EXPECT_EQ("relayctl: this needs a terminal; see pipe for scripts\n", outcome.output);
}

TEST_F(TerminalTest, RefusesAKeyThatIsNoControlKey) {
  const Outcome outcome = RunShell("relayctl terminal '#PhysicalPort0' --escape a </dev/null");
  EXPECT_EQ(2, outcome.status);
  EXPECT_EQ("relayctl: --escape a: not a control key; try Ctrl-A\n", outcome.output);
}

}  // namespace
