// SPDX-License-Identifier: MIT
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <string>
#include <thread>

#include "Linux/Console.h"
#include "support/Eventually.h"
#include "support/InChild.h"
#include "support/StreamCapture.h"

namespace {

TEST(ConsoleTest, TextsGoToTheirStreamsAsTheyAre) {
  StreamCapture output(1);
  StreamCapture errors(2);
  WriteStandardOutput("to output\n");
  WriteStandardError("to error, no newline");
  EXPECT_EQ("to output\n", output.Rest());
  EXPECT_EQ("to error, no newline", errors.Rest());
}

// Longer than a pipe takes in one piece.
TEST(ConsoleTest, LinesOfTwoThreadsNeverMix) {
  constexpr int kLines = 40;
  const std::string first = std::string(100'000, 'a') + "\n";
  const std::string second = std::string(100'000, 'b') + "\n";
  StreamCapture output(1);
  const auto write = [](const std::string& line) {
    for (int i = 0; i < kLines; ++i) {
      WriteStandardOutput(line);
    }
  };
  std::thread one(write, first);
  std::thread other(write, second);
  int count[2] = {0, 0};
  for (int i = 0; i < 2 * kLines; ++i) {
    const std::string line = output.NextLine();
    EXPECT_TRUE(line == first || line == second) << "line " << i << " is mixed";
    ++count[line == first ? 0 : 1];
  }
  one.join();
  other.join();
  EXPECT_EQ(kLines, count[0]);
  EXPECT_EQ(kLines, count[1]);
}

TEST(ConsoleTest, AStreamThatTakesNothingLosesTheTextAndNothingElse) {
  EXPECT_EQ(0, InChild([] {
              (void)signal(SIGPIPE, SIG_IGN);
              int ends[2] = {-1, -1};
              if (pipe(ends) != 0 || close(ends[0]) != 0 || dup2(ends[1], STDOUT_FILENO) == -1) {
                return 1;
              }
              WriteStandardOutput("nobody reads this\n");
              (void)close(STDERR_FILENO);
              WriteStandardError("nor this\n");
              return 0;
            }));
}

// A bit for each of the three.
class MissingStreams : public testing::TestWithParam<int> {};

TEST_P(MissingStreams, BecomeTheNullDeviceAndTheOthersStayWhatTheyAre) {
  EXPECT_EQ(0, InChild([missing = GetParam()] {
              int ends[2] = {-1, -1};
              (void)!pipe(ends);
              for (int stream = 0; stream < 3; ++stream) {
                (void)dup2(ends[1], stream);
              }
              closefrom(3);
              for (int stream = 0; stream < 3; ++stream) {
                (void)((missing >> stream & 1) != 0 ? close(stream) : 0);
              }
              EnsureStandardStreams();
              for (int stream = 0; stream < 3; ++stream) {
                struct stat status {};
                const bool isOpen = fstat(stream, &status) == 0;
                const bool isNull = S_ISCHR(status.st_mode) && status.st_rdev == makedev(1, 3);
                const bool isPipe = S_ISFIFO(status.st_mode);
                if (!isOpen || ((missing >> stream & 1) != 0 ? !isNull : !isPipe)) {
                  return 1;
                }
              }
              return fcntl(3, F_GETFD) == -1 ? 0 : 2;
            }));
}

INSTANTIATE_TEST_SUITE_P(Each, MissingStreams, testing::Range(0, 8));

// Standard error is a pipe with room for one page. Gives its reading end.
int MakeErrorAPipe() {
  int ends[2] = {-1, -1};
  if (pipe2(ends, O_CLOEXEC) != 0) {
    return -1;
  }
  (void)fcntl(ends[1], F_SETPIPE_SZ, 4096);
  (void)dup2(ends[1], STDERR_FILENO);
  (void)close(ends[1]);
  return ends[0];
}

int Waiting(int descriptor) {
  int bytes = 0;
  (void)ioctl(descriptor, FIONREAD, &bytes);
  return bytes;
}

std::string ReadAll(int descriptor) {
  std::string text(100'000, '\0');
  (void)fcntl(descriptor, F_SETFL, O_NONBLOCK);
  const ssize_t count = read(descriptor, text.data(), text.size());
  text.resize(count > 0 ? static_cast<size_t>(count) : 0);
  return text;
}

TEST(UnblockStandardStreamsTest, ALineAfterACutOneBeginsAnew) {
  EXPECT_EQ(0, InChild([] {
              const int reader = MakeErrorAPipe();
              UnblockStandardStreams();
              WriteStandardError(std::string(10'000, 'x') + "\n");
              WriteStandardError("lost\n");
              if (ReadAll(reader) != std::string(4096, 'x')) {
                return 1;
              }
              WriteStandardError("read again\n");
              return ReadAll(reader) == "\nread again\n" ? 0 : 2;
            }));
}

// The line is given up while the last text waits for its turn, and only then somebody reads.
TEST(UnblockStandardStreamsTest, TheLastTextComesBehindALineThatItCutsShort) {
  EXPECT_EQ(0, InChild([] {
              const int reader = MakeErrorAPipe();
              UnblockStandardStreams();
              std::thread line([] { WriteStandardError(std::string(10'000, 'x') + "\n"); });
              if (!Eventually([reader] { return Waiting(reader) == 4096; })) {
                return 1;
              }
              std::thread last([] { WriteLastStandardError("the end\n"); });
              line.join();
              std::string text;
              (void)Eventually([&] {
                text += ReadAll(reader);
                return text.ends_with("the end\n");
              });
              last.join();
              return text == std::string(4096, 'x') + "\nthe end\n" ? 0 : 2;
            }));
}

}  // namespace
