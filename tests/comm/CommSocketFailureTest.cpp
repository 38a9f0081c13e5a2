// SPDX-License-Identifier: MIT
// Sending, and what fails, over a socket that does as it is told.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "Linux/LinuxThread.h"
#include "comm/CommSocket.h"
#include "support/CapturedLog.h"

namespace {

class ObedientSocket final : public CAbstractSocket {
 public:
  int Listen(uint32_t) override { return EADDRINUSE; }
  int Connect(uint32_t) override { return ECONNREFUSED; }
  int Close() override { return 0; }
  int Send(const uint8_t* data, int length) override {
    const int result = std::min(takes.at(sends++), length);
    sent.append(data, data + std::max(result, 0));
    return result;
  }
  int Recv(uint8_t*, int) override { return -1; }

  std::vector<int> takes;  // what each Send returns
  size_t sends = 0;
  std::string sent;
};

struct SendCase {
  const char* name;
  int length;
  std::vector<int> takes;
  int result;
  const char* sent;
};

void PrintTo(const SendCase& test, std::ostream* stream) { *stream << test.name; }

class CommSocketSendTest : public testing::TestWithParam<SendCase> {};

TEST_P(CommSocketSendTest, GoesOnUntilAllIsOutOrNothingIsTaken) {
  const auto socket = std::make_shared<ObedientSocket>();
  socket->takes = GetParam().takes;
  CCommSocket connection("Module", "Tag", socket);
  const std::string text = "0123456789";
  EXPECT_EQ(GetParam().result,
            connection.Send(reinterpret_cast<const uint8_t*>(text.data()), GetParam().length));
  EXPECT_EQ(GetParam().sent, socket->sent);
  EXPECT_EQ(GetParam().takes.size(), socket->sends);
}

INSTANTIATE_TEST_SUITE_P(Outcomes, CommSocketSendTest,
                         testing::Values(SendCase{"Whole", 10, {10}, 10, "0123456789"},
                                         SendCase{"InPieces", 10, {3, 3, 3, 1}, 10, "0123456789"},
                                         SendCase{"AnErrorOnTheWay", 10, {3, 3, -1}, -1, "012345"},
                                         SendCase{"NothingIsTaken", 10, {0}, -1, ""},
                                         SendCase{"NoByte", 0, {}, 0, ""},
                                         SendCase{"NegativeLength", -5, {}, -5, ""}),
                         [](const auto& test) { return std::string(test.param.name); });

TEST(CommSocketFailureTest, AFailedOpenReturnsTheErrnoLogsOneLineAndStartsNoThread) {
  ForgetCapturedLog();
  CCommSocket connection("Module", "Tag", std::make_shared<ObedientSocket>());
  EXPECT_EQ(EADDRINUSE, connection.Listen(1, nullptr));
  EXPECT_EQ(ECONNREFUSED, connection.Connect(1, nullptr));
  ASSERT_EQ(2U, CapturedLog().size());
  for (const LogLine& line : CapturedLog()) {
    EXPECT_EQ("Module", line.module);
    EXPECT_EQ("CommSocket.cpp", line.file);
    EXPECT_THAT(line.line, testing::MatchesRegex("[1-9][0-9]*"));
    EXPECT_EQ("Tag", line.tag);
    EXPECT_EQ("Failed to open the Socket connection for RelayService.", line.message);
    EXPECT_EQ(0, line.level);
  }
  EXPECT_TRUE(CLinuxThread::WaitUntilNoneRuns(0));
}

}  // namespace
