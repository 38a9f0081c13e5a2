// SPDX-License-Identifier: MIT
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>

#include "pty/LastWill.h"

namespace {

// Else a listening socket would still be there when it is to be made anew.
TEST(LastWillTest, HoldsNothingOfThisProcessOpen) {
  for (int round = 0; round < 20; ++round) {
    std::array<int, 2> ends{};
    ASSERT_EQ(0, pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK));
    const LastWill will([] {}, {});
    (void)close(ends[1]);
    char byte = 0;
    EXPECT_EQ(0, read(ends[0], &byte, 1));  // its end, as this was the only writing one
    (void)close(ends[0]);
  }
}

}  // namespace
