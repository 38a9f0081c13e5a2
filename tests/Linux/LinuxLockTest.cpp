// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "Linux/LinuxLock.h"
#include "Linux/LinuxThread.h"
#include "Linux/LockGuard.h"
#include "Linux/Routine.h"
#include "support/Eventually.h"

namespace {

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

}  // namespace
