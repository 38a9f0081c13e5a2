// SPDX-License-Identifier: MIT
// The life of a connection: opened, closed, opened again, destroyed.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <string>

#include "Linux/CancellationShield.h"
#include "Linux/LinuxThread.h"
#include "comm/CommCalls.h"
#include "comm/ConnectionFixture.h"
#include "support/CancelledThread.h"
#include "support/CapturedLog.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class CommSocketLinkTest : public ConnectionFixture {
 protected:
  void TearDown() override {
    commCalls.onSleep = nullptr;
    ConnectionFixture::TearDown();
  }
};

TEST_F(CommSocketLinkTest, AfterConnectErrorASecondListenWithoutCloseReturns0AndDoesNothing) {
  ASSERT_EQ(0, Link());
  peer.Close();
  ASSERT_TRUE(CLinuxThread::WaitUntilNoneRuns(20'000));
  const CommCallbacks callbacks = recorder.Callbacks();
  EXPECT_EQ(0, connection->Listen(port.Number(), &callbacks));
  EXPECT_EQ("", output.Rest());
  LoopbackPeer second;
  ASSERT_EQ(0, second.ConnectTo(port.Number()));  // into the backlog
  second.Sends("0003 7F");
  EXPECT_TRUE(CLinuxThread::WaitUntilNoneRuns(0));
  EXPECT_EQ(0, connection->Close());
  EXPECT_TRUE(second.SeesEnd());
  EXPECT_THAT(recorder.Events(), ElementsAre(kErrorEvent));
}

TEST_F(CommSocketLinkTest, ASecondListenWhileTheLinkStandsReplacesTheCallbacks) {
  ASSERT_EQ(0, Link());
  Recorder replacement;
  const CommCallbacks callbacks = replacement.Callbacks();
  EXPECT_EQ(0, connection->Listen(port.Number(), &callbacks));
  EXPECT_EQ("", output.Rest());
  peer.Sends("0003 7F");
  ASSERT_TRUE(replacement.WaitForEvents(1));
  Unlink();
  EXPECT_THAT(replacement.Events(), ElementsAre("packet 3: 00037F", kErrorEvent));
  EXPECT_THAT(recorder.Events(), IsEmpty());
}

TEST_F(CommSocketLinkTest, ConnectOpensTheLinkAsTheClient) {
  peer.ListenOn(port.Number());
  const CommCallbacks callbacks = recorder.Callbacks();
  ASSERT_EQ(0, connection->Connect(port.Number(), &callbacks));
  EXPECT_EQ("[CONNECT]IP:127.0.0.1(PORT:" + std::to_string(port.Number()) + ")\n",
            output.NextLine());
  peer.Accept();
  peer.Sends("0003 7F");
  ASSERT_TRUE(recorder.WaitForEvents(1));
  EXPECT_THAT(recorder.Events(), ElementsAre("packet 3: 00037F"));
}

TEST_F(CommSocketLinkTest, TheDescriptorsStayOpenBetweenConnectErrorAndClose) {
  ASSERT_EQ(0, Link());
  peer.Sends("0002");
  ASSERT_TRUE(CLinuxThread::WaitUntilNoneRuns(20'000));
  const uint8_t byte = 0x41;
  EXPECT_EQ(1, connection->Send(&byte, 1));
  EXPECT_EQ("41", peer.Receives(1));
}

TEST_F(CommSocketLinkTest, DestructionClosesTheStream) {
  ASSERT_EQ(0, Link());
  peer.Sends("0002");
  ASSERT_TRUE(CLinuxThread::WaitUntilNoneRuns(20'000));
  connection.reset();
  EXPECT_TRUE(peer.SeesEnd());
}

TEST_F(CommSocketLinkTest, AFailedOpenCallsNobodyAndTheNextOneWorks) {
  port.KeepForItself();
  Recorder ofFailure;
  const CommCallbacks callbacks = ofFailure.Callbacks();
  EXPECT_EQ(EADDRINUSE, connection->Listen(port.Number(), &callbacks));
  port.Share();
  ASSERT_EQ(0, Link());
  peer.Sends("0003 7F");
  ASSERT_TRUE(recorder.WaitForEvents(1));
  EXPECT_THAT(ofFailure.Events(), IsEmpty());
}

// A callback in which a cancellation does not take effect until it is let go.
struct BusyOwner {
  static int OnReceive(const uint8_t* packet, uint32_t length, void* context) {
    auto* self = static_cast<BusyOwner*>(context);
    const CCancellationShield shield;
    self->entered = true;
    (void)Eventually([self] { return self->letGo.load(); });
    self->seen = ToHex(packet, length);  // the connection's own bytes
    return 0;
  }

  std::atomic<bool> entered{false};
  std::atomic<bool> letGo{false};
  std::string seen;
};

TEST_F(CommSocketLinkTest, ACloseThatInterruptsACloseReturns0AndLeavesTheWorkToIt) {
  BusyOwner owner;
  const CommCallbacks callbacks{BusyOwner::OnReceive, nullptr, &owner};
  ASSERT_EQ(0, Link(&callbacks));
  peer.Sends("0003 7F");
  ASSERT_TRUE(Eventually([&owner] { return owner.entered.load(); }));
  int inner = 0;
  commCalls.onSleep = [&] {
    EXPECT_EQ(0, connection->Close());
    ++inner;
  };
  EXPECT_EQ(0, connection->Close());
  EXPECT_EQ(20, inner) << "the outer one went through all its tries";
  EXPECT_THAT(CapturedMessages(), ElementsAre("error: thread can not join\n"));
  commCalls.onSleep = nullptr;
  owner.letGo = true;
  EXPECT_TRUE(CLinuxThread::WaitUntilNoneRuns(20'000));
}

TEST_F(CommSocketLinkTest, ADetachedReceiveThreadOutlivesItsConnectionAndTouchesNothingGone) {
  BusyOwner owner;
  const CommCallbacks callbacks{BusyOwner::OnReceive, nullptr, &owner};
  ASSERT_EQ(0, Link(&callbacks));
  peer.Sends("0003 7F  0003 80");
  ASSERT_TRUE(Eventually([&owner] { return owner.entered.load(); }));
  connection.reset();  // gives the thread up after about two seconds
  EXPECT_FALSE(CLinuxThread::WaitUntilNoneRuns(0));
  owner.letGo = true;
  ASSERT_TRUE(CLinuxThread::WaitUntilNoneRuns(20'000));
  EXPECT_EQ("00037F", owner.seen) << "the second packet is not delivered";
}

TEST_F(CommSocketLinkTest, AThreadThatCloseGaveUpOnStaysStoppedWhenTheLinkIsOpenedAgain) {
  BusyOwner owner;
  const CommCallbacks callbacks{BusyOwner::OnReceive, nullptr, &owner};
  ASSERT_EQ(0, Link(&callbacks));
  peer.Sends("0003 7F");
  ASSERT_TRUE(Eventually([&owner] { return owner.entered.load(); }));
  EXPECT_EQ(0, connection->Close());
  peer.Close();
  ASSERT_EQ(0, Link());
  owner.letGo = true;
  peer.Sends("0003 01  0003 02");
  ASSERT_TRUE(recorder.WaitForEvents(2));
  EXPECT_THAT(recorder.Events(), ElementsAre("packet 3: 000301", "packet 3: 000302"));
  Unlink();
  EXPECT_EQ("00037F", owner.seen);
}

TEST_F(CommSocketLinkTest, AConnectionIsDestroyedCompletelyOnACancelledThread) {
  ASSERT_EQ(0, Link());
  ASSERT_TRUE(WaitUntilReceiving());
  commCalls.onSleep = [this] { peer.Close(); };  // the thread has still to be waited for
  CancelledThread thread([this] { connection.reset(); });
  EXPECT_TRUE(thread.stepDone);
  EXPECT_TRUE(CLinuxThread::WaitUntilNoneRuns(0));
}

}  // namespace
