// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <ostream>
#include <string>

#include "libvost/IniFile.h"

namespace {

using vost::IniFile;
using vost::ParseIni;

// "(missing)" when there is no such entry, "(malformed)" when the text is.
std::string Look(std::string_view text, std::string_view section, std::string_view key) {
  const IniFile file = ParseIni(text, 63);
  if (file.badLine != 0) {
    return "(malformed)";
  }
  const std::string_view* value = file.Find(section, key);
  return value == nullptr ? "(missing)" : std::string(*value);
}

std::string Value(const std::string& line) { return Look("[s]\n" + line, "s", "k"); }

TEST(IniFileTest, FindsAValueInItsSection) {
  constexpr std::string_view kText =
      "[connect]\nport=60004\n[#PhysicalPort0]\nbaud=9600\n[#USBSerialPort3]\nbaud=115200\n";
  EXPECT_EQ("60004", Look(kText, "connect", "port"));
  EXPECT_EQ("9600", Look(kText, "#PhysicalPort0", "baud"));
  EXPECT_EQ("115200", Look(kText, "#USBSerialPort3", "baud"));
}

TEST(IniFileTest, MissingSectionOrKeyIsNotFound) {
  EXPECT_EQ("(missing)", Look("[a]\nk=1\n", "b", "k"));
  EXPECT_EQ("(missing)", Look("[a]\nk=1\n", "a", "l"));
  EXPECT_EQ("(missing)", Look("[a]\nk=1\n", "a", "K"));
  EXPECT_EQ("(missing)", Look("", "a", "k"));
}

TEST(IniFileTest, BlanksAroundAValueAreDropped) {
  EXPECT_EQ("9600", Value("k=9600"));
  EXPECT_EQ("9600", Value(" \tk \t= \t9600 \t"));
  EXPECT_EQ("two words", Value("k = two words "));
}

TEST(IniFileTest, QuotesKeepTheBlanksOfAValue) {
  EXPECT_EQ("9600 ", Value("k = \"9600 \" "));
  EXPECT_EQ(" \t", Value("k=\" \t\""));
  EXPECT_EQ("", Value("k=\"\""));
}

TEST(IniFileTest, ValueIsHandedOnVerbatim) {
  EXPECT_EQ("", Value("k="));
  EXPECT_EQ("a=b", Value("k=a=b"));
  EXPECT_EQ("9600 ; fast # really", Value("k=9600 ; fast # really"));
  EXPECT_EQ("96\"00", Value("k=96\"00"));
  EXPECT_EQ("[x]", Value("k=[x]"));
  EXPECT_EQ("\xc3\xa4\xff", Value("k=\xc3\xa4\xff"));
}

TEST(IniFileTest, CommentsAndEmptyLinesAreSkipped) {
  constexpr std::string_view kText =
      "; one\n;two=2\n# three\n#\tfour\n#\n\n \t\n  ; five\n  # six\n[s]\n; k=0\n# k=0\nk=1\n";
  EXPECT_EQ("1", Look(kText, "s", "k"));
}

TEST(IniFileTest, HashWithoutABlankIsNoComment) {
  EXPECT_EQ("1", Look("[s]\n#k=1\n", "s", "#k"));
  EXPECT_EQ("1", Look("[#PhysicalPort0]\nk=1\n", "#PhysicalPort0", "k"));
  EXPECT_EQ("(malformed)", Look("#comment\n", "s", "k"));
}

TEST(IniFileTest, SectionNameStandsAsItIs) {
  EXPECT_EQ("1", Look(" [ a b ] \nk=1\n", " a b ", "k"));
  EXPECT_EQ("1", Look("[a[b]\nk=1\n", "a[b", "k"));
  EXPECT_EQ("1", Look("[/dev/ttyUSB0]\nk=1\n", "/dev/ttyUSB0", "k"));
}

TEST(IniFileTest, LinesMayEndInCrLfOrNotAtAll) {
  EXPECT_EQ("1", Look("[s]\r\nk=1\r\n", "s", "k"));
  EXPECT_EQ("1", Look("[s]\nk=1", "s", "k"));
  EXPECT_EQ("1", Look("[s]\r\n\r\nk=1\r", "s", "k"));
}

TEST(IniFileTest, KeysAndSectionsThatNobodyAsksForAreAccepted) {
  EXPECT_EQ("1", Look("[other]\nx=y\n[s]\nspeed=9\nk=1\n", "s", "k"));
}

TEST(IniFileTest, LongestValueFitsAndOneByteMoreDoesNot) {
  const std::string longest(63, 'x');
  EXPECT_EQ(longest, Value("k=" + longest));
  EXPECT_EQ(longest, Value("k=\"" + longest + "\""));
  EXPECT_EQ("(malformed)", Value("k=" + longest + "x"));
  EXPECT_EQ("(malformed)", Value("k=\"" + longest + " \""));
}

struct Malformed {
  const char* name;
  std::string text;
  int line;
  const char* problem;
};

std::ostream& operator<<(std::ostream& stream, const Malformed& entry) {
  return stream << entry.name;
}

class MalformedIni : public testing::TestWithParam<Malformed> {};

TEST_P(MalformedIni, IsRefusedWithLineAndReason) {
  const IniFile file = ParseIni(GetParam().text, 63);
  EXPECT_EQ(GetParam().line, file.badLine);
  EXPECT_STREQ(GetParam().problem, file.problem);
  EXPECT_EQ(nullptr, file.Find("s", "k"));
}

constexpr const char* kNoForm = "neither comment, [section] nor key = value";
constexpr const char* kBracket = "section name without one ']' at the end of the line";
constexpr const char* kControl = "control byte in the line";

INSTANTIATE_TEST_SUITE_P(
    Lines, MalformedIni,
    testing::Values(Malformed{"Word", "[s]\nk=1\nword\n", 3, kNoForm},
                    Malformed{"HashWord", "[s]\nk=1\n#word\n", 3, kNoForm},
                    Malformed{"LastLineWithoutEnd", "[s]\n\nk=1\n\nword", 5, kNoForm},
                    Malformed{"CountsCrLf", "[s]\r\n\r\nk=1\r\nword\r\n", 4, kNoForm},
                    Malformed{"FirstOfTwo", "[s]\nk=1\nword\n[s]\n", 3, kNoForm},
                    Malformed{"KeyOutside", "k=1\n[s]\n", 1, "key outside of a section"},
                    Malformed{"NoKey", "[s]\nk=1\n = 2\n", 3, "value without a key"},
                    Malformed{"OpenBracket", "[s\nk=1\n", 1, kBracket},
                    Malformed{"TextBehindBracket", "[s] ; note\nk=1\n", 1, kBracket},
                    Malformed{"TwoBrackets", "[s]]\nk=1\n", 1, kBracket},
                    Malformed{"EmptyName", "[s]\nk=1\n[]\n", 3, "section without a name"},
                    Malformed{"SectionTwice", "[s]\nk=1\n[t]\n[s]\n", 4, "section given twice"},
                    Malformed{"KeyTwice", "[s]\nk=1\nk=1\n", 3, "key given twice in its section"},
                    Malformed{"LongValue", "[s]\nk=1\nl=" + std::string(64, 'x') + "\n", 3,
                              "value too long"},
                    Malformed{"OpenQuote", "[s]\nk=\"1\n", 2, "quote not closed"},
                    Malformed{"LoneQuote", "[s]\nk=\"\n", 2, "quote not closed"},
                    Malformed{"TextBehindQuote", "[s]\nk=\"1\" 2\n", 2, "quote not closed"},
                    Malformed{"QuoteInside", "[s]\nk=\"1\"2\"\n", 2, "quote inside of quotes"},
                    Malformed{"Zero", std::string("[s]\nk=1\0\n", 9), 2, kControl},
                    Malformed{"ZeroInComment", std::string("; \0\n[s]\nk=1\n", 12), 1, kControl},
                    Malformed{"Escape", "[s]\nk=\x1b[0m\n", 2, kControl},
                    Malformed{"Delete", "[s]\nk=\x7f\n", 2, kControl},
                    Malformed{"CrInside", "[s]\rk=1\n", 1, kControl}),
    [](const auto& info) { return std::string(info.param.name); });

// Quadratic work would take minutes here.
TEST(IniFileTest, TensOfThousandsOfSectionsAreNoBurden) {
  std::string text;
  for (int i = 0; i < 50000; ++i) {
    text += "[" + std::to_string(i) + "]\n";
  }
  EXPECT_EQ("1", Look(text + "k=1\n", "49999", "k"));
}

}  // namespace
