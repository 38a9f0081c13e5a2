// SPDX-License-Identifier: MIT
// That a difference is told, and where.
#include <gtest/gtest.h>

#include "recordings/Player.h"

namespace {

std::string Played(const std::string& text) { return Player().Play(text, "x"); }

TEST(PlayerTest, TellsAReplyThatIsDifferent) {
  EXPECT_EQ("x:2: 0.5 < X close 0: came 00 09 02 02 00 01 58 00 02",
            Played("0 > X close\n0.5 < X close 0\n"));
}

TEST(PlayerTest, TellsAReplyThatWasNotRecorded) {
  EXPECT_EQ("x:1: the end: came 00 09 02 02 00 01 58 00 02", Played("0 > X close\n"));
}

TEST(PlayerTest, TellsThatTheServiceEndedTheLink) {
  EXPECT_EQ("x:2: 0.5 < X close 0: came closed", Played("0 > - packet 0002\n0.5 < X close 0\n"));
}

TEST(PlayerTest, TellsThatTheServiceEnded) {
  EXPECT_EQ("x:2: ;; ends exit 0: signal 6", Played("0 > 0403:6001 close\n;; ends exit 0\n"));
}

TEST(PlayerTest, TellsALineOfTheLogThatIsDifferentAndOneTooMuch) {
  EXPECT_EQ("x:2: ;; log 1 Command parse failed.: came 3 close command proc.",
            Played("0 > X close\n;; log 1 Command parse failed.\n0 < X close 2\n"));
  EXPECT_EQ(
      "x:5: the end: there is more in the log: 3 close command proc.\n"
      "3 close command proc.\n",
      Played("0 > X close\n0 < X close 2\n;; log 3 close command proc.\n"
             "0 > - packet 0007 02 02 0001 59\n0 < Y close 2\n"));
}

TEST(PlayerTest, TellsBytesOfADeviceThatHasNone) {
  EXPECT_EQ("x:1: 0 < #PhysicalPort0 data 41: that port is not open, or has no device",
            Played("0 < #PhysicalPort0 data 41\n"));
}

TEST(PlayerTest, TellsAMistakeInTheRecording) {
  EXPECT_EQ("x:1: ;; plugs X: there is no such instruction", Played(";; plugs X\n"));
  EXPECT_EQ("x:0: the whole: x:2: \"Y\" is none of open, close, data, packet",
            Played("0 > X close\n0 > X Y\n"));
}

TEST(PlayerTest, TellsBytesThatWereNotRecorded) {
  EXPECT_EQ("x:4: the end: there is more: #PhysicalPort0 sent 41",
            Played("0 > #PhysicalPort0 open\n"
                   "0 < #PhysicalPort0 open 0\n"
                   ";; sends #PhysicalPort0 41\n"
                   ";; err Received(1):41\n"));
}

}  // namespace
