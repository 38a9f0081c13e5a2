// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include "core/SettingWords.h"
#include "serial/LineSettings.h"

namespace {

TEST(SettingWordsTest, EachWordHasItsValue) {
  EXPECT_EQ((WordTable{{"2400", 2400},
                       {"4800", 4800},
                       {"9600", 9600},
                       {"19200", 19200},
                       {"38400", 38400},
                       {"57600", 57600},
                       {"115200", 115200}}),
            BaudRateWords());
  EXPECT_EQ((WordTable{{"7", 7}, {"8", 8}}), DataBitsWords());
  EXPECT_EQ((WordTable{{"none", 0}, {"odd", 1}, {"even", 2}, {"mark", 3}, {"space", 4}}),
            ParityWords());
  EXPECT_EQ((WordTable{{"1", 0}, {"1.5", 1}, {"2", 2}}), StopBitsWords());
  EXPECT_EQ((WordTable{{"none", 0}, {"hardware", 1}, {"XOnXOff", 2}}), FlowControlWords());
}

// A rate without one would be set as 9600.
TEST(SettingWordsTest, EachBaudRateHasASpeed) {
  for (const auto& [word, rate] : BaudRateWords()) {
    termios attributes{};
    SetLine(attributes, {rate, 8, kParityNone, kOneStopBit, kNoFlowControl});
    EXPECT_EQ(rate == 9600, cfgetospeed(&attributes) == speed_t{B9600})
        << word << " is missing in LineSettings.cpp";
  }
}

TEST(SettingWordsTest, AnUnknownWordEntersTheTableWith0) {
  WordTable table = BaudRateWords();
  EXPECT_EQ(0U, table["9600 "]);
  EXPECT_EQ(0U, table["110"]);
  EXPECT_EQ(1U, table.count("9600 "));
  EXPECT_EQ(1U, table.count("110"));
  EXPECT_EQ(BaudRateWords().size() + 2, table.size());
}

}  // namespace
