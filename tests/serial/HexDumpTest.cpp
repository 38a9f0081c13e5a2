// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <vector>

#include "serial/HexDump.h"

namespace {

TEST(HexDumpTest, AByteIsTwoUpperCaseDigitsAndABlank) {
  const uint8_t bytes[] = {0x00, 0x0F, 0xA0, 0xFF};
  std::string space;
  EXPECT_EQ("Received(4):00 0F A0 FF \n", FormatHexDump(bytes, sizeof bytes, space));
}

TEST(HexDumpTest, AShortDumpStandsInTheSpaceOfALongOne) {
  const std::vector<uint8_t> many(4096, 0xEE);
  const uint8_t one = 0x31;
  std::string space;
  EXPECT_EQ(std::string("Received(4096):").size() + 3 * many.size() + 1,
            FormatHexDump(many.data(), many.size(), space).size());
  const char* const memory = space.data();
  const std::string_view dump = FormatHexDump(&one, 1, space);
  EXPECT_EQ("Received(1):31 \n", dump);
  EXPECT_EQ(memory, dump.data());
}

}  // namespace
