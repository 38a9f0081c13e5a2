// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>
#include <poll.h>
#include <termios.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <system_error>

#include "e2e/support/Workplace.h"
#include "pty/PseudoTerminal.h"
#include "relayctl/PtyProgram.h"
#include "support/Eventually.h"

namespace {

namespace fs = std::filesystem;

termios SettingsOf(const PtyProgram& program) {
  termios settings{};
  EXPECT_EQ(0, tcgetattr(program.Descriptor(), &settings));
  return settings;
}

bool IsReadable(int descriptor) {
  pollfd state = {descriptor, POLLIN, 0};
  return poll(&state, 1, 0) == 1;
}

std::string ReadAll(PseudoTerminal& terminal) {
  std::string all;
  std::array<char, 64> buffer{};
  for (size_t count = 0; (count = terminal.Read(buffer.data(), buffer.size())) > 0;) {
    all.append(buffer.data(), count);
  }
  return all;
}

class PseudoTerminalTest : public testing::Test {
 protected:
  const workplace::Folders folders;
};

TEST_F(PseudoTerminalTest, IsQuietWhileNobodyHasItOpen) {
  PseudoTerminal terminal({kLink, {}});
  EXPECT_FALSE(terminal.InUse());
  EXPECT_FALSE(IsReadable(terminal.Openings()));
}

TEST_F(PseudoTerminalTest, NoticesEachOpeningAndEachLastClosing) {
  PseudoTerminal terminal({kLink, {}});
  for (int round = 0; round < 3; ++round) {
    {
      const PtyProgram program;
      ASSERT_NE(-1, program.Descriptor());
      EXPECT_TRUE(IsReadable(terminal.Openings()));
      EXPECT_TRUE(terminal.Look());
      EXPECT_TRUE(terminal.InUse());
      const PtyProgram second;
      EXPECT_TRUE(program.Writes("hello"));
      EXPECT_TRUE(Eventually([&] { return ReadAll(terminal) == "hello"; }));
      EXPECT_TRUE(terminal.InUse());
    }
    EXPECT_EQ("", ReadAll(terminal));
    EXPECT_FALSE(terminal.InUse());
    EXPECT_FALSE(IsReadable(terminal.Openings()));
  }
}

TEST_F(PseudoTerminalTest, DeliversTheLastBytesOfAProgramThatHasLeft) {
  PseudoTerminal terminal({kLink, {}});
  {
    const PtyProgram program;
    EXPECT_TRUE(program.Writes("bye"));
  }
  (void)terminal.Look();
  std::string all;
  EXPECT_TRUE(Eventually([&] { return (all += ReadAll(terminal)) == "bye"; })) << all;
}

TEST_F(PseudoTerminalTest, GivesTheNextProgramNothingOfTheLast) {
  PseudoTerminal terminal({kLink, {}});
  {
    const PtyProgram program;
    (void)terminal.Look();
    termios settings = SettingsOf(program);
    settings.c_lflag |= ECHO | ICANON;
    EXPECT_EQ(0, tcsetattr(program.Descriptor(), TCSANOW, &settings));
    EXPECT_EQ(6u, terminal.Write("stale\n", 6));
  }
  // What is echoed comes late.
  ASSERT_TRUE(Eventually([&] { return ReadAll(terminal).empty() && !terminal.InUse(); }));
  const PtyProgram next;
  EXPECT_FALSE(IsReadable(next.Descriptor()));
  EXPECT_EQ(0u, SettingsOf(next).c_lflag & (ECHO | ICANON | ISIG));
  EXPECT_EQ(0u, SettingsOf(next).c_oflag & OPOST);
}

// As stty does, whose visit is over before it is noticed.
TEST_F(PseudoTerminalTest, GivesTheNextProgramNothingOfAShortVisit) {
  PseudoTerminal terminal({kLink, {}});
  {
    const PtyProgram visitor;
    termios settings = SettingsOf(visitor);
    settings.c_lflag |= ECHO | ICANON;
    EXPECT_EQ(0, tcsetattr(visitor.Descriptor(), TCSANOW, &settings));
  }
  EXPECT_FALSE(terminal.Look());
  EXPECT_FALSE(IsReadable(terminal.Openings()));
  EXPECT_EQ(0u, SettingsOf(PtyProgram()).c_lflag & (ECHO | ICANON));
}

// When a second one has come as well before both are noticed to be gone.
TEST_F(PseudoTerminalTest, GivesTheNextProgramNothingOfSeveral) {
  PseudoTerminal terminal({kLink, {}});
  {
    const PtyProgram first;
    (void)terminal.Look();
    EXPECT_EQ(6u, terminal.Write("stale\n", 6));
    const PtyProgram second;
  }
  EXPECT_TRUE(terminal.Look());
  EXPECT_FALSE(IsReadable(PtyProgram().Descriptor()));
}

TEST_F(PseudoTerminalTest, TakesNoMoreThanAProgramReads) {
  PseudoTerminal terminal({kLink, {}});
  const PtyProgram program;
  (void)terminal.Look();
  const std::string piece(4096, 'x');
  EXPECT_TRUE(Eventually([&] { return terminal.Write(piece.data(), piece.size()) == 0; }));
}

TEST_F(PseudoTerminalTest, ReplacesALinkAndRemovesItsOwn) {
  fs::create_symlink("/nowhere", kLink);
  {
    const PseudoTerminal terminal({kLink, {}});
    EXPECT_EQ(terminal.Node(), fs::read_symlink(kLink));
  }
  EXPECT_FALSE(fs::is_symlink(kLink));
}

TEST_F(PseudoTerminalTest, LeavesALinkThatSomebodyElseHasReplaced) {
  {
    const PseudoTerminal terminal({kLink, {}});
    fs::remove(kLink);
    fs::create_symlink("/nowhere", kLink);
  }
  EXPECT_TRUE(fs::is_symlink(kLink));
}

TEST_F(PseudoTerminalTest, ReplacesNothingButALink) {
  std::ofstream(kLink) << "precious";
  EXPECT_THROW(PseudoTerminal({kLink, {}}), std::system_error);
  EXPECT_TRUE(fs::is_regular_file(kLink));
  EXPECT_THROW(PseudoTerminal({"/nowhere/port", {}}), std::system_error);
}

}  // namespace
