// SPDX-License-Identifier: MIT
// What doctor says of a service that runs.
#include "relayctl/RelayctlTest.h"

namespace {

#define EXPECT_HAS(text, part) \
  EXPECT_NE(std::string::npos, std::string(text).find(part)) << "in:\n" << (text)

class DoctorCommandTest : public RelayctlTest {};

TEST_F(DoctorCommandTest, TellsWhatTheLibraryComplainsAboutOnceAndLogsNothing) {
  StartListening();
  workplace::WriteWhole(workplace::kConfiguration, "[connect]\nport = 60004\nnonsense\n");
  const std::string log = workplace::ReadWhole(workplace::kLog);
  const Outcome outcome = RunShell("KXLOGGER_FILE=/tmp/e2e/log relayctl doctor");
  EXPECT_HAS(outcome.output,
             "  fault          the configuration counts as empty: /tmp/e2e/vost.conf:3: neither "
             "comment, [section] nor key = value\n"
             "                 -> mend /tmp/e2e/vost.conf\n");
  EXPECT_EQ(outcome.output.find("neither comment"), outcome.output.rfind("neither comment"));
  EXPECT_EQ(7, outcome.status);
  EXPECT_EQ(log, workplace::ReadWhole(workplace::kLog));
}

}  // namespace
