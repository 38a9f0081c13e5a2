// SPDX-License-Identifier: MIT
// Closing, and threads that outlive it.
#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>

#include "Linux/CancellationShield.h"
#include "serial/SerialPortTest.h"

namespace {

class SerialPortStopTest : public SerialPortTest {};

using std::chrono::steady_clock;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr unsigned kJoinPause = 100'000;  // microseconds

double MillisecondsSince(steady_clock::time_point start) {
  return std::chrono::duration<double, std::milli>(steady_clock::now() - start).count();
}

TEST_F(SerialPortStopTest, CloseClosesTheDeviceAndEndsTheThread) {
  const int descriptors = OpenDescriptorCount();
  ASSERT_EQ(0, Open());
  EXPECT_EQ(descriptors + 1, OpenDescriptorCount());
  EXPECT_EQ(0, port->Close());
  EXPECT_EQ(descriptors, OpenDescriptorCount());
  EXPECT_TRUE(CLinuxThread::WaitUntilNoneRuns(0));
  EXPECT_THAT(CapturedLog(), IsEmpty());
}

TEST_F(SerialPortStopTest, DestructionClosesTheDeviceAndEndsTheThread) {
  const int descriptors = OpenDescriptorCount();
  ASSERT_EQ(0, Open());
  port.reset();
  EXPECT_EQ(descriptors, OpenDescriptorCount());
  EXPECT_TRUE(CLinuxThread::WaitUntilNoneRuns(0));
}

TEST_F(SerialPortStopTest, AReadThatFailsBecauseOfTheCloseOnlyPrintsRecvError) {
  StreamCapture output(STDOUT_FILENO);
  StreamCapture error(STDERR_FILENO);
  std::atomic<bool> isReading{false};
  UseFakeDevice();
  device->onRead = [&](uint8_t*, int) {
    isReading = true;
    (void)Eventually([&] { return device->isClosed.load(); });
    errno = EBADF;
    return -1;
  };
  ASSERT_EQ(0, Open());
  ASSERT_TRUE(Eventually([&] { return isReading.load(); }));
  EXPECT_EQ(0, port->Close());
  EXPECT_EQ("recv error:Bad file descriptor\n", error.Rest());
  EXPECT_EQ("", output.Rest());
  EXPECT_THAT(CapturedLog(), IsEmpty());
}

TEST_F(SerialPortStopTest, AClosedPortThatIsOpenedAnewDoesNotReceive) {
  ASSERT_EQ(0, Open());
  EXPECT_EQ(0, port->Close());
  calls.Forget();
  EXPECT_EQ(0, Open());
  EXPECT_TRUE(CLinuxThread::WaitUntilNoneRuns(20'000)) << "its thread ends by itself";
  EXPECT_EQ(0, calls.Count("read"));
  EXPECT_EQ(2, Send("ab"));
}

TEST_F(SerialPortStopTest, AnOpenPortThatIsOpenedAnewHoldsOneDeviceAndReceivesFromIt) {
  const int descriptors = OpenDescriptorCount();
  ASSERT_EQ(0, Open());
  ASSERT_EQ(0, Open());
  EXPECT_EQ(descriptors + 1, OpenDescriptorCount());
  line->Sends("new");
  EXPECT_TRUE(receiver.WaitFor("new"));
}

TEST_F(SerialPortStopTest, CloseDuringAReopenLeavesTheDeviceClosed) {
  std::atomic<bool> released{false};
  const int descriptors = OpenDescriptorCount();
  ASSERT_EQ(0, Open());
  calls.OnOpen([&] { (void)Eventually([&] { return released.load(); }); });
  calls.OnSleep([&](unsigned micro) { released = released || micro == kJoinPause; });
  calls.Fail("read", EIO);
  ASSERT_TRUE(WaitForOpens(2));
  EXPECT_EQ(0, port->Close());  // waits for the thread, which lets the reopen go on
  EXPECT_TRUE(CLinuxThread::WaitUntilNoneRuns(20'000));
  EXPECT_EQ(descriptors, OpenDescriptorCount());
  EXPECT_EQ("close()", calls.Texts().back());
}

// An adapter that does not answer can hold open for seconds. The C library acts on a cancellation
// that came meanwhile on its way out of open, although open has succeeded.
TEST_F(SerialPortStopTest, AReopenThatSucceedsAfterItsThreadIsCancelledLeavesNoDescriptor) {
  std::atomic<bool> isClosed{false};
  const int descriptors = OpenDescriptorCount();
  ASSERT_EQ(0, Open());
  calls.OnOpened([&] {
    {
      const CCancellationShield uninterruptible;
      (void)Eventually([&] { return isClosed.load(); });
    }
    pthread_testcancel();
  });
  // ThreadSanitizer loses track of a thread that is cancelled within its usleep.
  calls.OnSleep([](unsigned) { pthread_testcancel(); });
  calls.Fail("read", EIO);
  ASSERT_TRUE(WaitForOpens(2));
  EXPECT_EQ(0, port->Close());
  EXPECT_THAT(CapturedMessages(), testing::Contains("error: thread can not join\n"));
  calls.Forget();
  isClosed = true;
  EXPECT_TRUE(CLinuxThread::WaitUntilNoneRuns(20'000));
  EXPECT_EQ(descriptors, OpenDescriptorCount());
  EXPECT_THAT(calls.Texts(), ElementsAre("close()")) << "the line is another port's by now";
}

TEST_F(SerialPortStopTest,
       AThreadStuckInItsCallbackIsCancelledAfterTwoSecondsAndTouchesNothingGone) {
  int ends[2] = {-1, -1};
  ASSERT_EQ(0, pipe(ends));
  std::atomic<bool> stuck{false};
  receiver.hook = [&](const uint8_t*, int) {
    char byte = 0;
    stuck = true;
    (void)!read(ends[0], &byte, 1);  // for ever, but it can be cancelled
  };
  ASSERT_EQ(0, Open());
  line->Sends("x");
  ASSERT_TRUE(Eventually([&] { return stuck.load(); }));
  const auto start = steady_clock::now();
  EXPECT_EQ(0, port->Close());
  EXPECT_GE(MillisecondsSince(start), 1900);
  EXPECT_LE(MillisecondsSince(start), 10'000);
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
  const int descriptors = OpenDescriptorCount();
  ASSERT_EQ(0, Open());
  line->Sends("x");
  ASSERT_TRUE(Eventually([&] { return stuck.load(); }));
  port.reset();
  EXPECT_THAT(CapturedMessages(), ElementsAre("error: thread can not join\n"));
  const int reads = calls.Count("read");
  released = true;
  EXPECT_TRUE(CLinuxThread::WaitUntilNoneRuns(20'000));
  EXPECT_EQ(1, goesOn);
  EXPECT_EQ(reads, calls.Count("read"));
  EXPECT_EQ(descriptors, OpenDescriptorCount());
}

}  // namespace
