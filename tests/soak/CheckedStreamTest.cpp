// SPDX-License-Identifier: MIT
// The soak's own judge: what it lets pass, and what it does not.
#include <gtest/gtest.h>

#include "soak/CheckedStream.h"

namespace {

constexpr size_t kFrame = kFrameBytes;

class CheckedStreamTest : public testing::Test {
 protected:
  CheckedStreamTest() { stream.BorderEnds(); }

  void SendAndArrive(size_t count) { stream.Arrives(stream.Frames(count)); }

  void ExpectNoDefect() { EXPECT_TRUE(stream.Defects().empty()) << stream.Defects().front(); }

  CheckedStream stream{"stream", 3};
};

TEST_F(CheckedStreamTest, WhatArrivesAsItWasSentIsDrainedWithoutADefect) {
  const std::string sent = stream.Frames(50);
  for (size_t at = 0; at < sent.size(); at += 7) {
    stream.Arrives(sent.substr(at, 7));
  }
  ExpectNoDefect();
  EXPECT_TRUE(stream.IsDrained());
  EXPECT_EQ(50 * kFrame, stream.Result().arrivedBytes);
}

TEST_F(CheckedStreamTest, AMissingFirstByteIsADefect) {
  stream.Arrives(stream.Frames(3).substr(1));
  EXPECT_EQ(1U, stream.Defects().size());
}

TEST_F(CheckedStreamTest, AMissingByteIsADefect) {
  stream.Arrives(stream.Frames(10).erase(200, 1));
  EXPECT_FALSE(stream.Defects().empty());
}

TEST_F(CheckedStreamTest, AMissingFrameIsADefect) {
  stream.Arrives(stream.Frames(10).erase(2 * kFrame, kFrame));
  EXPECT_FALSE(stream.Defects().empty());
}

TEST_F(CheckedStreamTest, ADoubledByteIsADefect) {
  stream.Arrives(stream.Frames(10).insert(200, 1, 'x'));
  EXPECT_FALSE(stream.Defects().empty());
}

TEST_F(CheckedStreamTest, ADoubledFrameIsADefect) {
  const std::string sent = stream.Frames(3);
  stream.Arrives(sent);
  stream.Arrives(sent.substr(2 * kFrame));
  EXPECT_FALSE(stream.Defects().empty());
}

TEST_F(CheckedStreamTest, FramesThatChangePlacesAreADefect) {
  const std::string sent = stream.Frames(3);
  stream.Arrives(sent.substr(0, kFrame) + sent.substr(2 * kFrame) + sent.substr(kFrame, kFrame));
  EXPECT_FALSE(stream.Defects().empty());
}

TEST_F(CheckedStreamTest, AChangedByteIsADefect) {
  std::string sent = stream.Frames(3);
  sent[100] = static_cast<char>(~sent[100]);
  stream.Arrives(sent);
  EXPECT_FALSE(stream.Defects().empty());
}

TEST_F(CheckedStreamTest, AMissingTailIsNeverDrained) {
  stream.Arrives(stream.Frames(3).substr(0, 3 * kFrame - 1));
  EXPECT_FALSE(stream.IsDrained());
}

TEST_F(CheckedStreamTest, BytesMayBeLostAtABorderAndAreCounted) {
  SendAndArrive(2);
  stream.BorderBegins();
  stream.Arrives(stream.Frames(4).substr(10, 2 * kFrame));  // frame 3 whole, 2 and 4 cut
  stream.BorderEnds();
  SendAndArrive(2);
  ExpectNoDefect();
  EXPECT_TRUE(stream.IsDrained());
  EXPECT_EQ(5 * kFrame, stream.Result().arrivedBytes);
  EXPECT_EQ(3U, stream.Result().borderLostFrames);
}

TEST_F(CheckedStreamTest, ALossBeforeTheBorderIsADefect) {
  stream.Arrives(stream.Frames(4).erase(kFrame, kFrame));
  stream.BorderBegins();
  EXPECT_FALSE(stream.Defects().empty());
}

TEST_F(CheckedStreamTest, OldFramesMayStillComeAfterTheBorder) {
  SendAndArrive(2);
  stream.BorderBegins();
  const std::string old = stream.Frames(3);
  stream.BorderEnds();
  const std::string fresh = stream.Frames(2);
  stream.Arrives(old.substr(kFrame) + fresh);
  ExpectNoDefect();
  EXPECT_TRUE(stream.IsDrained());
}

TEST_F(CheckedStreamTest, AMissingFirstFrameBehindABorderIsADefect) {
  SendAndArrive(2);
  stream.BorderBegins();
  stream.BorderEnds();
  stream.Arrives(stream.Frames(3).substr(kFrame));
  EXPECT_EQ(1U, stream.Defects().size());
}

TEST_F(CheckedStreamTest, ABlockMayBeginTwiceOnceAfterAnUnplugging) {
  const std::string sent = stream.Frames(8);
  stream.Arrives(sent.substr(0, 5 * kFrame + 9));
  stream.BorderBegins(8);
  stream.Arrives(sent);
  ExpectNoDefect();
  EXPECT_EQ(5U, stream.Result().borderRepeatedFrames);
  stream.Arrives(sent.substr(4 * kFrame));
  EXPECT_EQ(1U, stream.Defects().size());
}

TEST_F(CheckedStreamTest, MoreThanABlockMayNotComeTwice) {
  const std::string sent = stream.Frames(9);
  stream.Arrives(sent);
  stream.BorderBegins(8);
  stream.Arrives(sent);
  EXPECT_EQ(1U, stream.Defects().size());
}

TEST_F(CheckedStreamTest, NothingMayComeTwiceAtABorderThatIsNoUnplugging) {
  const std::string sent = stream.Frames(2);
  stream.Arrives(sent);
  stream.BorderBegins();
  stream.Arrives(sent.substr(kFrame));
  EXPECT_EQ(1U, stream.Defects().size());
}

TEST_F(CheckedStreamTest, AnotherLanesFramesAreADefect) {
  CheckedStream other("other", 4);
  other.BorderEnds();
  SendAndArrive(2);
  stream.Arrives(other.Frames(2));
  EXPECT_FALSE(stream.Defects().empty());
}

}  // namespace
