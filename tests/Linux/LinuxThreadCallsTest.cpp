// SPDX-License-Identifier: MIT
// How CLinuxThread uses the C library: the counts of the stop, its log lines, its failures.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "Linux/LinuxThread.h"
#include "Linux/Routine.h"
#include "Linux/Sleep.h"
#include "Linux/ThreadCalls.h"
#include "support/CapturedLog.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class LinuxThreadCallsTest : public testing::Test {
 protected:
  void SetUp() override {
    ForgetCapturedLog();
    countedCalls = &calls;
  }

  void TearDown() override {
    routine.Release();
    countedCalls = nullptr;
    EXPECT_TRUE(CLinuxThread::WaitUntilNoneRuns(20'000));
  }

  void StartRoutine() {
    ASSERT_EQ(0, thread.Start(Routine::Run, &routine));
    ASSERT_TRUE(Eventually([this] { return routine.Runs(); }));
  }

  // The routine ends while the stop sleeps for the nth time.
  void EndInSleep(size_t nth) {
    calls.onSleep = [this, nth] {
      if (calls.sleeps.size() == nth) {
        routine.Release();
        EXPECT_TRUE(Eventually([this] { return routine.HasEnded(); }));
      }
    };
  }

  ThreadCalls calls;
  Routine routine;
  CLinuxThread thread;
};

TEST_F(LinuxThreadCallsTest, StopOfAThreadThatNeverStartedReturns0AtOnceWithoutSleepOrLog) {
  EXPECT_EQ(0, thread.Stop());
  EXPECT_EQ(0, calls.joinAttempts);
  EXPECT_THAT(calls.sleeps, IsEmpty());
  EXPECT_THAT(CapturedLog(), IsEmpty());
}

TEST_F(LinuxThreadCallsTest, StopOfARoutineThatHasReturnedReapsItOnTheFirstTryWithoutSleep) {
  StartRoutine();
  routine.Release();
  ASSERT_TRUE(Eventually([this] { return routine.HasEnded(); }));
  EXPECT_EQ(0, thread.Stop());
  EXPECT_EQ(1, calls.joinAttempts);
  EXPECT_THAT(calls.sleeps, IsEmpty());
  EXPECT_THAT(CapturedLog(), IsEmpty());
}

struct ReapCase {
  size_t endsInSleep;
  int attempts;
};

void PrintTo(const ReapCase& row, std::ostream* stream) { *stream << row.attempts << " tries"; }

class ReapTable : public LinuxThreadCallsTest, public testing::WithParamInterface<ReapCase> {};

TEST_P(ReapTable, ARoutineThatEndsDuringTheStopIsReapedOnTheNextTry) {
  StartRoutine();
  EndInSleep(GetParam().endsInSleep);
  EXPECT_EQ(0, thread.Stop());
  EXPECT_EQ(GetParam().attempts, calls.joinAttempts);
  EXPECT_EQ(std::vector<unsigned>(GetParam().endsInSleep, 100'000), calls.sleeps);
  EXPECT_EQ(0, calls.cancels);
  EXPECT_EQ(0, calls.detaches);
  EXPECT_THAT(CapturedLog(), IsEmpty());
}

// A routine that goes on for 150 ms ends in the second sleep.
constexpr ReapCase kReapCases[] = {{1, 2}, {2, 3}, {19, 20}};

INSTANTIATE_TEST_SUITE_P(EndsInSleep, ReapTable, testing::ValuesIn(kReapCases),
                         [](const auto& row) { return std::to_string(row.param.endsInSleep); });

TEST_F(LinuxThreadCallsTest, ARoutineThatNeverEndsIsCancelledAndDetachedAfter20Tries) {
  StartRoutine();
  EXPECT_EQ(0, thread.Stop());
  EXPECT_EQ(20, calls.joinAttempts);
  EXPECT_EQ(std::vector<unsigned>(20, 100'000), calls.sleeps);
  EXPECT_EQ(1, calls.cancels);
  EXPECT_EQ(1, calls.detaches);
  EXPECT_TRUE(Eventually([this] { return routine.HasEnded(); }));
  EXPECT_FALSE(routine.Returned());
  EXPECT_THAT(CapturedMessages(), ElementsAre("error: thread can not join\n"));
}

TEST_F(LinuxThreadCallsTest, ARoutineThatEndsInThe20thSleepIsStillCancelledAndDetached) {
  StartRoutine();
  EndInSleep(20);
  EXPECT_EQ(0, thread.Stop());
  EXPECT_EQ(20, calls.joinAttempts);
  EXPECT_EQ(1, calls.cancels);
  EXPECT_EQ(1, calls.detaches);
}

TEST_F(LinuxThreadCallsTest, TheLogLineNamesTheThreadClassAndItsSource) {
  StartRoutine();
  EXPECT_EQ(0, thread.Stop());
  ASSERT_EQ(1U, CapturedLog().size());
  const LogLine line = CapturedLog().front();
  EXPECT_EQ("LinuxThread", line.module);
  EXPECT_EQ("Linux/LinuxThread.cpp", line.file);
  EXPECT_THAT(line.line, testing::MatchesRegex("[1-9][0-9]*"));
  EXPECT_EQ("4", line.tag);
  EXPECT_EQ(1, line.level);
}

TEST_F(LinuxThreadCallsTest, AfterTheCancelTheObjectIsIdleAndItsDestructionDoesNothing) {
  std::optional<CLinuxThread> shortLived(std::in_place);
  ASSERT_EQ(0, shortLived->Start(Routine::Run, &routine));
  EXPECT_EQ(0, shortLived->Stop());
  EXPECT_EQ(0, shortLived->Stop());
  shortLived.reset();
  EXPECT_EQ(20, calls.joinAttempts);
  EXPECT_EQ(1, calls.cancels);
  EXPECT_EQ(1, calls.detaches);
  EXPECT_EQ(1U, CapturedLog().size());
}

TEST_F(LinuxThreadCallsTest, DestroyingARunningThreadRunsTheSameStop) {
  std::optional<CLinuxThread> shortLived(std::in_place);
  ASSERT_EQ(0, shortLived->Start(Routine::Run, &routine));
  shortLived.reset();
  EXPECT_EQ(20, calls.joinAttempts);
  EXPECT_EQ(20U, calls.sleeps.size());
  EXPECT_EQ(1, calls.cancels);
  EXPECT_EQ(1, calls.detaches);
  EXPECT_THAT(CapturedMessages(), ElementsAre("error: thread can not join\n"));
}

TEST_F(LinuxThreadCallsTest, ACancelThatFailsIsLoggedAndTheThreadDetached) {
  StartRoutine();
  calls.cancelResult = ESRCH;
  EXPECT_EQ(0, thread.Stop());
  EXPECT_EQ(1, calls.detaches);
  EXPECT_THAT(CapturedMessages(),
              ElementsAre("error: thread can not join\n", "error: thread can not cancel\n"));
  EXPECT_EQ(1, CapturedLog().back().level);
}

TEST_F(LinuxThreadCallsTest, ADetachThatFailsIsLoggedAndTheObjectIdle) {
  StartRoutine();
  calls.detachResult = EINVAL;
  EXPECT_EQ(0, thread.Stop());
  EXPECT_THAT(CapturedMessages(),
              ElementsAre("error: thread can not join\n", "error: thread can not detach\n"));
  EXPECT_EQ(1, CapturedLog().back().level);
  EXPECT_EQ(0, thread.Stop());
  EXPECT_EQ(20, calls.joinAttempts);
}

TEST_F(LinuxThreadCallsTest, StartReturnsMinus1AndStaysIdleAndSilentWhenNoThreadCanBeMade) {
  calls.createResult = EAGAIN;
  EXPECT_EQ(-1, thread.Start(Routine::Run, &routine));
  EXPECT_EQ(0, thread.Stop());
  EXPECT_EQ(0, calls.joinAttempts);
  EXPECT_THAT(CapturedLog(), IsEmpty());
  EXPECT_TRUE(CLinuxThread::WaitUntilNoneRuns(0));
  calls.createResult = 0;
  StartRoutine();
}

TEST_F(LinuxThreadCallsTest, StartMakesAThreadWithDefaultAttributes) {
  StartRoutine();
  EXPECT_FALSE(calls.createdWithAttributes);
}

TEST_F(LinuxThreadCallsTest, ASecondStartForgetsTheFirstThread) {
  StartRoutine();
  Routine second;
  ASSERT_EQ(0, thread.Start(Routine::Run, &second));
  second.Release();
  EXPECT_TRUE(Eventually([&second] { return second.HasEnded(); }));
  EXPECT_EQ(0, thread.Stop());
  EXPECT_EQ(1, calls.joinAttempts);
  EXPECT_FALSE(routine.HasEnded());
  routine.Release();
  EXPECT_EQ(0, pthread_join(calls.created.front(), nullptr));
}

TEST_F(LinuxThreadCallsTest, ASleepCutShortBySignalsIsNotRepeated) {
  StartRoutine();
  calls.sleepResult = -1;
  EXPECT_EQ(0, thread.Stop());
  EXPECT_EQ(20U, calls.sleeps.size());
}

TEST_F(LinuxThreadCallsTest, SleepMillisecondsSleepsAThousandMicrosecondsForEach) {
  EXPECT_EQ(0, SleepMilliseconds(250));
  calls.sleepResult = -1;
  EXPECT_EQ(-1, SleepMilliseconds(1));
  EXPECT_THAT(calls.sleeps, ElementsAre(250'000U, 1'000U));
}

}  // namespace
