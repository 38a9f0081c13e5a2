// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>

#include "Linux/LinuxThread.h"
#include "Linux/Routine.h"
#include "Linux/SignalMask.h"
#include "support/CapturedLog.h"
#include "support/Eventually.h"

namespace {

using std::chrono::seconds;
using testing::ElementsAre;
using testing::IsEmpty;

// What pthread_cancel and pthread_detach, replaced at link time, return behind the real call.
int refusal = 0;

// Released where a stop pauses, by a usleep that is replaced at link time.
Routine* releasedByPause = nullptr;

}  // namespace

extern "C" {

int __real_pthread_cancel(pthread_t thread);
int __wrap_pthread_cancel(pthread_t thread);
int __real_pthread_detach(pthread_t thread);
int __wrap_pthread_detach(pthread_t thread);
int __real_usleep(useconds_t microseconds);
int __wrap_usleep(useconds_t microseconds);

int __wrap_pthread_cancel(pthread_t thread) {
  const int result = __real_pthread_cancel(thread);
  return refusal != 0 ? refusal : result;
}

int __wrap_pthread_detach(pthread_t thread) {
  const int result = __real_pthread_detach(thread);
  return refusal != 0 ? refusal : result;
}

int __wrap_usleep(useconds_t microseconds) {
  if (releasedByPause != nullptr) {
    releasedByPause->Release();
  }
  return __real_usleep(microseconds);
}

}  // extern "C"

namespace {

TEST(LinuxThreadTest, ARoutineThatNeverEndsCostsAboutTwoSecondsAndOneLogLine) {
  ForgetCapturedLog();
  Routine routine;
  CLinuxThread thread;
  ASSERT_EQ(0, thread.Start(Routine::Run, &routine));
  const auto time = TimeOf([&] { EXPECT_EQ(0, thread.Stop()); });
  EXPECT_GE(time, seconds(2));
  EXPECT_LT(time, seconds(15));
  EXPECT_TRUE(CLinuxThread::WaitUntilNoneRuns(20'000));
  EXPECT_FALSE(routine.Returned());
  EXPECT_EQ(0, thread.Stop()) << "the object is idle";
  ASSERT_EQ(1U, CapturedLog().size());
  const LogLine line = CapturedLog().front();
  EXPECT_EQ("LinuxThread", line.module);
  EXPECT_EQ("Linux/LinuxThread.cpp", line.file);
  EXPECT_THAT(line.line, testing::MatchesRegex("[1-9][0-9]*"));
  EXPECT_EQ("4", line.tag);
  EXPECT_EQ(1, line.level);
  EXPECT_EQ("error: thread can not join\n", line.message);
}

TEST(LinuxThreadTest, ARoutineThatEndsDuringTheStopIsJoined) {
  ForgetCapturedLog();
  Routine routine;
  CLinuxThread thread;
  ASSERT_EQ(0, thread.Start(Routine::Run, &routine));
  releasedByPause = &routine;
  EXPECT_EQ(0, thread.Stop());
  releasedByPause = nullptr;
  EXPECT_TRUE(routine.Returned());
  EXPECT_THAT(CapturedLog(), IsEmpty());
}

TEST(LinuxThreadTest, WhatTheCLibraryRefusesIsLoggedAndTheObjectIdle) {
  ForgetCapturedLog();
  Routine routine;
  CLinuxThread thread;
  ASSERT_EQ(0, thread.Start(Routine::Run, &routine));
  refusal = EINVAL;
  EXPECT_EQ(0, thread.Stop());
  refusal = 0;
  EXPECT_EQ(0, thread.Stop());
  EXPECT_THAT(CapturedMessages(),
              ElementsAre("error: thread can not join\n", "error: thread can not cancel\n",
                          "error: thread can not detach\n"));
  EXPECT_EQ(1, CapturedLog().back().level);
  EXPECT_TRUE(CLinuxThread::WaitUntilNoneRuns(20'000));
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
