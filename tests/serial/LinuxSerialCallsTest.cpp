// SPDX-License-Identifier: MIT
// What the device asks of the kernel, and what it makes of refusals.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <ostream>

#include "serial/LinuxSerial.h"
#include "support/PtyLine.h"
#include "support/SerialCalls.h"
#include "support/StreamCapture.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kNode = "/dev/ttyS2";
constexpr SerialSettings kSettings = {115200, 8, kParityNone, kOneStopBit, kNoFlowControl};
constexpr uint8_t kBytes[] = {0x41, 0x42, 0x43, 0x44, 0x45};

// As the last user of the line may have left it: every flag set.
termios Dirty() {
  termios attributes{};
  attributes.c_iflag = ~tcflag_t{0};
  attributes.c_oflag = ~tcflag_t{0};
  attributes.c_lflag = ~tcflag_t{0};
  attributes.c_cflag = CSIZE | PARENB | PARODD | CMSPAR | CSTOPB | CRTSCTS | HUPCL;
  attributes.c_cc[VMIN] = 7;
  attributes.c_cc[VTIME] = 7;
  return attributes;
}

class LinuxSerialCallsTest : public testing::Test {
 protected:
  void SetUp() override { calls.Follow(kNode, line.Node()); }

  void Open() {
    ASSERT_EQ(0, serial.Open(kNode, kSettings));
    calls.Forget();
  }

  // What the line is after an Open of a dirty one with these settings.
  termios Opened(const SerialSettings& settings) {
    calls.KeepAttributes(Dirty());
    EXPECT_EQ(0, serial.Open(kNode, settings));
    return calls.Attributes();
  }

  PtyLine line;
  SerialCalls calls;
  CLinuxSerial serial;
};

TEST_F(LinuxSerialCallsTest, CloseDropsDtrThenDiscardsThenCloses) {
  Open();
  EXPECT_EQ(0, serial.Close());
  EXPECT_THAT(calls.Texts(), ElementsAre("ioctl(TIOCMBIC, 2)", "tcflush(TCIOFLUSH)", "close()"));
}

TEST_F(LinuxSerialCallsTest, CloseIgnoresALineWithoutModemLinesOrWithNothingToDiscard) {
  Open();
  calls.Fail("ioctl", ENOTTY);
  calls.Fail("tcflush", EIO);
  EXPECT_EQ(0, serial.Close());
  EXPECT_EQ(1, calls.Count("close"));
}

TEST_F(LinuxSerialCallsTest, ACloseThatFailsReturnsMinus1AndKeepsTheDescriptor) {
  Open();
  const int descriptors = OpenDescriptorCount();
  calls.Fail("close", EIO);
  EXPECT_EQ(-1, serial.Close());
  EXPECT_EQ(-2, serial.Open(kNode, kSettings));
  EXPECT_EQ(5, serial.Write(kBytes, 5));
  EXPECT_EQ("ABCDE", line.Receives(5));
  EXPECT_EQ(0, serial.Close());
  EXPECT_EQ(descriptors - 1, OpenDescriptorCount());
}

struct OpenFailure {
  const char* name;
  const char* call;
  int after;  // calls of that name that succeed
};

void PrintTo(const OpenFailure& test, std::ostream* stream) { *stream << test.name; }

class OpenFailureTest : public LinuxSerialCallsTest,
                        public testing::WithParamInterface<OpenFailure> {};

TEST_P(OpenFailureTest, ClosesTheDeviceAgainAndReturnsMinus1) {
  const int descriptors = OpenDescriptorCount();
  calls.Fail(GetParam().call, EIO, 1, GetParam().after);
  {
    StreamCapture output(STDOUT_FILENO);
    EXPECT_EQ(-1, serial.Open(kNode, kSettings));
    EXPECT_EQ("", output.Rest());
  }
  EXPECT_EQ(descriptors, OpenDescriptorCount());
  EXPECT_EQ(1, calls.Count("ioctl"));
  EXPECT_EQ("close()", calls.Texts().back());
  EXPECT_EQ(0, serial.Open(kNode, kSettings));
}

