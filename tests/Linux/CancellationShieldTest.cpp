// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <future>

#include "Linux/CancellationShield.h"
#include "Linux/Command.h"
#include "Linux/LinuxSocket.h"
#include "Linux/LinuxThread.h"
#include "Linux/LogSource.h"
#include "Linux/Routine.h"
#include "Linux/Sleep.h"
#include "support/CancelledThread.h"
#include "support/CapturedLog.h"
#include "support/LoopbackPeer.h"
#include "support/StreamCapture.h"

namespace {

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

TEST(CancellationShieldTest, AListeningSocketIsClosedOnACancelledThread) {
  StreamCapture output(1);
  const ReservedPort port;
  LoopbackPeer peer;
  CLinuxSocket socket;
  auto listened = std::async(std::launch::async, [&] { return socket.Listen(port.Number()); });
  (void)output.NextLine();  // it listens
  ASSERT_EQ(0, peer.ConnectTo(port.Number()));
  ASSERT_EQ(0, listened.get());
  CancelledThread thread([&] { (void)socket.Close(); });
  EXPECT_TRUE(thread.stepDone);
  EXPECT_TRUE(peer.SeesEnd());
  EXPECT_NE(0, LoopbackPeer().ConnectTo(port.Number())) << "somebody listens there";
}

TEST(CancellationShieldTest, ALineIsLoggedOnACancelledThread) {
  ForgetCapturedLog();
  CancelledThread thread(
      [] { WriteLog("module", "file", 1, "tag", LogLevel::kProgress, "whole"); });
  EXPECT_TRUE(thread.stepDone);
  EXPECT_THAT(CapturedMessages(), testing::ElementsAre("whole"));
}

TEST(CancellationShieldTest, ACommandRunsToItsEndOnACancelledThread) {
  int status = -1;
  CancelledThread thread([&status] { status = RunCommand("exit 3"); });
  EXPECT_TRUE(thread.stepDone);
  EXPECT_EQ(3, WEXITSTATUS(status));
}

}  // namespace
