// SPDX-License-Identifier: MIT
// Opens that fail, and what the log says.
#include <unistd.h>

#include <cerrno>

#include "serial/SerialPortTest.h"

namespace {

class SerialPortFailureTest : public SerialPortTest {};

using testing::ElementsAre;
using testing::IsEmpty;

TEST_F(SerialPortFailureTest, ANameThatLeadsNowhereReturnsMinus1LogsMessage0AndStartsNoThread) {
  EXPECT_EQ(-1, port->Open("#PhysicalPort1", receiver.Callback(), kSettings));
  EXPECT_THAT(CapturedMessages(), ElementsAre("Cannot open serial device. [Port ]"));
  EXPECT_EQ(0, calls.Count("pthread_create"));
  EXPECT_EQ("", port->GetPortName());
  EXPECT_EQ(2U, port->GetOpenKind());
}

TEST_F(SerialPortFailureTest, ADeviceThatCannotBeOpenedReturnsMinus2AndLogsMessage0) {
  Unplug();
  EXPECT_EQ(-2, Open());
  EXPECT_THAT(CapturedMessages(), ElementsAre(kCannotOpen));
  EXPECT_EQ(0, calls.Count("pthread_create"));
  EXPECT_EQ(kName, port->GetPortName());
  EXPECT_EQ(1U, port->GetOpenKind());
}

TEST_F(SerialPortFailureTest, ALogLineHasTheOwnersModuleAndTagThisFileAndTheErrorLevel) {
  Unplug();
  EXPECT_EQ(-2, Open());
  ASSERT_EQ(1U, CapturedLog().size());
  const LogLine logged = CapturedLog()[0];
  EXPECT_EQ("TheModule", logged.module);
  EXPECT_EQ("SerialPort.cpp", logged.file);
  EXPECT_GT(std::stoi(logged.line), 0);
  EXPECT_EQ(std::to_string(std::stoi(logged.line)), logged.line);
  EXPECT_EQ("TheTag", logged.tag);
  EXPECT_EQ(1, logged.level);
}

TEST_F(SerialPortFailureTest, OpenReturns0WhenNoThreadCanBeMade) {
  calls.RefuseThreads();
  EXPECT_EQ(0, Open());
  EXPECT_THAT(CapturedLog(), IsEmpty());
  EXPECT_EQ(2, Send("ab"));
  EXPECT_EQ("ab", line->Receives(2));
  line->Sends("unheard");
  EXPECT_EQ(0, calls.Count("read"));
  EXPECT_EQ(0, port->Close());
  EXPECT_EQ(1, calls.Count("close"));
}

TEST_F(SerialPortFailureTest, CloseOfANeverOpenedPortReturns0AndLogsNothing) {
  EXPECT_EQ(0, port->Close());
  EXPECT_THAT(CapturedLog(), IsEmpty());
  EXPECT_THAT(calls.Texts(), IsEmpty());
}

TEST_F(SerialPortFailureTest, SendOnANeverOpenedPortReturnsMinus1AndLogsMessage0) {
  EXPECT_EQ(-1, Send("x"));
  EXPECT_THAT(CapturedMessages(), ElementsAre("Cannot open serial device. [Port ]"));
}

TEST_F(SerialPortFailureTest, AFailedOpenCanBeRepeated) {
  calls.Fail("open", ENOENT);
  EXPECT_EQ(-2, Open());
  EXPECT_EQ(0, Open());
  line->Sends("now");
  EXPECT_TRUE(receiver.WaitFor("now"));
}

}  // namespace
