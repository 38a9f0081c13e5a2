// SPDX-License-Identifier: MIT
// Opening, receiving and sending.
#include "serial/SerialPortTest.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST_F(SerialPortTest, ANewPortHasNoNameNoIdsAndOpenKind2) {
  EXPECT_EQ("", port->GetPortName());
  EXPECT_EQ(0, port->GetVendorId());
  EXPECT_EQ(0, port->GetProductId());
  EXPECT_EQ(2U, port->GetOpenKind());
}

TEST_F(SerialPortTest, OpenByNameReturns0AndHasOpenKind1) {
  EXPECT_EQ(0, Open());
  EXPECT_EQ(kName, port->GetPortName());
  EXPECT_EQ(1U, port->GetOpenKind());
  EXPECT_EQ(0, port->GetVendorId());
  EXPECT_THAT(CapturedLog(), IsEmpty());
}

TEST_F(SerialPortTest, ReceivedDataReachTheCallbackWithThePortsName) {
  ASSERT_EQ(0, Open());
  device->Sends("hello");
  EXPECT_TRUE(receiver.WaitFor("hello"));
  EXPECT_EQ(kName, receiver.Deliveries()[0].portName);
}

TEST_F(SerialPortTest, APortWhoseReceivingIsDeferredBeginsOnceAndNotBefore) {
  port->DeferReceiving();
  ASSERT_EQ(0, Open());
  EXPECT_EQ(0, threadsMade);
  device->Sends("early");
  port->BeginReceiving();
  port->BeginReceiving();
  EXPECT_TRUE(receiver.WaitFor("early"));
  EXPECT_EQ(1, threadsMade);
}

TEST_F(SerialPortTest, APortThatWasNeverOpenedDoesNotBeginToReceive) {
  port->BeginReceiving();
  EXPECT_EQ(0, threadsMade);
}

TEST_F(SerialPortTest, APortThatIsClosedBeforeItReceivesCloses) {
  port->DeferReceiving();
  ASSERT_EQ(0, Open());
  EXPECT_EQ(0, port->Close());
  EXPECT_FALSE(device->isOpen);
  EXPECT_THAT(CapturedLog(), IsEmpty());
}

TEST_F(SerialPortTest, AReceivedChunkIsDumpedToStandardErrorBeforeTheCallbackRuns) {
  StreamCapture error(STDERR_FILENO);
  std::string seen;
  receiver.hook = [&](const uint8_t*, int) { seen = error.Rest(); };
  device->Sends("AB\r");
  ASSERT_EQ(0, Open());
  ASSERT_TRUE(WaitUntilDrained());
  EXPECT_EQ("Received(3):41 42 0D \n", seen);
  EXPECT_EQ("", error.Rest());
}

TEST_F(SerialPortTest, TheDumpOfAChunkIsOneWrite) {
  int ends[2] = {-1, -1};
  ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0, ends));
  const int original = dup(STDERR_FILENO);
  ASSERT_EQ(STDERR_FILENO, dup2(ends[1], STDERR_FILENO));  // keeps each write apart
  device->Sends(std::string(4096, '\xEE'));
  ASSERT_EQ(0, Open());
  ASSERT_TRUE(WaitUntilDrained());
  std::string dump(20'000, '\0');
  dump.resize(static_cast<size_t>(std::max<ssize_t>(0, read(ends[0], dump.data(), dump.size()))));
  ASSERT_EQ(STDERR_FILENO, dup2(original, STDERR_FILENO));
  for (const int descriptor : {ends[0], ends[1], original}) {
    (void)close(descriptor);
  }
  std::string expected = "Received(4096):";
  for (int i = 0; i < 4096; ++i) {
    expected += "EE ";
  }
  EXPECT_EQ(expected + "\n", dump);
}

TEST_F(SerialPortTest, WithoutAListenerDataAreDroppedAndNothingIsPrinted) {
  StreamCapture error(STDERR_FILENO);
  device->Sends("ABC");
  device->Sends("D");
  ASSERT_EQ(0, port->Open(kName, {}, kSettings));
  ASSERT_TRUE(WaitUntilDrained());
  EXPECT_EQ("", error.Rest());
}

TEST_F(SerialPortTest, MoreThan4096BytesComeWholeAndInOrder) {
  std::string many;
  for (int i = 0; i < 4000; ++i) {
    many += std::to_string(i) + ",";
  }
  std::atomic<int> longest{0};
  receiver.hook = [&](const uint8_t*, int length) { longest = std::max(longest.load(), length); };
  ASSERT_EQ(0, Open());
  device->Sends(many);
  EXPECT_TRUE(receiver.WaitFor(many)) << receiver.Bytes().size() << " of " << many.size();
  EXPECT_EQ(0, port->Close());  // and so no delivery is under way any more
  EXPECT_LE(longest, 4096);
}

TEST_F(SerialPortTest, AChunkOf4096BytesIsOneDelivery) {
  device->Sends(std::string(4096, 'x'));
  ASSERT_EQ(0, Open());
  ASSERT_TRUE(WaitUntilDrained());
  EXPECT_EQ(std::string(4096, 'x'), receiver.Bytes());
  EXPECT_EQ(1U, receiver.Deliveries().size());
}

TEST_F(SerialPortTest, BehindAShortChunkTheBufferIsClear) {
  std::vector<uint8_t> behind;
  receiver.hook = [&](const uint8_t* data, int length) {
    behind.assign(data + length, data + 4096);
  };
  device->Sends(std::string(4096, 'x'));
  device->Sends("ab");
  ASSERT_EQ(0, Open());
  ASSERT_TRUE(WaitUntilDrained());
  EXPECT_EQ(std::vector<uint8_t>(4094, 0), behind);
}

TEST_F(SerialPortTest, SendOfLength0OnAnOpenPortReturns0) {
  ASSERT_EQ(0, Open());
  EXPECT_EQ(0, Send(""));
  EXPECT_EQ(-2, port->Send(nullptr, -2));
  EXPECT_THAT(device->writes, IsEmpty());
  EXPECT_THAT(CapturedLog(), IsEmpty());
}

TEST_F(SerialPortTest, AWriteThatReturns0IsOfferedAgain) {
  device->refusals = 3;
  ASSERT_EQ(0, Open());
  EXPECT_EQ(3, Send("abc"));
  EXPECT_THAT(device->writes, ElementsAre("abc", "abc", "abc", "abc"));
}

}  // namespace