INSTANTIATE_TEST_SUITE_P(Failing, OpenFailureTest,
                         testing::Values(OpenFailure{"ReadingTheAttributes", "tcgetattr", 0},
                                         OpenFailure{"SettingRawMode", "tcsetattr", 0},
                                         OpenFailure{"ReadingTheAttributesForTheSettings",
                                                     "tcgetattr", 1},
                                         OpenFailure{"SettingTheLine", "tcsetattr", 1},
                                         OpenFailure{"DiscardingWhatIsPending", "tcflush", 0}),
                         [](const auto& test) { return std::string(test.param.name); });

TEST_F(LinuxSerialCallsTest, OpenSetsRawModeBeforeTheSettings) {
  (void)Opened({19200, 7, kParityEven, kTwoStopBits, kXonXoff});
  ASSERT_EQ(2U, calls.Settings().size());
  const termios raw = calls.Settings()[0];
  EXPECT_EQ(CS8 | CLOCAL | CREAD | HUPCL,
            raw.c_cflag & (CSIZE | PARENB | CSTOPB | CRTSCTS | CLOCAL | CREAD | HUPCL));
  EXPECT_EQ(
      0U, raw.c_iflag & (IGNBRK | BRKINT | PARMRK | ISTRIP | INLCR | IGNCR | ICRNL | IXON | IXOFF));
  EXPECT_EQ(0U, raw.c_oflag & OPOST);
  EXPECT_EQ(0U, raw.c_lflag & (ECHO | ECHONL | ICANON | ISIG | IEXTEN));
  EXPECT_EQ(0, raw.c_cc[VMIN]);
  EXPECT_EQ(1, raw.c_cc[VTIME]);
}

TEST_F(LinuxSerialCallsTest, OpenThenSetsTheLine) {
  const termios set = Opened({19200, 7, kParityOdd, kTwoStopBits, kHardwareFlowControl});
  EXPECT_EQ(B19200, cfgetospeed(&set));
  EXPECT_EQ(B19200, cfgetispeed(&set));
  EXPECT_EQ(CS7 | PARENB | PARODD | CSTOPB | CRTSCTS | CLOCAL | CREAD,
            set.c_cflag & (CSIZE | PARENB | PARODD | CMSPAR | CSTOPB | CRTSCTS | CLOCAL | CREAD));
  EXPECT_EQ(0, set.c_cc[VMIN]);
  EXPECT_EQ(1, set.c_cc[VTIME]);
}

TEST_F(LinuxSerialCallsTest, WriteOfLength0OrLessReturnsTheLengthWithoutACall) {
  Open();
  EXPECT_EQ(0, serial.Write(kBytes, 0));
  EXPECT_EQ(-3, serial.Write(kBytes, -3));
  EXPECT_THAT(calls.Texts(), IsEmpty());
}

TEST_F(LinuxSerialCallsTest, WriteContinuesShortWritesWhereTheyStopped) {
  Open();
  calls.OnWrite([](size_t count) { return count > 2 ? 2 : 1; });
  EXPECT_EQ(5, serial.Write(kBytes, 5));
  EXPECT_THAT(calls.Texts(), ElementsAre("write(5)", "write(3)", "write(1)"));
  EXPECT_EQ("ABCDE", line.Receives(5));
}

TEST_F(LinuxSerialCallsTest, AWriteThatReturns0MakesWriteReturn0) {
  Open();
  calls.OnWrite([](size_t) { return 0; });
  EXPECT_EQ(0, serial.Write(kBytes, 5));
  EXPECT_EQ(1, calls.Count("write"));
}

TEST_F(LinuxSerialCallsTest, AWriteThatFailsMakesWriteReturn0) {
  Open();
  calls.Fail("write", EIO);
  EXPECT_EQ(0, serial.Write(kBytes, 5));
  EXPECT_EQ(1, calls.Count("write"));
}

TEST_F(LinuxSerialCallsTest, AReadThatFailsReturnsMinus1WithItsErrno) {
  Open();
  calls.Fail("read", EINTR);
  uint8_t byte = 0;
  EXPECT_EQ(-1, serial.Read(&byte, 1));
  EXPECT_EQ(EINTR, errno);
  EXPECT_EQ(1, calls.Count("read")) << "it is not tried again";
}

}  // namespace
