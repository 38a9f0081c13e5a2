// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include "core/Fakes.h"
#include "core/PortTable.h"
#include "core/SettingWords.h"

namespace {

std::shared_ptr<FakePort> PortNamed(const std::string& name) {
  auto port = std::make_shared<FakePort>();
  port->portName = name;
  return port;
}

TEST(PortTableTest, StoresAPortUnderTheNameThatItReports) {
  PortTable table;
  const auto port = PortNamed("A");
  table.Store(port);
  EXPECT_EQ(port, table.Find("A"));
  EXPECT_EQ(nullptr, table.Find("B"));
}

TEST(PortTableTest, ReleasesThePortThatHadTheName) {
  PortTable table;
  auto first = PortNamed("A");
  const std::weak_ptr<FakePort> watched = first;
  table.Store(std::move(first));
  table.Store(PortNamed("A"));
  EXPECT_TRUE(watched.expired());
}

TEST(PortTableTest, AnIdentityOfAnUnknownNameLeavesAnEmptyEntryThatIsNoPort) {
  PortTable table;
  EXPECT_FALSE(table.IdentityOf("A").has_value());
  EXPECT_EQ(nullptr, table.Find("A"));
  table.Remove("A");
  table.Clear();
}

TEST(PortTableTest, RemoveFirstReleasesOnePortUntilThereIsNone) {
  PortTable table;
  table.Store(PortNamed("B"));
  table.Store(PortNamed("A"));
  EXPECT_TRUE(table.RemoveFirst());
  EXPECT_EQ(nullptr, table.Find("A"));
  EXPECT_NE(nullptr, table.Find("B"));
  EXPECT_TRUE(table.RemoveFirst());
  EXPECT_FALSE(table.RemoveFirst());
}

TEST(PortTableTest, ClearReleasesAllPorts) {
  PortTable table;
  auto port = PortNamed("A");
  const std::weak_ptr<FakePort> watched = port;
  table.Store(std::move(port));
  table.Clear();
  EXPECT_TRUE(watched.expired());
}

struct WordCase {
  WordTable (*table)();
  const char* word;
  uint32_t value;
};

void PrintTo(const WordCase& row, std::ostream* out) { *out << row.word << " is " << row.value; }

class SettingWordsTest : public testing::TestWithParam<WordCase> {};

TEST_P(SettingWordsTest, WordHasItsValue) {
  WordTable table = GetParam().table();
  const size_t words = table.size();
  EXPECT_EQ(GetParam().value, table[GetParam().word]);
  EXPECT_EQ(words, table.size()) << "the word was not in the table";
}

INSTANTIATE_TEST_SUITE_P(
    AllRows, SettingWordsTest,
    testing::Values(WordCase{BaudRateWords, "2400", 2400}, WordCase{BaudRateWords, "4800", 4800},
                    WordCase{BaudRateWords, "9600", 9600}, WordCase{BaudRateWords, "19200", 19200},
                    WordCase{BaudRateWords, "38400", 38400},
                    WordCase{BaudRateWords, "57600", 57600},
                    WordCase{BaudRateWords, "115200", 115200}, WordCase{DataBitsWords, "7", 7},
                    WordCase{DataBitsWords, "8", 8}, WordCase{ParityWords, "none", 0},
                    WordCase{ParityWords, "odd", 1}, WordCase{ParityWords, "even", 2},
                    WordCase{ParityWords, "mark", 3}, WordCase{ParityWords, "space", 4},
                    WordCase{StopBitsWords, "1", 0}, WordCase{StopBitsWords, "1.5", 1},
                    WordCase{StopBitsWords, "2", 2}, WordCase{FlowControlWords, "none", 0},
                    WordCase{FlowControlWords, "hardware", 1},
                    WordCase{FlowControlWords, "XOnXOff", 2}));

TEST(SettingWordTableTest, AnUnknownWordEntersTheTableWith0) {
  WordTable table = BaudRateWords();
  EXPECT_EQ(0U, table["9600 "]);
  EXPECT_EQ(0U, table["110"]);
  EXPECT_EQ(1U, table.count("9600 "));
  EXPECT_EQ(1U, table.count("110"));
  EXPECT_EQ(9U, table.size());
}

}  // namespace
