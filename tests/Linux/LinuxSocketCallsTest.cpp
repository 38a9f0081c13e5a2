// SPDX-License-Identifier: MIT
// What CLinuxSocket asks of the kernel, call by call, and what it makes of each failure.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <ostream>
#include <string>
#include <vector>

#include "Linux/LinuxSocket.h"
#include "Linux/SocketCalls.h"
#include "support/StreamCapture.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class LinuxSocketCallsTest : public testing::Test {
 protected:
  StreamCapture output{STDOUT_FILENO};
  ScriptedKernel kernel;
  CLinuxSocket socket;
  uint8_t bytes[8] = {};
};

TEST_F(LinuxSocketCallsTest, ListenOnPort60004BindsLoopbackPrintsItsLinesAndAccepts) {
  EXPECT_EQ(0, socket.Listen(60004));
  EXPECT_THAT(
      kernel.calls,
      ElementsAre("socket(AF_INET, SOCK_STREAM, 0)", "setsockopt(1000, SO_REUSEADDR, 1, 4)",
                  "bind(1000, 127.0.0.1:60004, 16)", "listen(1000, 1)", "accept(1000, 16)"));
  EXPECT_EQ("[LISTEN]IP:127.0.0.1(PORT:60004)\n[ACCEPT]IP:127.0.0.1\n", output.Rest());
}

TEST_F(LinuxSocketCallsTest, ConnectToPort60004SetsNoOption) {
  EXPECT_EQ(0, socket.Connect(60004));
  EXPECT_THAT(kernel.calls,
              ElementsAre("socket(AF_INET, SOCK_STREAM, 0)", "connect(1000, 127.0.0.1:60004, 16)"));
  EXPECT_EQ("[CONNECT]IP:127.0.0.1(PORT:60004)\n", output.Rest());
}

TEST_F(LinuxSocketCallsTest, APortAbove65535IsCutToItsLow16BitsAndPrintedWholeAsSigned) {
  EXPECT_EQ(0, socket.Connect(0xFFFFEA64));
  EXPECT_EQ("connect(1000, 127.0.0.1:60004, 16)", kernel.calls.back());
  EXPECT_EQ("[CONNECT]IP:127.0.0.1(PORT:-5532)\n", output.Rest());
}

struct FailureCase {
  const char* call;
  int reason;
  const char* console;
  std::vector<std::string> closed;
};

void PrintTo(const FailureCase& row, std::ostream* stream) { *stream << row.call; }

std::vector<std::string> Closed(const ScriptedKernel& kernel) {
  std::vector<std::string> closed;
  for (const std::string& call : kernel.calls) {
    if (call.starts_with("close(")) {
      closed.push_back(call);
    }
  }
  return closed;
}

class ListenFailure : public LinuxSocketCallsTest,
                      public testing::WithParamInterface<FailureCase> {};

TEST_P(ListenFailure, ReturnsItsErrnoAndClosesWhatWasOpened) {
  kernel.failures[GetParam().call] = GetParam().reason;
  EXPECT_EQ(GetParam().reason, socket.Listen(60004));
  EXPECT_EQ(GetParam().closed, Closed(kernel));
  EXPECT_EQ(GetParam().console, output.Rest());
}

INSTANTIATE_TEST_SUITE_P(
    Calls, ListenFailure,
    testing::Values(FailureCase{"socket", EMFILE, "", {}},
                    FailureCase{"bind", EADDRINUSE, "", {"close(1000)"}},
                    FailureCase{"listen", EADDRINUSE, "", {"close(1000)"}},
                    FailureCase{
                        "accept", EINTR, "[LISTEN]IP:127.0.0.1(PORT:60004)\n", {"close(1000)"}}),
    testing::PrintToStringParamName());

class ConnectFailure : public LinuxSocketCallsTest,
                       public testing::WithParamInterface<FailureCase> {};

