// SPDX-License-Identifier: MIT
// The device on a real line: a pseudo-terminal.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>

#include "serial/LinuxSerial.h"
#include "support/Eventually.h"
#include "support/PtyLine.h"
#include "support/StreamCapture.h"

namespace {

class LinuxSerialTest : public testing::Test {
 protected:
  static constexpr SerialSettings kSettings = {115200, 8, kParityNone, kOneStopBit, kNoFlowControl};

  void Open() { ASSERT_EQ(0, serial.Open(line.Node(), kSettings)); }

  // The next read that gives more than nothing: the kernel carries what was sent on a thread of its
  // own, which may take longer than a read waits.
  int ReadOnce(uint8_t* buffer, int capacity) {
    int count = 0;
    (void)Eventually([&] {
      count = serial.Read(buffer, capacity);
      return count != 0;
    });
    return count;
  }

  // What comes until `count` bytes are there; idle reads in between are skipped.
  std::string Read(size_t count) {
    std::string bytes;
    (void)Eventually([&] {
      uint8_t chunk[64];
      const int more = serial.Read(chunk, sizeof chunk);
      bytes.append(chunk, chunk + (more > 0 ? more : 0));
      return bytes.size() >= count || more < 0;
    });
    return bytes;
  }

  PtyLine line;
  CLinuxSerial serial;
};

TEST_F(LinuxSerialTest, OpenPrintsOneLineWithThePath) {
  StreamCapture output(STDOUT_FILENO);
  StreamCapture error(STDERR_FILENO);
  Open();
  EXPECT_EQ("OPEN[" + line.Node() + "]\n", output.Rest());
  EXPECT_EQ("", error.Rest());
}

// A pseudo-terminal has always 8 bits and no parity bit; all else it keeps.
TEST_F(LinuxSerialTest, OpenSetsRawModeAndThenTheLine) {
  ASSERT_EQ(0, serial.Open(line.Node(), {19200, 7, kParityOdd, kTwoStopBits, kXonXoff}));
  const termios set = line.Settings();
  EXPECT_EQ(B19200, cfgetospeed(&set));
  EXPECT_EQ(B19200, cfgetispeed(&set));
  EXPECT_EQ(PARODD | CSTOPB, set.c_cflag & (PARODD | CMSPAR | CSTOPB | CRTSCTS));
  EXPECT_EQ(0U, set.c_iflag & ICRNL);
  EXPECT_EQ(0U, set.c_lflag & (ECHO | ICANON));
  EXPECT_EQ(IXON | IXOFF, set.c_iflag & (IXON | IXOFF)) << "raw mode clears them";
}

TEST_F(LinuxSerialTest, OpenOfAnOpenObjectReturnsMinus2AndLeavesTheDeviceAlone) {
  Open();
  PtyLine other;
  StreamCapture output(STDOUT_FILENO);
  const int descriptors = OpenDescriptorCount();
  EXPECT_EQ(-2, serial.Open(other.Node(), kSettings));
  EXPECT_EQ("", output.Rest());
  EXPECT_EQ(descriptors, OpenDescriptorCount());
  line.Sends("still here");
  EXPECT_EQ("still here", Read(10));
}

TEST_F(LinuxSerialTest, OpenOfAMissingPathReturnsMinus1AndStaysClosed) {
  StreamCapture output(STDOUT_FILENO);
  const int descriptors = OpenDescriptorCount();
  EXPECT_EQ(-1, serial.Open("/dev/no-such-device", kSettings));
  EXPECT_EQ("", output.Rest());
  EXPECT_EQ(descriptors, OpenDescriptorCount());
  EXPECT_EQ(0, serial.Open(line.Node(), kSettings)) << "an object that failed is not open";
}

TEST_F(LinuxSerialTest, OpenOfWhatIsNoTerminalReturnsMinus1AndStaysClosed) {
  StreamCapture output(STDOUT_FILENO);
  const int descriptors = OpenDescriptorCount();
  EXPECT_EQ(-1, serial.Open("/dev/null", kSettings));
  EXPECT_EQ("", output.Rest());
  EXPECT_EQ(descriptors, OpenDescriptorCount());
}

TEST_F(LinuxSerialTest, EveryByteValuePassesUnchangedBothWays) {
  Open();
  std::string all;
  for (int value = 0; value < 256; ++value) {
    all += static_cast<char>(value);
  }
  line.Sends(all);
  EXPECT_EQ(all, Read(256));
  EXPECT_EQ(256, serial.Write(reinterpret_cast<const uint8_t*>(all.data()), 256));
  EXPECT_EQ(all, line.Receives(256));
}

TEST_F(LinuxSerialTest, ReadOnAnIdleLineReturns0AfterATenthOfASecond) {
  Open();
  uint8_t byte = 0;
  const auto time = TimeOf([&] { EXPECT_EQ(0, serial.Read(&byte, 1)); });
  EXPECT_GE(time, std::chrono::milliseconds(80));
  EXPECT_LE(time, std::chrono::milliseconds(5000));
}

TEST_F(LinuxSerialTest, ReadReturnsWhatThereIsWithoutWaitingForMore) {
  Open();
  line.Sends("abc");
  uint8_t buffer[100];
  EXPECT_EQ(3, ReadOnce(buffer, sizeof buffer));
}

TEST_F(LinuxSerialTest, ReadReturnsAtMostItsCapacity) {
  Open();
  line.Sends("abcde");
  uint8_t buffer[2];
  EXPECT_EQ(2, ReadOnce(buffer, sizeof buffer));
  EXPECT_EQ("cde", Read(3));
}

TEST_F(LinuxSerialTest, AZeroFromAHungUpLineIsAFailedReadWithEio) {
  Open();
  line.HangUp();
  uint8_t byte = 0;
  for (int i = 0; i < 3; ++i) {
    errno = 0;
    EXPECT_EQ(-1, serial.Read(&byte, 1));
    EXPECT_EQ(EIO, errno);
  }
}

TEST_F(LinuxSerialTest, ReadOfAClosedObjectFailsWithEbadf) {
  uint8_t byte = 0;
  errno = 0;
  EXPECT_EQ(-1, serial.Read(&byte, 1));
  EXPECT_EQ(EBADF, errno);
}

TEST_F(LinuxSerialTest, WriteOfAClosedObjectReturns0) {
  const uint8_t byte = 0x41;
  EXPECT_EQ(0, serial.Write(&byte, 1));
}

TEST_F(LinuxSerialTest, ConfigureOfAClosedObjectReturnsMinus1) {
  EXPECT_EQ(-1, serial.Configure(kSettings));
}

TEST_F(LinuxSerialTest, CloseOfANeverOpenedObjectReturns0) { EXPECT_EQ(0, serial.Close()); }

TEST_F(LinuxSerialTest, AClosedObjectCanBeOpenedAgain) {
  Open();
  EXPECT_EQ(0, serial.Close());
  Open();
  line.Sends("again");
  EXPECT_EQ("again", Read(5));
}

TEST_F(LinuxSerialTest, DestructionCloses) {
  const int descriptors = OpenDescriptorCount();
  {
    CLinuxSerial shortLived;
    ASSERT_EQ(0, shortLived.Open(line.Node(), kSettings));
    EXPECT_EQ(descriptors + 1, OpenDescriptorCount());
  }
  EXPECT_EQ(descriptors, OpenDescriptorCount());
}

// A child that held the line would keep an unplugged adapter's name in use.
TEST_F(LinuxSerialTest, ChildProgramsDoNotInheritTheLine) {
  Open();
  const std::string command = "! ls -l /proc/self/fd | grep -q -- '-> " + line.Node() + "$'";
  EXPECT_EQ(0, std::system(command.c_str()));
}

}  // namespace
