// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <functional>

#include "Linux/CancellationShield.h"
#include "Linux/LinuxSocket.h"
#include "Linux/LinuxThread.h"
#include "Linux/Routine.h"
#include "Linux/Sleep.h"
#include "support/CapturedLog.h"
#include "support/LoopbackPeer.h"
#include "support/StreamCapture.h"

namespace {

// Runs `step` on a thread whose cancellation is pending from before it on.
class CancelledThread {
 public:
  explicit CancelledThread(std::function<void()> toRun) : step(std::move(toRun)) {
    pthread_t thread{};
    EXPECT_EQ(0, pthread_create(&thread, nullptr, Run, this));
    EXPECT_EQ(0, pthread_cancel(thread));
    cancelPending = true;
    void* result = nullptr;
    EXPECT_EQ(0, pthread_join(thread, &result));
    wasCancelled = result == PTHREAD_CANCELED;
  }

  bool stepDone = false;
  bool wasCancelled = false;

 private:
  static void* Run(void* self) {
    static_cast<CancelledThread*>(self)->RunHere();
    return nullptr;
  }

  void RunHere() {
    while (!cancelPending) {  // no cancellation point
    }
    step();
    stepDone = true;
    pthread_testcancel();
  }

  std::function<void()> step;
  std::atomic<bool> cancelPending{false};
};

class BlockingInItsDestructor {
 public:
  ~BlockingInItsDestructor() {
    const CCancellationShield shield;
    (void)SleepMilliseconds(1);
  }
};

TEST(CancellationShieldTest, ADestructorThatBlocksRunsToItsEndOnACancelledThread) {
  CancelledThread thread([] { const BlockingInItsDestructor object; });
  EXPECT_TRUE(thread.stepDone);
  EXPECT_TRUE(thread.wasCancelled) << "the cancellation is put off, not lost";
}

TEST(CancellationShieldTest, ShieldsNestAndTheInnerOneLeavesTheOuterInForce) {
  CancelledThread thread([] {
    const CCancellationShield outer;
    { const CCancellationShield inner; }
    pthread_testcancel();
  });
  EXPECT_TRUE(thread.stepDone);
  EXPECT_TRUE(thread.wasCancelled);
}

TEST(CancellationShieldTest, WithoutAShieldTheCancellationTakesEffect) {
  CancelledThread thread([] { pthread_testcancel(); });
  EXPECT_FALSE(thread.stepDone);
  EXPECT_TRUE(thread.wasCancelled);
}

TEST(CancellationShieldTest, ARunningThreadIsDestroyedCompletelyOnACancelledThread) {
  Routine routine;
  ForgetCapturedLog();
  CancelledThread thread([&] {
    CLinuxThread inner;
    EXPECT_EQ(0, inner.Start(Routine::Run, &routine));
  });
  EXPECT_TRUE(thread.stepDone);
  EXPECT_THAT(CapturedMessages(), testing::ElementsAre("error: thread can not join\n"));
  EXPECT_TRUE(CLinuxThread::WaitUntilNoneRuns(20'000));
}

TEST(CancellationShieldTest, ASocketIsClosedOnACancelledThread) {
  StreamCapture output(1);
  const ReservedPort port;
  LoopbackPeer peer;
  peer.ListenOn(port.Number());
  CLinuxSocket socket;
  ASSERT_EQ(0, socket.Connect(port.Number()));
  peer.Accept();
  CancelledThread thread([&] { (void)socket.Close(); });
  EXPECT_TRUE(thread.stepDone);
  EXPECT_TRUE(peer.SeesEnd());
}

}  // namespace