TEST_P(ConnectFailure, ReturnsItsErrnoAndClosesWhatWasOpened) {
  kernel.failures[GetParam().call] = GetParam().reason;
  EXPECT_EQ(GetParam().reason, socket.Connect(60004));
  EXPECT_EQ(GetParam().closed, Closed(kernel));
  EXPECT_EQ("", output.Rest());
}

INSTANTIATE_TEST_SUITE_P(Calls, ConnectFailure,
                         testing::Values(FailureCase{"socket", EMFILE, "", {}},
                                         FailureCase{"connect", ETIMEDOUT, "", {"close(1000)"}}),
                         testing::PrintToStringParamName());

TEST_F(LinuxSocketCallsTest, ARefusedAddressReuseIsNotLookedAt) {
  kernel.failures["setsockopt"] = ENOPROTOOPT;
  EXPECT_EQ(0, socket.Listen(60004));
}

TEST_F(LinuxSocketCallsTest, ARefusedPeerReturnsTheErrnoThatStandsAndClosesBothDescriptors) {
  kernel.peerAddress = "127.0.0.2";
  errno = ENOENT;
  EXPECT_EQ(ENOENT, socket.Listen(60004));
  EXPECT_THAT(Closed(kernel), ElementsAre("close(1001)", "close(1000)"));
  EXPECT_EQ("[LISTEN]IP:127.0.0.1(PORT:60004)\n[ACCEPT]IP:127.0.0.2\n", output.Rest());
}

TEST_F(LinuxSocketCallsTest, ARefusedPeerReturnsAnErrorAlsoWhenErrnoIs0) {
  kernel.peerAddress = "127.0.0.2";
  errno = 0;
  EXPECT_NE(0, socket.Listen(60004));
}

TEST_F(LinuxSocketCallsTest, CloseLetsTheConnectionGoBeforeTheListeningEnd) {
  ASSERT_EQ(0, socket.Listen(60004));
  EXPECT_EQ(0, socket.Close());
  EXPECT_EQ(0, socket.Close());
  EXPECT_THAT(Closed(kernel), ElementsAre("close(1001)", "close(1000)"));
}

TEST_F(LinuxSocketCallsTest, ACloseThatFailsIsNotRepeated) {
  ASSERT_EQ(0, socket.Connect(60004));
  kernel.failures["close"] = EINTR;
  EXPECT_EQ(0, socket.Close());
  EXPECT_EQ(0, socket.Close());
  EXPECT_THAT(Closed(kernel), ElementsAre("close(1000)"));
}

TEST_F(LinuxSocketCallsTest, SendIsOneCallWithoutFlagsAndItsResultIsReturnedUnchanged) {
  ASSERT_EQ(0, socket.Listen(60004));
  for (const int result : {8, 3, 0}) {
    kernel.calls.clear();
    kernel.transferred = result;
    EXPECT_EQ(result, socket.Send(bytes, 8));
    EXPECT_THAT(kernel.calls, ElementsAre("send(1001, 8, 0)"));
  }
  kernel.failures["send"] = EPIPE;
  EXPECT_EQ(-1, socket.Send(bytes, 8));
  EXPECT_THAT(Closed(kernel), IsEmpty());
}

TEST_F(LinuxSocketCallsTest, RecvIsOneCallWithoutFlagsWhoseResultsBelow1AreMinus1) {
  ASSERT_EQ(0, socket.Listen(60004));
  kernel.calls.clear();
  kernel.transferred = 5;
  EXPECT_EQ(5, socket.Recv(bytes, 8));
  EXPECT_THAT(kernel.calls, ElementsAre("recv(1001, 8, 0)"));
  kernel.transferred = 0;
  EXPECT_EQ(-1, socket.Recv(bytes, 8));
  kernel.failures["recv"] = ECONNRESET;
  EXPECT_EQ(-1, socket.Recv(bytes, 8));
  EXPECT_THAT(Closed(kernel), IsEmpty());
}

}  // namespace
