// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>

#include "Linux/Command.h"
#include "Linux/SignalMask.h"

namespace {

std::atomic<int> caught{0};

void Catch(int) { ++caught; }

bool IsBlocked(int signal) {
  sigset_t current{};
  (void)pthread_sigmask(SIG_SETMASK, nullptr, &current);
  return sigismember(&current, signal) == 1;
}

class StopSignalTest : public testing::TestWithParam<int> {
 protected:
  void SetUp() override {
    caught = 0;
    struct sigaction action {};
    action.sa_handler = Catch;
    ASSERT_EQ(0, sigaction(GetParam(), &action, nullptr));
  }
  void TearDown() override { (void)signal(GetParam(), SIG_DFL); }

  void RaiseIt() const { EXPECT_EQ(0, pthread_kill(pthread_self(), GetParam())); }
};

TEST_P(StopSignalTest, AHeldSignalIsDeliveredAtTheEndOfTheScope) {
  {
    const CStopSignalsHeld held;
    RaiseIt();
    EXPECT_EQ(0, caught);
  }
  EXPECT_EQ(1, caught);
}

TEST_P(StopSignalTest, NestedScopesHoldUntilTheOuterOneEnds) {
  {
    const CStopSignalsHeld outer;
    {
      const CStopSignalsHeld inner;
      RaiseIt();
    }
    EXPECT_EQ(0, caught);
  }
  EXPECT_EQ(1, caught);
}

TEST_P(StopSignalTest, AHeldSignalIsDeliveredInsideAdmittedAndHeldAgainBehindIt) {
  const CStopSignalsHeld held;
  RaiseIt();
  {
    const CStopSignalsAdmitted admitted;
    EXPECT_EQ(1, caught);
  }
  RaiseIt();
  EXPECT_EQ(1, caught);
  EXPECT_TRUE(IsBlocked(GetParam()));
}

TEST_P(StopSignalTest, AdmittedDoesNothingWhereNothingIsHeld) {
  const CSignalMask blocked(CSignalMask::StopSignals());
  RaiseIt();
  {
    const CStopSignalsAdmitted admitted;
    EXPECT_EQ(0, caught);
  }
  AdmitStopSignals();
  EXPECT_EQ(1, caught);
}

TEST_P(StopSignalTest, AdmitUnblocksWhatTheProcessWasStartedWith) {
  const sigset_t stopSignals = CSignalMask::StopSignals();
  ASSERT_EQ(0, pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr));
  AdmitStopSignals();
  EXPECT_FALSE(IsBlocked(GetParam()));
}

TEST_P(StopSignalTest, HoldBlocksForGood) {
  HoldStopSignals();
  RaiseIt();
  EXPECT_EQ(0, caught);
  EXPECT_TRUE(IsBlocked(GetParam()));
  AdmitStopSignals();
}

INSTANTIATE_TEST_SUITE_P(Each, StopSignalTest, testing::Values(SIGINT, SIGHUP, SIGTERM),
                         [](const auto& row) {
                           return row.param == SIGINT   ? "SIGINT"
                                  : row.param == SIGHUP ? "SIGHUP"
                                                        : "SIGTERM";
                         });

TEST(SignalMaskTest, BlocksOnTopOfWhatIsBlockedAndRestoresThat) {
  sigset_t earlier{};
  (void)sigemptyset(&earlier);
  (void)sigaddset(&earlier, SIGUSR1);
  const CSignalMask outer(earlier);
  {
    sigset_t more{};
    (void)sigemptyset(&more);
    (void)sigaddset(&more, SIGUSR2);
    const CSignalMask inner(more);
    EXPECT_TRUE(IsBlocked(SIGUSR1));
    EXPECT_TRUE(IsBlocked(SIGUSR2));
  }
  EXPECT_TRUE(IsBlocked(SIGUSR1));
  EXPECT_FALSE(IsBlocked(SIGUSR2));
}

TEST(SignalMaskTest, StopSignalsAreSigintSighupAndSigtermAlone) {
  const sigset_t signals = CSignalMask::StopSignals();
  for (int signal = 1; signal < 32; ++signal) {
    const bool stops = signal == SIGINT || signal == SIGHUP || signal == SIGTERM;
    EXPECT_EQ(stops ? 1 : 0, sigismember(&signals, signal)) << signal;
  }
}

TEST(SignalMaskTest, ACommandInheritsNoBlockedSignal) {
  const CSignalMask blocked(CSignalMask::AllSignals());
  EXPECT_EQ(0, RunCommand("grep -qx 'SigBlk:[[:space:]]*0*' /proc/self/status"));
  EXPECT_TRUE(IsBlocked(SIGTERM));
}

}  // namespace
