// SPDX-License-Identifier: MIT
// Lines out of pieces of any size.
#include <gtest/gtest.h>

#include <ostream>
#include <string>

#include "relay/Error.h"
#include "relay/LineCutter.h"

namespace {

using relay::LineCutter;

// All whole lines, each with a bar behind it.
std::string LinesOf(LineCutter& cutter) {
  std::string lines;
  while (const std::optional<std::string> line = cutter.Next()) {
    lines += *line + "|";
  }
  return lines;
}

struct LineCase {
  const char* name;
  const char* end;
  size_t longest;
  const char* bytes;
  const char* lines;
  uint64_t lost;
};

void PrintTo(const LineCase& row, std::ostream* out) { *out << row.name; }

constexpr LineCase kLineCases[] = {
    // name                   end     longest  bytes                  lines         lost
    {"WholeOnes", "\n", 10, "12 kg\n\n13 kg\n", "12 kg||13 kg|", 0},
    {"NotWhole", "\n", 10, "12 kg\n13", "12 kg|", 0},
    {"EndOfTwoBytes", "\r\n", 10, "a\nb\r\n\r\r\n", "a\nb|\r|", 0},
    {"EndThatRepeats", "--", 10, "a-b---c--", "a-b|-c|", 0},
    {"AsLongAsCanBe", "\r\n", 3, "abc\r\nab\r\r\n", "abc|ab\r|", 0},
    {"TooLong", "\n", 3, "abcd\nef\nabcdefgh\ng\n", "ef|g|", 2},
    {"TooLongWithEndOfTwoBytes", "\r\n", 3, "abcd\r\nab\rcd\r\nef\r\n", "ef|", 2},
    {"TooLongAndNotWhole", "\n", 3, "ab\nabcd", "ab|", 0},
};

class LineCutterTest : public testing::TestWithParam<LineCase> {};

TEST_P(LineCutterTest, CutsThemHoweverTheyCome) {
  const LineCase& wanted = GetParam();
  const std::string bytes = wanted.bytes;
  for (size_t piece = 1; piece <= bytes.size(); ++piece) {
    LineCutter cutter(wanted.end, wanted.longest);
    std::string lines;
    for (size_t at = 0; at < bytes.size(); at += piece) {
      cutter.Add(std::string_view(bytes).substr(at, piece));
      lines += LinesOf(cutter);
      EXPECT_LE(cutter.Size(), wanted.longest + std::string(wanted.end).size());
    }
    EXPECT_EQ(wanted.lines, lines) << "in pieces of " << piece;
    EXPECT_EQ(wanted.lost, cutter.Lost()) << "in pieces of " << piece;
  }
}

INSTANTIATE_TEST_SUITE_P(Cases, LineCutterTest, testing::ValuesIn(kLineCases),
                         [](const auto& given) { return given.param.name; });

TEST(LineCutterBoundTest, DropsTheLinesThatFindNoRoom) {
  LineCutter cutter("\n", 6, 8);
  cutter.Add("abc\ndef\nghi\n");
  EXPECT_EQ(8U, cutter.Size());
  EXPECT_EQ(1U, cutter.Lost());
  EXPECT_EQ("abc", cutter.Next());
  cutter.Add("jkl\n");
  EXPECT_EQ("def|jkl|", LinesOf(cutter));
  EXPECT_EQ(0U, cutter.Size());
}

TEST(LineCutterBoundTest, ALineAloneFindsRoom) {
  LineCutter cutter("\n", 6, 2);
  cutter.Add("abcdef\n");
  EXPECT_EQ("abcdef", cutter.Next());
}

TEST(LineCutterBoundTest, ForgetsWhatIsNotWhole) {
  LineCutter cutter("\n", 3);
  for (const char* const unfinished : {"ab", "abcdef"}) {
    cutter.Add(std::string("1\n") + unfinished);
    cutter.DropUnfinished();
    cutter.Add("23\n");
    EXPECT_EQ("1|23|", LinesOf(cutter)) << "behind " << unfinished;
  }
  EXPECT_EQ(0U, cutter.Lost());
}

TEST(LineCutterBoundTest, NothingEndsNoLine) { EXPECT_THROW(LineCutter(""), relay::Error); }

}  // namespace
