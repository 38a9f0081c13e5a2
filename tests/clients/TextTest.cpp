// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include "relay/Error.h"
#include "relay/Text.h"

namespace {

TEST(TextTest, HexIsTakenAsPeopleWriteIt) {
  for (const char* const hex :
       {"48656C6c", "48 65 6c 6C", "48:65:6C:6C", "0x48, 0x65, 0x6C, 0x6C", " 48-65\t6C\n6C "}) {
    EXPECT_EQ("Hell", relay::FromHex(hex)) << hex;
  }
  EXPECT_EQ("", relay::FromHex(""));
  for (const char* const wrong : {"4", "4G", "48 6", ":48", "48:", "x48"}) {
    EXPECT_THROW((void)relay::FromHex(wrong), relay::Error) << wrong;
  }
}

TEST(TextTest, EveryByteIsHadBackFromItsEscape) {
  std::string all;
  for (int byte = 0; byte < 256; ++byte) {
    all += static_cast<char>(byte);
  }
  const std::string escaped = relay::Escape(all);
  EXPECT_EQ(all, relay::Unescape(escaped));
  for (const char byte : escaped) {
    EXPECT_TRUE(byte >= ' ' && byte <= '~');
  }
  EXPECT_EQ("\"a\\\"\\n\\x80\\e\"", relay::Quote("a\"\n\x80\x1B"));
}

TEST(TextTest, AnUnknownEscapeIsAMistake) {
  for (const char* const wrong : {"\\q", "\\", "\\x4", "\\xg0"}) {
    EXPECT_THROW((void)relay::Unescape(wrong), relay::Error) << wrong;
  }
}

}  // namespace
