// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <optional>
#include <string>

#include "relay/Client.h"

// What came from a port without a pause.
struct Message {
  relay::Port port;
  relay::Clock::time_point began;  // its first byte came
  relay::Clock::time_point ended;  // its last
  std::string bytes;
};

// Puts the bytes of each port together until it is silent for a while, as the places where
// notifications end mean nothing.
class MessageGatherer {
 public:
  // `silence` 0: what comes together is one message.
  MessageGatherer(relay::Millis silence, std::function<void(const Message&)> messageTaker);

  void Add(const relay::Port& port, std::string_view bytes);

  // When Flush is due.
  std::optional<relay::Clock::time_point> Due() const;

  // Gives the messages that are over; all: those too that are not.
  void Flush(bool all = false);

 private:
  const relay::Millis silence;
  const std::function<void(const Message&)> taker;
  std::map<relay::Port, Message> open;
};

enum class TimeForm { kAbsolute, kSinceStart, kDelta, kNone };

// Times as a person reads them: 07:35:40.123456, 12.345678, +0.001234.
class TimeView {
 public:
  explicit TimeView(TimeForm timeForm);

  // Each call of the delta form counts from the one before.
  std::string Text(relay::Clock::time_point when);

  // For scripts: seconds since 1970.
  double UnixTime(relay::Clock::time_point when) const;

 private:
  const TimeForm form;
  const relay::Clock::time_point start = relay::Clock::now();
  const std::chrono::system_clock::time_point startOfDay = std::chrono::system_clock::now();
  relay::Clock::time_point last = start;
};

enum class ByteForm { kBoth, kHex, kText };

// How wide a row of hex is at most, with the blank behind it.
constexpr size_t kHexWidth = 48;

// The rows of a message, without what stands in front of each.
std::vector<std::string> Rows(std::string_view bytes, ByteForm form);
