// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <vector>

#include "serial/HexDump.h"

namespace {

TEST(HexDumpTest, AByteIsTwoUpperCaseDigitsAndABlank) {
  const uint8_t bytes[] = {0x00, 0x0F, 0xA0, 0xFF};
  std::string text;
  FormatHexDump(bytes, sizeof bytes, text);
  EXPECT_EQ("Received(4):00 0F A0 FF \n", text);
}

TEST(HexDumpTest, ALongDumpIsReplacedByAShortOne) {
  const std::vector<uint8_t> many(4096, 0xEE);
  const uint8_t one = 0x31;
  std::string text;
  FormatHexDump(many.data(), many.size(), text);
  EXPECT_EQ(std::string("Received(4096):").size() + 3 * many.size() + 1, text.size());
  FormatHexDump(&one, 1, text);
  EXPECT_EQ("Received(1):31 \n", text);
}

}  // namespace
