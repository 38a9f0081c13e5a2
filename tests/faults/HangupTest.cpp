// SPDX-License-Identifier: MIT
// The kernel takes the line away from everybody who has it open, as it does when an adapter is
// pulled out, but the node stays and can be opened again. Only the machine's administrator may ask
// for that (TIOCVHANGUP), and not from within a user namespace.
#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "faults/FaultTest.h"

namespace {

// 0, or the error number.
int HangUpLine(const std::string& node) {
  const int line = open(node.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
  const int error = ioctl(line, TIOCVHANGUP) == 0 ? 0 : errno;
  (void)close(line);
  return error;
}

class HangupTest : public FaultTable {
 protected:
  void SetUp() override {
    const Device line("/dev/ttyUSB9");
    const int error = HangUpLine(line.Path());
    if (error == EPERM) {
      ASSERT_EQ(nullptr, std::getenv("CI")) << "there it must run, and needs root";
      GTEST_SKIP() << "needs root: " << std::strerror(error);
    }
    ASSERT_EQ(0, error);
  }
};

TEST_P(HangupTest, ShowsWhatItsRowSays) { PlayRow(); }

void IsOpenAgain() {
  ASSERT_TRUE(LogFile::Shows(kDeviceClosed));
  ASSERT_TRUE(Service::Prints("OPEN[/dev/ttyS2]\n", 2));
}

void WhileIdle(FaultTest& test) {
  ASSERT_EQ(0, HangUpLine("/dev/ttyS2"));
  ASSERT_NO_FATAL_FAILURE(IsOpenAgain());
  test.ExpectDataBothWays();
}

void TenTimes(FaultTest& test) {
  for (size_t times = 1; times <= 10; ++times) {
    ASSERT_EQ(0, HangUpLine("/dev/ttyS2"));
    ASSERT_TRUE(Service::Prints("OPEN[/dev/ttyS2]\n", times + 1));
    ASSERT_NO_FATAL_FAILURE(test.ExpectDataBothWays());
  }
}

// A block whose write failed is offered again from its beginning, so the far end gets a part of it
// twice, and all that follows.
void WhileAWriteWaits(FaultTest& test) {
  const std::string block(0xF000, 'x');
  test.relay->Sends("F018 04 02 000E '#PhysicalPort0' 01 01 F000" + HexOf(block));
  ASSERT_EQ("x", test.device->Reads(1));
  test.Settle();
  ASSERT_EQ(0, HangUpLine("/dev/ttyS2"));
  ASSERT_NO_FATAL_FAILURE(IsOpenAgain());
  test.Settle();  // between its line and the end of its open the port takes no new block
  test.relay->Sends(kWriteB);
  ASSERT_EQ(block, test.device->Reads(block.size()));
  std::string rest;
  do {
    rest = test.device->Reads(1);
  } while (rest == "x");
  EXPECT_EQ("B", rest);
  test.ExpectDataBothWays();
}

void WhileClosing(FaultTest& test) {
  test.relay->Sends(kClosePort0);
  ASSERT_EQ(0, HangUpLine("/dev/ttyS2"));
  EXPECT_EQ(Wire(kPort0Closed), test.relay->NextPacket());
  ASSERT_EQ(Wire(kPort0Opened), test.relay->Answer(kOpenPort0));
  test.ExpectDataBothWays();
}

const std::vector<const char*> kNothing = {};

// clang-format off
const FaultRow kRows[] = {
    // name              state             start    happens           log              outcome
    {"WhileIdle",        State::kPortOpen, nullptr, WhileIdle,        {kDeviceClosed}, Outcome::kGoesOn},
    {"TenTimes",         State::kPortOpen, nullptr, TenTimes,         {kDeviceClosed}, Outcome::kGoesOn},
    {"WhileAWriteWaits", State::kPortOpen, nullptr, WhileAWriteWaits, {kDeviceClosed}, Outcome::kGoesOn},
    {"WhileClosing",     State::kPortOpen, nullptr, WhileClosing,     kNothing, Outcome::kGoesOn},
};
// clang-format on

INSTANTIATE_TEST_SUITE_P(Line, HangupTest, testing::ValuesIn(kRows), NameOf<FaultRow>);

}  // namespace
