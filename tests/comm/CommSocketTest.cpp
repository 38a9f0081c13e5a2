// SPDX-License-Identifier: MIT
// What arrives: the stream cut into packets, and its end.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <string>

#include "Linux/LinuxThread.h"
#include "comm/CommCalls.h"
#include "comm/CommSocket.h"
#include "comm/ConnectionFixture.h"
#include "support/CapturedLog.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kTenBytes = "000A 02 01 0003 0007 0005";
constexpr const char* kTenBytesEvent = "packet 10: 000A0201000300070005";

class CommSocketTest : public ConnectionFixture {
 protected:
  void TearDown() override {
    ConnectionFixture::TearDown();
    commCalls.noThreads = false;
    commCalls.onSleep = nullptr;
    commCalls.onReceived = nullptr;
  }
};

TEST_F(CommSocketTest, ThePeerClosingBetweenPacketsRaisesOneConnectErrorAndNoPacket) {
  ASSERT_EQ(0, Link());
  peer.Close();
  ASSERT_TRUE(CLinuxThread::WaitUntilNoneRuns(20'000));
  EXPECT_THAT(recorder.Events(), ElementsAre(kErrorEvent));
  EXPECT_THAT(CapturedLog(), IsEmpty());
}

TEST_F(CommSocketTest, APacketWithLengthField2EndsTheConnectionWithConnectError) {
  ASSERT_EQ(0, Link());
  peer.Sends("0002");  // the peer stays
  ASSERT_TRUE(CLinuxThread::WaitUntilNoneRuns(20'000));
  EXPECT_THAT(recorder.Events(), ElementsAre(kErrorEvent));
}

TEST_F(CommSocketTest, WithoutOnReceivePacketsAreReadAndDropped) {
  CommCallbacks callbacks = recorder.Callbacks();
  callbacks.onReceive = nullptr;
  ASSERT_EQ(0, Link(&callbacks));
  peer.Sends(kTenBytes);
  peer.Close();
  ASSERT_TRUE(CLinuxThread::WaitUntilNoneRuns(20'000));
  EXPECT_THAT(recorder.Events(), ElementsAre(kErrorEvent));
}

TEST_F(CommSocketTest, WithoutOnErrorTheStreamEndsSilently) {
  CommCallbacks callbacks = recorder.Callbacks();
  callbacks.onError = nullptr;
  ASSERT_EQ(0, Link(&callbacks));
  peer.Sends(kTenBytes);
  peer.Close();
  ASSERT_TRUE(CLinuxThread::WaitUntilNoneRuns(20'000));
  EXPECT_THAT(recorder.Events(), ElementsAre(kTenBytesEvent));
}

TEST_F(CommSocketTest, CloseWhileTheReceiveThreadWaitsTakesAboutTwoSecondsAndRaisesNoError) {
  ASSERT_EQ(0, Link());
  ASSERT_TRUE(WaitUntilReceiving());
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(0, connection->Close());
  const auto elapsed = std::chrono::steady_clock::now() - start;
  EXPECT_GE(elapsed, std::chrono::seconds(2)) << "closing a socket wakes nobody";
  EXPECT_LT(elapsed, std::chrono::seconds(15));
  ASSERT_TRUE(CLinuxThread::WaitUntilNoneRuns(20'000));
  EXPECT_THAT(recorder.Events(), IsEmpty());
  EXPECT_THAT(CapturedMessages(), ElementsAre("error: thread can not join\n"));
}

TEST_F(CommSocketTest, APacketCompletedDuringCloseIsNotDelivered) {
  std::atomic<bool> complete{false};
  std::atomic<bool> closing{false};
  std::atomic<int> received{0};
  commCalls.onReceived = [&] {
    if (++received == 2) {  // the length field and the rest
      complete = true;
      (void)Eventually([&] { return closing.load(); });
    }
  };
  commCalls.onSleep = [&] { closing = true; };  // between two tries to join
  ASSERT_EQ(0, Link());
  peer.Sends("0003 7F");
  ASSERT_TRUE(Eventually([&] { return complete.load(); }));
  EXPECT_EQ(0, connection->Close());
  EXPECT_THAT(recorder.Events(), IsEmpty());
  EXPECT_THAT(CapturedLog(), IsEmpty()) << "the thread has ended by itself";
}

TEST_F(CommSocketTest, ListenReturns0WhenNoThreadCanBeMade) {
  commCalls.noThreads = true;
  EXPECT_EQ(0, Link());
  const uint8_t bytes[] = {0x0D, 0x0A};
  EXPECT_EQ(2, connection->Send(bytes, 2));
  EXPECT_EQ("0D0A", peer.Receives(2));
  EXPECT_THAT(CapturedLog(), IsEmpty());
  EXPECT_EQ(0, connection->Close());
  EXPECT_TRUE(peer.SeesEnd());
}

}  // namespace
