// SPDX-License-Identifier: MIT
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <fstream>
#include <iterator>
#include <string>

#include "Linux/TimedWrite.h"
#include "support/InChild.h"

namespace {

class TimedWriteTest : public testing::Test {
 public:
  TimedWriteTest() {
    EXPECT_EQ(0, pipe2(ends, O_CLOEXEC));
    (void)fcntl(ends[1], F_SETPIPE_SZ, 4096);
  }
  ~TimedWriteTest() override {
    (void)close(ends[0]);
    (void)close(ends[1]);
  }

  int ends[2] = {-1, -1};
  const std::string text = std::string(10'000, 'x');
};

TEST_F(TimedWriteTest, WritesWhatThereIsRoomForAndThenNothing) {
  EXPECT_EQ(4096, TimedWrite(ends[1], text));
  EXPECT_EQ(-1, TimedWrite(ends[1], text));
  EXPECT_EQ(EAGAIN, errno);
}

TEST_F(TimedWriteTest, TellsWhyAWriteFails) {
  (void)std::signal(SIGPIPE, SIG_IGN);
  (void)close(ends[0]);
  EXPECT_EQ(-1, TimedWrite(ends[1], text));
  EXPECT_EQ(EPIPE, errno);
}

TEST_F(TimedWriteTest, LeavesTheSignalsOfTheProcessAlone) {
  EXPECT_EQ(0, InChild([this] {
              (void)std::signal(SIGRTMIN, [](int) { _exit(1); });
              sigset_t before;
              sigset_t after;
              (void)pthread_sigmask(SIG_BLOCK, nullptr, &before);
              (void)TimedWrite(ends[1], text);
              (void)pthread_sigmask(SIG_BLOCK, nullptr, &after);
              for (int signal = 1; signal <= SIGRTMAX; ++signal) {
                if (sigismember(&before, signal) != sigismember(&after, signal)) {
                  return 2;
                }
              }
              return 0;
            }));
}

TEST_F(TimedWriteTest, WorksInAThreadThatBlocksAllSignals) {
  sigset_t all;
  (void)sigfillset(&all);
  (void)pthread_sigmask(SIG_BLOCK, &all, nullptr);
  EXPECT_EQ(4096, TimedWrite(ends[1], text));
}

bool HasTimers() {
  std::ifstream timers("/proc/self/timers");
  return std::istreambuf_iterator<char>(timers) != std::istreambuf_iterator<char>();
}

TEST_F(TimedWriteTest, LeavesNoTimerBehind) {
  EXPECT_EQ(4096, TimedWrite(ends[1], text));
  EXPECT_FALSE(HasTimers());
}

// More than the pipe holds: while the test reads, the write is where the thread spends its time.
TEST_F(TimedWriteTest, LeavesNoTimerBehindInAThreadThatIsCancelled) {
  const auto body = [](void* test) -> void* {
    const auto* const self = static_cast<TimedWriteTest*>(test);
    for (;;) {
      (void)TimedWrite(self->ends[1], self->text);
    }
  };
  for (int i = 0; i < 20; ++i) {
    pthread_t thread = {};
    ASSERT_EQ(0, pthread_create(&thread, nullptr, body, this));
    char page[4096];
    for (int pages = 0; pages < 3; ++pages) {
      ASSERT_LT(0, read(ends[0], page, sizeof page));
    }
    ASSERT_EQ(0, pthread_cancel(thread));
    ASSERT_EQ(0, pthread_join(thread, nullptr));
  }
  EXPECT_FALSE(HasTimers());
}

}  // namespace
