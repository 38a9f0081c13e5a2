// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include "show/Progress.h"

namespace {

TEST(ProgressTest, TellsBytesRateAndTimeLeft) {
  using std::chrono::milliseconds;
  EXPECT_EQ("0 of 1048576 bytes, 0 %", ProgressText(0, 1048576, milliseconds(0)));
  EXPECT_EQ("11520 of 1048576 bytes, 1 %, 11.5 kB/s, 1:30 left",
            ProgressText(11520, 1048576, milliseconds(1000)));
  EXPECT_EQ("100 of 100 bytes, 100 %, 200.0 B/s", ProgressText(100, 100, milliseconds(500)));
  EXPECT_EQ("5000000 bytes, 5.0 MB/s", ProgressText(5000000, 0, milliseconds(1000)));
  EXPECT_EQ("1 of 7201 bytes, 0 %, 1.0 B/s, 2:00:00 left",
            ProgressText(1, 7201, milliseconds(1000)));
  EXPECT_EQ("1 of 999999999999 bytes, 0 %, 1.0 B/s, 99:59:59 left",
            ProgressText(1, 999999999999, milliseconds(1000)));
}

TEST(ProgressTest, LeavesOutWhatHasNoRoom) {
  const auto within = [](size_t columns) {
    return ProgressText(188416, 300000, std::chrono::milliseconds(10000), columns);
  };
  EXPECT_EQ("188416 of 300000 bytes, 62 %, 18.8 kB/s, 0:06 left", within(50));
  EXPECT_EQ("188416 of 300000 bytes, 62 %, 0:06 left", within(49));
  EXPECT_EQ("62 %, 0:06 left", within(38));
  EXPECT_EQ("5000000 bytes", ProgressText(5000000, 0, std::chrono::milliseconds(1000), 20));
}

}  // namespace
