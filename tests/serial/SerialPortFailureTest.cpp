// SPDX-License-Identifier: MIT
// Opens that fail, and what the log says.
#include <pthread.h>

#include <cerrno>

#include "serial/SerialPortTest.h"

namespace {

bool refusesThreads = false;

}  // namespace

int threadsMade = 0;

extern "C" {

int __real_pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                          void* (*routine)(void*), void* argument);
int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                          void* (*routine)(void*), void* argument);

int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                          void* (*routine)(void*), void* argument) {
  if (refusesThreads) {
    *thread = pthread_self();  // the C library, too, leaves a handle behind
    return EAGAIN;
  }
  ++threadsMade;
  return __real_pthread_create(thread, attributes, routine, argument);
}

}  // extern "C"

namespace {

class SerialPortFailureTest : public SerialPortTest {};

using testing::ElementsAre;
using testing::IsEmpty;

TEST_F(SerialPortFailureTest, ANameThatLeadsNowhereReturnsMinus1LogsMessage0AndStartsNoThread) {
  device->node = "";
  EXPECT_EQ(-1, port->Open("#PhysicalPort1", receiver.Callback(), kSettings));
  EXPECT_THAT(CapturedMessages(), ElementsAre("Cannot open serial device. [Port ]"));
  EXPECT_EQ(0, threadsMade);
  EXPECT_EQ("", port->GetPortName());
  EXPECT_EQ(2U, port->GetOpenKind());
}

TEST_F(SerialPortFailureTest, ADeviceThatCannotBeOpenedReturnsMinus2AndLogsMessage0) {
  device->isPlugged = false;
  EXPECT_EQ(-2, Open());
  EXPECT_THAT(CapturedMessages(), ElementsAre(kCannotOpen));
  EXPECT_EQ(0, threadsMade);
  EXPECT_EQ(kName, port->GetPortName());
  EXPECT_EQ(1U, port->GetOpenKind());
}

TEST_F(SerialPortFailureTest, ALogLineHasTheOwnersModuleAndTagThisFileAndTheErrorLevel) {
  device->isPlugged = false;
  EXPECT_EQ(-2, Open());
  ASSERT_EQ(1U, CapturedLog().size());
  const LogLine logged = CapturedLog()[0];
  EXPECT_EQ("TheModule", logged.module);
  EXPECT_EQ("SerialPort.cpp", logged.file);
  EXPECT_THAT(logged.line, testing::MatchesRegex("[1-9][0-9]*"));
  EXPECT_EQ("TheTag", logged.tag);
  EXPECT_EQ(1, logged.level);
}

TEST_F(SerialPortFailureTest, OpenReturns0WhenNoThreadCanBeMade) {
  refusesThreads = true;
  EXPECT_EQ(0, Open());
  refusesThreads = false;
  EXPECT_THAT(CapturedLog(), IsEmpty());
  EXPECT_EQ(2, Send("ab"));
  EXPECT_THAT(device->writes, ElementsAre("ab"));
  EXPECT_EQ(0, device->reads);
  EXPECT_EQ(0, port->Close());
  EXPECT_EQ(1, device->closes);
}

TEST_F(SerialPortFailureTest, CloseOfANeverOpenedPortReturns0AndLogsNothing) {
  EXPECT_EQ(0, port->Close());
  EXPECT_THAT(CapturedLog(), IsEmpty());
}

TEST_F(SerialPortFailureTest, SendOnANeverOpenedPortReturnsMinus1AndLogsMessage0) {
  EXPECT_EQ(-1, Send("x"));
  EXPECT_THAT(CapturedMessages(), ElementsAre("Cannot open serial device. [Port ]"));
}

TEST_F(SerialPortFailureTest, AFailedOpenCanBeRepeated) {
  device->isPlugged = false;
  EXPECT_EQ(-2, Open());
  device->isPlugged = true;
  EXPECT_EQ(0, Open());
  device->Sends("now");
  EXPECT_TRUE(receiver.WaitFor("now"));
}

}  // namespace
