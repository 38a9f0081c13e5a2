// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>

#include "Linux/LinuxThread.h"
#include "Linux/Routine.h"
#include "Linux/SignalMask.h"
#include "support/CapturedLog.h"

namespace {

using std::chrono::seconds;
using std::chrono::steady_clock;

TEST(LinuxThreadTest, ARoutineThatNeverEndsCostsAboutTwoSecondsAndOneLogLine) {
  ForgetCapturedLog();
  Routine routine;
  CLinuxThread thread;
  ASSERT_EQ(0, thread.Start(Routine::Run, &routine));
  const auto start = steady_clock::now();
  EXPECT_EQ(0, thread.Stop());
  const auto elapsed = steady_clock::now() - start;
  EXPECT_GE(elapsed, seconds(2));
  EXPECT_LT(elapsed, seconds(15));
  EXPECT_THAT(CapturedMessages(), testing::ElementsAre("error: thread can not join\n"));
  EXPECT_TRUE(CLinuxThread::WaitUntilNoneRuns(20'000));
  EXPECT_FALSE(routine.Returned());
}

TEST(LinuxThreadTest, StartReturns0AndHandsTheArgumentOn) {
  Routine routine;
  CLinuxThread thread;
  EXPECT_EQ(0, thread.Start(Routine::Run, &routine));
  EXPECT_TRUE(Eventually([&routine] { return routine.Runs(); }));
  routine.Release();
  EXPECT_EQ(0, thread.Stop());
  EXPECT_TRUE(routine.Returned());
}

TEST(LinuxThreadTest, AStoppedThreadCanBeStartedAgain) {
  CLinuxThread thread;
  for (int run = 0; run < 2; ++run) {
    Routine routine;
    ASSERT_EQ(0, thread.Start(Routine::Run, &routine));
    routine.Release();
    EXPECT_EQ(0, thread.Stop());
    EXPECT_TRUE(routine.Returned());
  }
}

void* StoreSignalMask(void* mask) {
  (void)pthread_sigmask(SIG_SETMASK, nullptr, static_cast<sigset_t*>(mask));
  return nullptr;
}

TEST(LinuxThreadTest, AThreadStartsWithAllSignalsBlockedAndItsStarterKeepsItsOwnMask) {
  sigset_t ofThread{};
  sigset_t before{};
  sigset_t after{};
  (void)StoreSignalMask(&before);
  CLinuxThread thread;
  ASSERT_EQ(0, thread.Start(StoreSignalMask, &ofThread));
  (void)StoreSignalMask(&after);
  EXPECT_EQ(0, thread.Stop());
  for (const int signal : {SIGINT, SIGHUP, SIGTERM, SIGUSR1, SIGCHLD, SIGPIPE, SIGALRM, SIGWINCH}) {
    EXPECT_EQ(1, sigismember(&ofThread, signal)) << signal;
    EXPECT_EQ(sigismember(&before, signal), sigismember(&after, signal)) << signal;
  }
}

TEST(LinuxThreadTest, WaitUntilNoneRunsTellsWhetherARoutineIsLeft) {
  EXPECT_TRUE(CLinuxThread::WaitUntilNoneRuns(0));
  Routine routine;
  CLinuxThread thread;
  ASSERT_EQ(0, thread.Start(Routine::Run, &routine));
  EXPECT_FALSE(CLinuxThread::WaitUntilNoneRuns(20));
  routine.Release();
  EXPECT_TRUE(CLinuxThread::WaitUntilNoneRuns(20'000));
  EXPECT_TRUE(routine.Returned());
  EXPECT_EQ(0, thread.Stop());
}

}  // namespace
