// SPDX-License-Identifier: MIT
// Keys, hex rows and progress of the interactive terminal.
#include <gtest/gtest.h>

#include "pty/TerminalKeys.h"
#include "show/HexView.h"
#include "show/Progress.h"

namespace {

using Presses = std::vector<KeyPress>;
using enum TerminalAction;

// Keys that are all for one taker.
template <class Taker>
auto TakeAll(Taker& taker, std::string_view typed) {
  auto taken = taker.Take(typed);
  EXPECT_EQ("", typed);
  return taken;
}

TEST(TerminalKeysTest, PassesOtherKeysOnInOnePiece) {
  TerminalKeys keys('\x1D');
  EXPECT_EQ((Presses{{kSend, "abc\r\x03"}}), TakeAll(keys, "abc\r\x03"));
}

TEST(TerminalKeysTest, TakesTheKeyBehindTheEscapeKey) {
  TerminalKeys keys('\x1D');
  EXPECT_EQ((Presses{{kSend, "a"}, {kHex, ""}, {kSend, "b"}, {kQuit, ""}}),
            TakeAll(keys, "a\x1Dxb\x1Dq"));
}

TEST(TerminalKeysTest, TheEscapeKeyTwiceSendsIt) {
  TerminalKeys keys('\x1D');
  EXPECT_EQ((Presses{{kSend,
                      "a\x1D"
                      "b"}}),
            TakeAll(keys,
                    "a\x1D\x1D"
                    "b"));
}

TEST(TerminalKeysTest, TheKeyBehindItMayComeLaterAndWithControlHeld) {
  TerminalKeys keys('\x1D');
  EXPECT_EQ(Presses{}, TakeAll(keys, "\x1D"));
  EXPECT_EQ((Presses{{kQuit, ""}}), TakeAll(keys, "\x11"));  // Ctrl-Q
  EXPECT_EQ((Presses{{kEcho, ""}}), TakeAll(keys,
                                            "\x1D"
                                            "E"));
}

TEST(TerminalKeysTest, AnyOtherKeyBehindItMeansNothingAndIsNotSent) {
  TerminalKeys keys('\x1D');
  EXPECT_EQ((Presses{{kUnknown, ""}, {kSend, "b"}}), TakeAll(keys,
                                                             "\x1D"
                                                             "5b"));
}

TEST(TerminalKeysTest, HelpNamesTheEscapeKey) {
  EXPECT_EQ(0u, TerminalKeys('\x01').Help().find("Ctrl-A, and then\n  q       leave\n"));
}

TEST(ControlByteTest, KnowsTheUsualWaysToWriteIt) {
  EXPECT_EQ(0x1D, ControlByte("Ctrl-]"));
  EXPECT_EQ(0x01, ControlByte("ctrl-a"));
  EXPECT_EQ(0x14, ControlByte("^T"));
  EXPECT_EQ(0x1D, ControlByte("0x1d"));
  for (const char* const wrong : {"", "a", "^", "^é", "0x41", "0x", "ctrl-", "ctrl-ab", "^?"}) {
    EXPECT_EQ(-1, ControlByte(wrong)) << wrong;
  }
}

TEST(LineEndingTest, ComesRound) {
  EXPECT_EQ("\r", BytesOf(LineEnding::kCr));
  EXPECT_EQ("\n", BytesOf(Next(LineEnding::kCr)));
  EXPECT_EQ("\r\n", BytesOf(Next(LineEnding::kLf)));
  EXPECT_EQ("CR", NameOf(Next(LineEnding::kCrLf)));
}

TEST(LinePromptTest, ShowsWhatIsTypedAndTakesItBack) {
  LinePrompt prompt;
  EXPECT_EQ("/tmp/x\b \b", TakeAll(prompt, "/tmp/x\x7F"));
  EXPECT_EQ(LinePrompt::State::kTyping, prompt.Now());
  EXPECT_EQ("\b \b\b \b\b \b\b \b\b \bab\n", TakeAll(prompt,
                                                     "\x15"
                                                     "ab\r"));
  EXPECT_EQ(LinePrompt::State::kDone, prompt.Now());
  EXPECT_EQ("ab", prompt.Text());
}

TEST(TerminalKeysTest, LeavesAFilesNameThatIsTypedAhead) {
  TerminalKeys keys('\x1D');
  std::string_view typed = "a\x1Ds/tmp/x\r";
  EXPECT_EQ((Presses{{kSend, "a"}, {kFile, ""}}), keys.Take(typed));
  EXPECT_EQ("/tmp/x\r", typed);
}

TEST(LinePromptTest, LeavesWhatStandsBehindTheLine) {
  LinePrompt prompt;
  std::string_view typed = "a\rb";
  EXPECT_EQ("a\n", prompt.Take(typed));
  EXPECT_EQ("b", typed);
}

TEST(LinePromptTest, GivesUpOnControlC) {
  LinePrompt prompt;
  EXPECT_EQ("a\n", TakeAll(prompt, "\ba\x01\x03"));
  EXPECT_EQ(LinePrompt::State::kGivenUp, prompt.Now());
}

TEST(HexViewTest, ShowsARowAnewUntilItIsFull) {
  HexView view;
  EXPECT_EQ("\r< 00000000  41                                               |A|",
            view.Show('<', "A"));
  EXPECT_EQ("\r< 00000000  41 00                                            |A.|",
            view.Show('<', std::string_view("\0", 1)));
  EXPECT_EQ(
      "\r< 00000000  41 00 30 31 32 33 34 35 36 37 38 39 61 62 63 64  |A.0123456789abcd|\n"
      "\r< 00000010  65                                               |e|",
      view.Show('<', "0123456789abcde"));
}

TEST(HexViewTest, CountsEachDirectionByItself) {
  HexView view;
  (void)view.Show('<', "AB");
  EXPECT_EQ("\n\r> 00000000  0d                                               |.|",
            view.Show('>', "\r"));
  EXPECT_EQ("\n\r< 00000002  43                                               |C|",
            view.Show('<', "C"));
  EXPECT_EQ("\n", view.EndRow());
  EXPECT_EQ("", view.EndRow());
  EXPECT_EQ("\r< 00000003  44                                               |D|",
            view.Show('<', "D"));
}

TEST(ProgressTest, TellsBytesRateAndTimeLeft) {
  using std::chrono::milliseconds;
  EXPECT_EQ("0 of 1048576 bytes, 0 %", ProgressText(0, 1048576, milliseconds(0)));
  EXPECT_EQ("11520 of 1048576 bytes, 1 %, 11.5 kB/s, 1:30 left",
            ProgressText(11520, 1048576, milliseconds(1000)));
  EXPECT_EQ("100 of 100 bytes, 100 %, 200.0 B/s", ProgressText(100, 100, milliseconds(500)));
  EXPECT_EQ("5000000 bytes, 5.0 MB/s", ProgressText(5000000, 0, milliseconds(1000)));
  EXPECT_EQ("1 of 7201 bytes, 0 %, 1.0 B/s, 2:00:00 left",
            ProgressText(1, 7201, milliseconds(1000)));
  EXPECT_EQ("1 of 999999999999 bytes, 0 %, 1.0 B/s, 99:59:59 left",
            ProgressText(1, 999999999999, milliseconds(1000)));
}

TEST(ProgressTest, LeavesOutWhatHasNoRoom) {
  const auto within = [](size_t columns) {
    return ProgressText(188416, 300000, std::chrono::milliseconds(10000), columns);
  };
  EXPECT_EQ("188416 of 300000 bytes, 62 %, 18.8 kB/s, 0:06 left", within(50));
  EXPECT_EQ("188416 of 300000 bytes, 62 %, 0:06 left", within(49));
  EXPECT_EQ("62 %, 0:06 left", within(38));
  EXPECT_EQ("5000000 bytes", ProgressText(5000000, 0, std::chrono::milliseconds(1000), 20));
}

}  // namespace
