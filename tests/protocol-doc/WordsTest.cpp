// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include "protocol-doc/Words.h"
#include "support/Hex.h"

namespace {

std::string OfCommand(const std::string& hexText) {
  const std::vector<uint8_t> bytes = FromHex(hexText);
  return Words(CommandPacket(bytes.data(), static_cast<uint32_t>(bytes.size())));
}

std::string OfAnswer(const std::string& hexText) {
  const std::optional<ServicePacket> packet = TakeApart(FromHex(hexText));
  return packet ? Words(*packet) : "wrong";
}

TEST(WordsTest, CommandsTellTheirPortAndTheirBody) {
  EXPECT_EQ("open X", OfCommand("0007 01 02 0001 58"));
  EXPECT_EQ("close 0403:6001, parameter 0005", OfCommand("000A 02 01 0403 6001 0005"));
  EXPECT_EQ("data for X: no block", OfCommand("0008 04 02 0001 58 00"));
  EXPECT_EQ("data for X: type 1 \"AB\", type 255 \"\\r\"",
            OfCommand("0011 04 02 0001 58 02 01 0002 4142 FF 0001 0D"));
  EXPECT_EQ("refused", OfCommand("0007 03 02 0001 58"));
}

TEST(WordsTest, AnswersTellTheirPortAndTheirBody) {
  EXPECT_EQ("reply to open X: status 3", OfAnswer("0009 01 02 0001 58 0003"));
  EXPECT_EQ("reply to close 0403:6001: status 2", OfAnswer("000A 02 01 0403 6001 0002"));
  EXPECT_EQ("from X: \"\\x1B\\\"\\\\\\n\"", OfAnswer("000F 04 02 0001 58 01 02 0004 1B225C0A"));
}

TEST(WordsTest, WhatTheServiceNeverSendsIsWrong) {
  EXPECT_EQ("wrong", OfAnswer("0008 01 02 0001 58 0003"));           // length too short
  EXPECT_EQ("wrong", OfAnswer("0008 01 02 0001 58 00"));             // half a status
  EXPECT_EQ("wrong", OfAnswer("000A 01 02 0001 58 0003 00"));        // something left over
  EXPECT_EQ("wrong", OfAnswer("0009 03 02 0001 58 0003"));           // command 3
  EXPECT_EQ("wrong", OfAnswer("000A 01 03 0403 6001 0000"));         // form 3
  EXPECT_EQ("wrong", OfAnswer("000C 04 02 0001 58 02 02 0001 41"));  // two blocks announced
  EXPECT_EQ("wrong", OfAnswer("000C 04 02 0001 58 01 01 0001 41"));  // type 1
}

}  // namespace
