// SPDX-License-Identifier: MIT
// Each test writes in a process of its own, which an alarm ends when it waits for ever.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <thread>

#include "Linux/StreamWriter.h"
#include "support/Eventually.h"
#include "support/InChild.h"
#include "support/Terminal.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr int kNoLimit = 1'000'000;

enum class Owner { kSelf, kOther };

std::string NameOf(const testing::TestParamInfo<Owner>& owner) {
  return owner.param == Owner::kSelf ? "OfThisUser" : "OfAnother";
}

// The two ends of a pipe with room for one page.
struct Pipe {
  Pipe() {
    (void)!pipe2(ends, O_CLOEXEC);
    (void)fcntl(ends[1], F_SETPIPE_SZ, 4096);
  }
  int ends[2] = {-1, -1};
};

// Reads `count` bytes in small pieces, 2,000 bytes in a second unless the pause is another.
std::string ReadSlowly(int stream, size_t count, milliseconds pause = milliseconds(50)) {
  std::string text;
  char piece[100];
  while (text.size() < count) {
    const ssize_t got = read(stream, piece, std::min(sizeof piece, count - text.size()));
    if (got <= 0) {
      break;
    }
    text.append(piece, static_cast<size_t>(got));
    std::this_thread::sleep_for(pause);  // deliberate: the reader's pace
  }
  return text;
}

class StreamWriterTest : public testing::TestWithParam<Owner> {
 protected:
  // A writer to standard error, which is `stream` in this process from now on.
  static CStreamWriter& WriterTo(int stream, int longest = kNoLimit) {
    if (GetParam() == Owner::kOther) {
      ForbidReopening(stream);
    }
    (void)dup2(stream, STDERR_FILENO);
    static CStreamWriter writer(STDERR_FILENO, longest);
    writer.Unblock();
    return writer;
  }
};

const std::string kLong = std::string(2'999, 'x') + "\n";

TEST_P(StreamWriterTest, AReaderThatIsSlowGetsEverything) {
  EXPECT_EQ(0, InChild([] {
              const Pipe pipe;
              CStreamWriter& writer = WriterTo(pipe.ends[1]);
              bool whole = true;
              std::thread thread([&] {
                for (int i = 0; i < 4; ++i) {
                  whole = writer.Write(kLong) && whole;
                }
              });
              const bool same =
                  ReadSlowly(pipe.ends[0], size_t{4} * 3'000) == kLong + kLong + kLong + kLong;
              thread.join();
              return same && whole ? 0 : 1;
            }));
}

TEST_P(StreamWriterTest, AReaderWhoReadsSlowlyAgainGetsEverythingAgain) {
  EXPECT_EQ(0, InChild([] {
              const Pipe pipe;
              CStreamWriter& writer = WriterTo(pipe.ends[1]);
              while (writer.Write(kLong)) {
              }
              const std::string first = ReadSlowly(pipe.ends[0], 100);
              std::thread([&] { (void)ReadSlowly(pipe.ends[0], 100'000); }).detach();
              for (int i = 0; i < 3; ++i) {
                if (!writer.Write(kLong)) {
                  _exit(1);
                }
              }
              _exit(0);  // the reader still reads
              return 0;
            }));
}

TEST_P(StreamWriterTest, AReaderWhoDoesNotReadCostsOneWait) {
  EXPECT_EQ(0, InChild([] {
              const Pipe pipe;
              CStreamWriter& writer = WriterTo(pipe.ends[1]);
              const milliseconds time = TimeOf([&] {
                for (int i = 0; i < 200; ++i) {
                  (void)writer.Write(kLong);
                  (void)writer.Write("short\n");
                }
              });
              return milliseconds(900) < time && time < seconds(5) ? 0 : 1;
            }));
}

// It has room again when four kilobytes are read, which takes longer than a second here.
TEST_P(StreamWriterTest, ATerminalThatIsReadSlowlyGetsEverything) {
  EXPECT_EQ(0, InChild([] {
              const Terminal terminal;
              CStreamWriter& writer = WriterTo(terminal.NearEnd());
              int whole = 0;
              std::thread thread([&] {
                for (int i = 0; i < 9; ++i) {
                  whole += writer.Write(kLong) ? 1 : 0;
                }
              });
              (void)ReadSlowly(terminal.FarEnd(), size_t{9} * 3'001, milliseconds(25));
              thread.join();
              return 9 - whole;
            }));
}

TEST_P(StreamWriterTest, ATerminalThatNobodyReadsCostsNoProcessor) {
  EXPECT_EQ(0, InChild([] {
              const Terminal terminal;
              CStreamWriter& writer = WriterTo(terminal.NearEnd());
              for (size_t i = 0; i < 2000; ++i) {
                (void)writer.Write(std::string(i % 100, 'x') + "\n");
              }
              timespec used = {};
              (void)clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &used);
              return used.tv_sec == 0 ? 0 : 1;
            }));
}

TEST_P(StreamWriterTest, ALimitedTextWaitsNoLongerForAReaderThatIsSlow) {
  EXPECT_EQ(0, InChild([] {
              const Pipe pipe;
              CStreamWriter& writer = WriterTo(pipe.ends[1], 1'500);
              (void)writer.Write(kLong);
              std::thread([&] { (void)ReadSlowly(pipe.ends[0], 100'000); }).detach();
              const milliseconds time =
                  TimeOf([&] { (void)writer.Write(std::string(20'000, 'y')); });
              _exit(milliseconds(1'400) < time && time < seconds(5) ? 0 : 1);
              return 0;
            }));
}

TEST_P(StreamWriterTest, InAHurryOnlyTheLastTextWaits) {
  EXPECT_EQ(0, InChild([] {
              const Pipe pipe;
              CStreamWriter& writer = WriterTo(pipe.ends[1]);
              (void)writer.Write(std::string(4096, '.'));
              // A page in a fifth of a second: the last text waits for one, five seconds at most.
              const milliseconds pace(5);
              std::thread([&] { (void)ReadSlowly(pipe.ends[0], 1'000'000, pace); }).detach();
              std::thread waits([&] { (void)writer.Write(std::string(1'000'000, 'y')); });
              while (writer.Write("more\n")) {  // until there is no room at once
                writer.Hurry();
              }
              waits.join();
              _exit(writer.WriteLast("last\n") ? 0 : 1);
              return 0;
            }));
}

TEST_P(StreamWriterTest, TheStreamStaysBlockingForOtherPrograms) {
  EXPECT_EQ(0, InChild([] {
              const Terminal terminal;
              (void)WriterTo(terminal.NearEnd()).Write("m\n");
              return (fcntl(STDERR_FILENO, F_GETFL) & O_NONBLOCK) == 0 ? 0 : 1;
            }));
}

INSTANTIATE_TEST_SUITE_P(Stream, StreamWriterTest, testing::Values(Owner::kSelf, Owner::kOther),
                         NameOf);

}  // namespace
