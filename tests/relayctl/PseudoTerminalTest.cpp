// SPDX-License-Identifier: MIT
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <system_error>

#include "e2e/support/Workplace.h"
#include "pty/PseudoTerminal.h"
#include "support/Eventually.h"

namespace {

namespace fs = std::filesystem;

constexpr const char* kLink = "/tmp/e2e/port";

// A program that uses the port.
class Program {
 public:
  Program() : near(open(kLink, O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC)) {}
  ~Program() { (void)close(near); }
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;

  bool IsOpen() const { return near != -1; }
  void Writes(const std::string& bytes) const {
    EXPECT_EQ(static_cast<ssize_t>(bytes.size()), write(near, bytes.data(), bytes.size()));
  }
  std::string Reads() const {
    std::array<char, 64> buffer{};
    const ssize_t count = read(near, buffer.data(), buffer.size());
    return {buffer.data(), static_cast<size_t>(count > 0 ? count : 0)};
  }
  termios Settings() const {
    termios settings{};
    EXPECT_EQ(0, tcgetattr(near, &settings));
    return settings;
  }
  void Sets(const termios& settings) const { EXPECT_EQ(0, tcsetattr(near, TCSANOW, &settings)); }

 private:
  int near;
};

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
  PseudoTerminal terminal(kLink);
  EXPECT_FALSE(terminal.InUse());
  EXPECT_FALSE(IsReadable(terminal.Openings()));
}

TEST_F(PseudoTerminalTest, NoticesEachOpeningAndEachLastClosing) {
  PseudoTerminal terminal(kLink);
  for (int round = 0; round < 3; ++round) {
    {
      const Program program;
      ASSERT_TRUE(program.IsOpen());
      EXPECT_TRUE(IsReadable(terminal.Openings()));
      EXPECT_TRUE(terminal.Look());
      EXPECT_TRUE(terminal.InUse());
      const Program second;
      program.Writes("hello");
      EXPECT_TRUE(Eventually([&] { return ReadAll(terminal) == "hello"; }));
      EXPECT_TRUE(terminal.InUse());
    }
    EXPECT_EQ("", ReadAll(terminal));
    EXPECT_FALSE(terminal.InUse());
    EXPECT_FALSE(IsReadable(terminal.Openings()));
  }
}

TEST_F(PseudoTerminalTest, DeliversTheLastBytesOfAProgramThatHasLeft) {
  PseudoTerminal terminal(kLink);
  {
    const Program program;
    program.Writes("bye");
  }
  (void)terminal.Look();
  std::string all;
  EXPECT_TRUE(Eventually([&] { return (all += ReadAll(terminal)) == "bye"; })) << all;
}

TEST_F(PseudoTerminalTest, GivesTheNextProgramNothingOfTheLast) {
  PseudoTerminal terminal(kLink);
  {
    const Program program;
    (void)terminal.Look();
    termios settings = program.Settings();
    settings.c_lflag |= ECHO | ICANON;
    program.Sets(settings);
    EXPECT_EQ(6u, terminal.Write("stale\n", 6));
  }
  (void)ReadAll(terminal);
  ASSERT_FALSE(terminal.InUse());
  const Program next;
  EXPECT_EQ("", next.Reads());
  EXPECT_EQ(0u, next.Settings().c_lflag & (ECHO | ICANON | ISIG));
  EXPECT_EQ(0u, next.Settings().c_oflag & OPOST);
}

TEST_F(PseudoTerminalTest, TakesNoMoreThanAProgramReads) {
  PseudoTerminal terminal(kLink);
  const Program program;
  (void)terminal.Look();
  const std::string piece(4096, 'x');
  EXPECT_TRUE(Eventually([&] { return terminal.Write(piece.data(), piece.size()) == 0; }));
}

TEST_F(PseudoTerminalTest, ReplacesALinkAndRemovesItsOwn) {
  fs::create_symlink("/nowhere", kLink);
  {
    const PseudoTerminal terminal(kLink);
    EXPECT_EQ(terminal.Node(), fs::read_symlink(kLink));
  }
  EXPECT_FALSE(fs::is_symlink(kLink));
}

TEST_F(PseudoTerminalTest, LeavesALinkThatSomebodyElseHasReplaced) {
  {
    const PseudoTerminal terminal(kLink);
    fs::remove(kLink);
    fs::create_symlink("/nowhere", kLink);
  }
  EXPECT_TRUE(fs::is_symlink(kLink));
}

TEST_F(PseudoTerminalTest, ReplacesNothingButALink) {
  std::ofstream(kLink) << "precious";
  EXPECT_THROW(PseudoTerminal{kLink}, std::system_error);
  EXPECT_TRUE(fs::is_regular_file(kLink));
  EXPECT_THROW(PseudoTerminal{"/nowhere/port"}, std::system_error);
}

}  // namespace
