// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <ostream>
#include <sstream>

#include "protocol-doc/Document.h"

namespace {

using Problems = std::vector<std::string>;

Document Read(const std::string& text) {
  std::istringstream stream(text);
  return ReadDocument(stream);
}

TEST(DocumentTest, AnExampleHasItsKindItsNameAndItsSteps) {
  const Document document = Read(
      "# Title\n\n"
      "```conversation OpenAndRead\n"
      "= /dev/ttyS2 is a serial device\n"
      "> 0007 01 02 0001 58  # open X\n"
      "< 0009 01 02 0001 58 0000  # reply to open X: status 0\n"
      "/dev/ttyS2 > 41 42  # \"AB\"\n"
      "/dev/ttyS2 < 0D  # \"\\r\"\n"
      "! the link ends\n"
      "```\n");
  EXPECT_EQ(Problems{}, document.problems);
  ASSERT_EQ(1U, document.examples.size());
  const Example& example = document.examples[0];
  EXPECT_EQ("conversation", example.kind);
  EXPECT_EQ("OpenAndRead", example.name);
  EXPECT_EQ(3U, example.line);
  ASSERT_EQ(6U, example.steps.size());
  EXPECT_EQ(Mark::kSetUp, example.steps[0].mark);
  EXPECT_EQ(Mark::kToService, example.steps[1].mark);
  EXPECT_EQ((std::vector<uint8_t>{0, 7, 1, 2, 0, 1, 0x58}), example.steps[1].bytes);
  EXPECT_EQ("open X", example.steps[1].words);
  EXPECT_EQ(Mark::kFromService, example.steps[2].mark);
  EXPECT_EQ(Mark::kToLine, example.steps[3].mark);
  EXPECT_EQ("/dev/ttyS2", example.steps[3].device);
  EXPECT_EQ((std::vector<uint8_t>{0x41, 0x42}), example.steps[3].bytes);
  EXPECT_EQ(Mark::kFromLine, example.steps[4].mark);
  EXPECT_EQ(Mark::kEnd, example.steps[5].mark);
  EXPECT_EQ("the link ends", example.steps[5].words);
  EXPECT_EQ(9U, example.steps[5].line);
}

TEST(DocumentTest, ATextBlockHoldsNoExample) {
  const Document document = Read("```text\nany picture\n```\n");
  EXPECT_EQ(Problems{}, document.problems);
  EXPECT_EQ(0U, document.examples.size());
}

struct WrongText {
  const char* name;
  const char* text;
  const char* problem;
};

void PrintTo(const WrongText& row, std::ostream* stream) { *stream << row.text; }

class WrongDocumentTest : public testing::TestWithParam<WrongText> {};

TEST_P(WrongDocumentTest, IsAProblem) {
  EXPECT_EQ(Problems{GetParam().problem}, Read(GetParam().text).problems);
}

constexpr WrongText kWrongTexts[] = {
    {"UnknownKind", "```hex Name\n> 00  # a\n```\n", "line 1: unknown kind of example: hex"},
    {"OddDigits", "```packets Name\n> 000  # a\n> 00  # b\n```\n",
     "line 2: not a step: > 000  # a"},
    {"LowerCaseDigits", "```packets Name\n> 0a  # a\n> 00  # b\n```\n",
     "line 2: not a step: > 0a  # a"},
    {"NoWords", "```packets Name\n> 00\n> 00  # b\n```\n", "line 2: not a step: > 00"},
    {"UnknownMark", "```packets Name\n* 00  # a\n> 00  # b\n```\n",
     "line 2: not a step: * 00  # a"},
    {"NoBytes", "```packets Name\n>  # a\n> 00  # b\n```\n", "line 2: not a step: >  # a"},
    {"NoMark", "```packets Name\n00  # a\n> 00  # b\n```\n", "line 2: not a step: 00  # a"},
    {"LineWithoutMark", "```packets Name\n/dev/a 00  # a\n> 00  # b\n```\n",
     "line 2: not a step: /dev/a 00  # a"},
    {"EmptyLine", "```packets Name\n\n> 00  # b\n```\n", "line 2: not a step: "},
    {"NoStep", "```packets Name\n```\n", "line 2: an example without a step"},
    {"TwoOfOneName", "```packets A\n> 00  # a\n```\n```refused A\n> 00  # a\n```\n",
     "line 4: two examples named A"},
    {"NoEnd", "```packets Name\n> 00  # a\n", "line 2: a block without an end"},
    {"OutsideOfABlock", "words\n> 0007 01\n", "line 2: outside of an example: > 0007 01"},
    {"Indented", "    < 0007 01\n", "line 1: outside of an example:     < 0007 01"},
    {"LineDataOutsideOfABlock", "/dev/ttyS2 > 41\n",
     "line 1: outside of an example: /dev/ttyS2 > 41"},
    {"PacketsInATextBlock", "```text\n> 0007 01\n```\n",
     "line 2: outside of an example: > 0007 01"},
    {"OtherFence", "~~~packets Name\n",
     "line 1: not a block that can be executed: ~~~packets Name"},
};

INSTANTIATE_TEST_SUITE_P(Texts, WrongDocumentTest, testing::ValuesIn(kWrongTexts),
                         [](const auto& row) { return std::string(row.param.name); });

TEST(DocumentTest, ABlockWithoutANameIsAProblem) {
  EXPECT_NE(Problems{}, Read("```packets\n> 00  # a\n```\n").problems);
}

}  // namespace
