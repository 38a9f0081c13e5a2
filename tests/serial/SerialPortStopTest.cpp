// SPDX-License-Identifier: MIT
// Closing, and threads that outlive it.
#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <chrono>
#include <utility>

#include "serial/SerialPortTest.h"
#include "support/CancelledThread.h"

namespace {

class SerialPortStopTest : public SerialPortTest {};

using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::IsEmpty;

TEST_F(SerialPortStopTest, CloseClosesTheDeviceAndEndsTheThread) {
  ASSERT_EQ(0, Open());
  EXPECT_EQ(0, port->Close());
  EXPECT_FALSE(device->isOpen);
  EXPECT_TRUE(CLinuxThread::WaitUntilNoneRuns(0));
  EXPECT_THAT(CapturedLog(), IsEmpty());
}

TEST_F(SerialPortStopTest, DestructionClosesTheDeviceAndEndsTheThread) {
  ASSERT_EQ(0, Open());
  port.reset();
  EXPECT_FALSE(device->isOpen);
  EXPECT_TRUE(CLinuxThread::WaitUntilNoneRuns(0));
}

TEST_F(SerialPortStopTest, AReadThatFailsBecauseOfTheCloseOnlyPrintsRecvError) {
  StreamCapture output(STDOUT_FILENO);
  StreamCapture error(STDERR_FILENO);
  device->onRead = [this] { (void)Eventually([this] { return !device->isOpen; }); };
  ASSERT_EQ(0, Open());
  ASSERT_TRUE(Eventually([this] { return device->reads == 1; }));
  EXPECT_EQ(0, port->Close());
  EXPECT_EQ("recv error:Bad file descriptor\n", error.Rest());
  EXPECT_EQ("", output.Rest());
  EXPECT_THAT(CapturedLog(), IsEmpty());
}

TEST_F(SerialPortStopTest, AClosedPortThatIsOpenedAnewDoesNotReceive) {
  ASSERT_EQ(0, Open());
  EXPECT_EQ(0, port->Close());
  const int reads = device->reads;
  EXPECT_EQ(0, Open());
  EXPECT_TRUE(CLinuxThread::WaitUntilNoneRuns(20'000)) << "its thread ends by itself";
  EXPECT_EQ(reads, device->reads);
  EXPECT_EQ(2, Send("ab"));
}

TEST_F(SerialPortStopTest, AnOpenPortThatIsOpenedAnewHoldsOneDeviceAndReceivesFromIt) {
  ASSERT_EQ(0, Open());
  const auto earlier = std::exchange(device, std::make_shared<FakeDevice>());
  ASSERT_EQ(0, Open());
  EXPECT_FALSE(earlier->isOpen);
  device->Sends("new");
  EXPECT_TRUE(receiver.WaitFor("new"));
}

TEST_F(SerialPortStopTest, CloseDuringAReopenLeavesTheDeviceClosed) {
  ASSERT_EQ(0, Open());
  device->onOpen = [this] { (void)Eventually([this] { return device->closes == 2; }); };
  device->readFails = true;
  ASSERT_TRUE(WaitForOpens(2));
  EXPECT_EQ(0, port->Close());  // waits for the thread, which lets the reopen go on
  EXPECT_TRUE(CLinuxThread::WaitUntilNoneRuns(20'000));
  EXPECT_FALSE(device->isOpen);
}

// A thread that was given up on could open it again when another port has it.
TEST_F(SerialPortStopTest, OnlyAStopClosesTheDeviceForGood) {
  ASSERT_EQ(0, Open());
  device->readFails = true;
  ASSERT_TRUE(WaitForOpens(2));
  EXPECT_FALSE(device->isClosedForGood);
  EXPECT_EQ(0, port->Close());
  EXPECT_TRUE(device->isClosedForGood);
}

TEST_F(SerialPortStopTest,
       AThreadStuckInItsCallbackIsCancelledAfterTwoSecondsAndTouchesNothingGone) {
  int ends[2] = {-1, -1};
  ASSERT_EQ(0, pipe2(ends, O_CLOEXEC));
  std::atomic<bool> stuck{false};
  receiver.hook = [&](const uint8_t*, int) {
    char byte = 0;
    stuck = true;
    // For ever, but it can be cancelled. ThreadSanitizer loses track of a thread that is cancelled
    // within its pause or usleep.
    (void)!read(ends[0], &byte, 1);
  };
  ASSERT_EQ(0, Open());
  device->Sends("x");
  ASSERT_TRUE(Eventually([&] { return stuck.load(); }));
  const auto time = TimeOf([this] { EXPECT_EQ(0, port->Close()); });
  EXPECT_GE(time, milliseconds(1'900));
  EXPECT_LE(time, milliseconds(10'000));
  EXPECT_THAT(CapturedMessages(), ElementsAre("error: thread can not join\n"));
  port.reset();
  EXPECT_TRUE(CLinuxThread::WaitUntilNoneRuns(20'000));
  (void)close(ends[0]);
  (void)close(ends[1]);
}

TEST_F(SerialPortStopTest, AThreadThatComesBackAfterItsPortIsGoneEndsByItself) {
  std::atomic<bool> stuck{false};
  std::atomic<bool> released{false};
  std::atomic<int> goesOn{0};
  receiver.hook = [&](const uint8_t*, int) {
    int earlier = 0;
    (void)pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &earlier);  // as inside a library's call
    stuck = true;
    (void)Eventually([&] { return released.load(); });
    ++goesOn;
  };
  ASSERT_EQ(0, Open());
  device->Sends("x");
  ASSERT_TRUE(Eventually([&] { return stuck.load(); }));
  port.reset();
  EXPECT_THAT(CapturedMessages(), ElementsAre("error: thread can not join\n"));
  const int reads = device->reads;
  released = true;
  EXPECT_TRUE(CLinuxThread::WaitUntilNoneRuns(20'000));
  EXPECT_EQ(1, goesOn);
  EXPECT_EQ(reads, device->reads);
  EXPECT_FALSE(device->isOpen);
}

TEST_F(SerialPortStopTest, APortIsDestroyedCompletelyOnACancelledThread) {
  ASSERT_EQ(0, Open());
  CancelledThread thread([this] { port.reset(); });
  EXPECT_TRUE(thread.stepDone);
  EXPECT_FALSE(device->isOpen);
}

}  // namespace
