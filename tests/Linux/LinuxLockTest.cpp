// SPDX-License-Identifier: MIT
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <stdexcept>
#include <thread>

#include "Linux/Console.h"
#include "Linux/LinuxLock.h"
#include "Linux/LinuxThread.h"
#include "Linux/LockGuard.h"
#include "Linux/Routine.h"
#include "support/Eventually.h"

namespace {

TEST(LinuxLockTest, LockAndUnlockReturn0) {
  CLinuxLock lock;
  EXPECT_EQ(0, lock.Lock());
  EXPECT_EQ(0, lock.Unlock());
  EXPECT_EQ(0, lock.Lock());
  EXPECT_EQ(0, lock.Unlock());
}

TEST(LinuxLockTest, TwoThreadsAreNeverInsideAtOnce) {
  CLinuxLock lock;
  int count = 0;  // unguarded, an increment would be lost, and the thread sanitizer would tell
  const auto add = [&] {
    for (int i = 0; i < 10'000; ++i) {
      const CLockGuard guard(lock);
      ++count;
    }
  };
  std::thread other(add);
  add();
  other.join();
  EXPECT_EQ(20'000, count);
}

// A real lock that tells how often it was taken and let go.
class CountingLock final : public CAbstractLock {
 public:
  int Lock() ACQUIRE() override {
    const int result = lock.Lock();
    ++locked;
    return result;
  }
  int Unlock() RELEASE() override {
    ++unlocked;
    return lock.Unlock();
  }

  std::atomic<int> locked{0};
  std::atomic<int> unlocked{0};

 private:
  CLinuxLock lock;
};

TEST(LockGuardTest, HoldsTheLockForItsScope) {
  CountingLock lock;
  {
    const CLockGuard guard(lock);
    EXPECT_EQ(1, lock.locked);
    EXPECT_EQ(0, lock.unlocked);
  }
  EXPECT_EQ(1, lock.unlocked);
}

// Waits in a read for ever, as the receive threads do.
struct WaitingInsideGuard {
  static void* Run(void* self) {
    const auto* waiting = static_cast<WaitingInsideGuard*>(self);
    const CLockGuard guard(*waiting->lock);
    return waiting->routine->Run(waiting->routine);
  }

  CountingLock* lock;
  Routine* routine;
};

TEST(LockGuardTest, CancellingItsThreadLetsTheLockGo) {
  CountingLock lock;
  Routine routine;
  WaitingInsideGuard waiting{&lock, &routine};
  CLinuxThread thread;
  ASSERT_EQ(0, thread.Start(WaitingInsideGuard::Run, &waiting));
  ASSERT_TRUE(Eventually([&lock] { return lock.locked == 1; }));
  EXPECT_EQ(0, thread.Stop());
  EXPECT_TRUE(Eventually([&lock] { return lock.unlocked == 1; }));
  EXPECT_EQ(0, lock.Lock());
  EXPECT_EQ(0, lock.Unlock());
  EXPECT_TRUE(CLinuxThread::WaitUntilNoneRuns(20'000));
}

class TellingLock final : public CAbstractLock {
 public:
  int Lock() override {
    WriteStandardError("locked\n");
    return 0;
  }
  int Unlock() override {
    WriteStandardError("unlocked\n");
    return 0;
  }
};

void* ThrowInsideGuard(void* lock) {
  const CLockGuard guard(*static_cast<TellingLock*>(lock));
  throw std::logic_error("nobody catches this");
}

// What a child that runs `body` writes to standard error, until it ends; and how it ends.
std::pair<std::string, int> ErrorsAndEndOfChild(void (*body)()) {
  int ends[2] = {-1, -1};
  EXPECT_EQ(0, pipe2(ends, O_CLOEXEC));
  const pid_t child = fork();
  if (child == 0) {
    (void)alarm(30);
    (void)dup2(ends[1], STDERR_FILENO);
    body();
    _exit(0);
  }
  (void)close(ends[1]);
  std::string errors;
  char byte = 0;
  while (read(ends[0], &byte, 1) == 1) {
    errors += byte;
  }
  (void)close(ends[0]);
  int status = 0;
  EXPECT_EQ(child, waitpid(child, &status, 0));
  return {errors, status};
}

TEST(LockGuardTest, AnExceptionThatNobodyCatchesEndsTheProcessWithTheLockHeld) {
  const auto [errors, status] = ErrorsAndEndOfChild([] {
    TellingLock lock;
    CLinuxThread thread;
    (void)thread.Start(ThrowInsideGuard, &lock);
    (void)CLinuxThread::WaitUntilNoneRuns(20'000);
  });
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGABRT) << status;
  EXPECT_EQ(0U, errors.find("locked\nterminate called after throwing an instance of "
                            "'std::logic_error'\n  what():  nobody catches this\n"))
      << errors;
}

}  // namespace
