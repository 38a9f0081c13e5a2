// SPDX-License-Identifier: MIT
// Sending, and what fails.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <future>
#include <string>
#include <vector>

#include "Linux/LinuxThread.h"
#include "comm/CommCalls.h"
#include "comm/ConnectionFixture.h"
#include "support/CapturedLog.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class CommSocketFailureTest : public ConnectionFixture {
 protected:
  int SendHex(const std::string& text) {
    const std::vector<uint8_t> bytes = FromHex(text);
    return connection->Send(bytes.data(), static_cast<int>(bytes.size()));
  }
};

TEST_F(CommSocketFailureTest, SendWritesThePacketWholeAndReturnsItsLength) {
  ASSERT_EQ(0, Link());
  EXPECT_EQ(10, SendHex("000A 02 01 0003 0007 0002"));
  EXPECT_EQ("000A0201000300070002", peer.Receives(10));
  EXPECT_EQ(1, commCalls.sends);
}

TEST_F(CommSocketFailureTest, SendOf0BytesReturns0AndSendsNothing) {
  ASSERT_EQ(0, Link());
  const uint8_t byte = 0x41;
  EXPECT_EQ(0, connection->Send(&byte, 0));
  EXPECT_EQ(0, commCalls.sends);
}

TEST_F(CommSocketFailureTest, SendOfANegativeLengthReturnsItAndSendsNothing) {
  ASSERT_EQ(0, Link());
  const uint8_t byte = 0x41;
  EXPECT_EQ(-5, connection->Send(&byte, -5));
  EXPECT_EQ(0, commCalls.sends);
}

TEST_F(CommSocketFailureTest, ASendTakenInPiecesGoesOnUntilAllIsOut) {
  ASSERT_EQ(0, Link());
  commCalls.sendLimit = 3;
  EXPECT_EQ(10, SendHex("000A 02 01 0003 0007 0002"));
  EXPECT_EQ(4, commCalls.sends);
  EXPECT_EQ("000A0201000300070002", peer.Receives(10));
}

TEST_F(CommSocketFailureTest, ASocketErrorDuringSendReturnsMinus1AndLeavesTheStreamOpen) {
  ASSERT_EQ(0, Link());
  commCalls.sendLimit = 3;
  commCalls.sendsBeforeError = 2;
  EXPECT_EQ(-1, SendHex("000A 02 01 0003 0007 0002"));
  EXPECT_EQ(3, commCalls.sends);
  EXPECT_EQ("000A02010003", peer.Receives(6)) << "what was sent is not taken back";
  peer.Sends("0003 7F");
  ASSERT_TRUE(recorder.WaitForEvents(1));
  EXPECT_THAT(recorder.Events(), ElementsAre("packet 3: 00037F"));
}

TEST_F(CommSocketFailureTest, ASendOfWhichTheSocketTakesNothingReturnsMinus1) {
  ASSERT_EQ(0, Link());
  commCalls.sendLimit = 0;
  EXPECT_EQ(-1, SendHex("000A 02 01 0003 0007 0002"));
  EXPECT_EQ(1, commCalls.sends);
}

TEST_F(CommSocketFailureTest, SendWithoutALinkReturnsMinus1) { EXPECT_EQ(-1, SendHex("41")); }

TEST_F(CommSocketFailureTest, SendAfterCloseReturnsMinus1) {
  ASSERT_EQ(0, Link());
  Unlink();
  EXPECT_EQ(-1, SendHex("41"));
}

TEST_F(CommSocketFailureTest, AFailedListenReturnsTheErrnoAndLogsOneLine) {
  port.KeepForItself();
  const CommCallbacks callbacks = recorder.Callbacks();
  EXPECT_EQ(EADDRINUSE, connection->Listen(port.Number(), &callbacks));
  ASSERT_EQ(1U, CapturedLog().size());
  const LogLine line = CapturedLog().front();
  EXPECT_EQ("Module", line.module);
  EXPECT_EQ("CommSocket.cpp", line.file);
  EXPECT_THAT(line.line, testing::MatchesRegex("[1-9][0-9]*"));
  EXPECT_EQ("Tag", line.tag);
  EXPECT_EQ("Failed to open the Socket connection for RelayService.", line.message);
  EXPECT_EQ(0, line.level);
  EXPECT_TRUE(CLinuxThread::WaitUntilNoneRuns(0)) << "no thread is started";
}

TEST_F(CommSocketFailureTest, AFailedConnectReturnsTheErrnoAndLogsTheSameLine) {
  const CommCallbacks callbacks = recorder.Callbacks();
  EXPECT_EQ(ECONNREFUSED, connection->Connect(port.Number(), &callbacks));
  EXPECT_THAT(CapturedMessages(),
              ElementsAre("Failed to open the Socket connection for RelayService."));
  EXPECT_EQ(0, CapturedLog().front().level);
}

TEST_F(CommSocketFailureTest, ARefusedPeerFailsTheListenAndIsLogged) {
  const CommCallbacks callbacks = recorder.Callbacks();
  auto result =
      std::async(std::launch::async, [&] { return connection->Listen(port.Number(), &callbacks); });
  (void)output.NextLine();
  ASSERT_EQ(0, peer.ConnectTo(port.Number(), "127.0.0.2"));
  EXPECT_NE(0, result.get());
  EXPECT_THAT(CapturedMessages(),
              ElementsAre("Failed to open the Socket connection for RelayService."));
  EXPECT_THAT(recorder.Events(), IsEmpty());
}

TEST_F(CommSocketFailureTest, AFailedOpenCallsNobodyAndTheNextOneWorks) {
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

}  // namespace
