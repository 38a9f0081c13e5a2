// SPDX-License-Identifier: MIT
#include "serve/Provocation.h"

#include <algorithm>
#include <charconv>
#include <sstream>

#include "relay/Error.h"
#include "relay/Packet.h"
#include "relay/Text.h"
#include "serve/PlayedService.h"

namespace {

using Words = std::vector<std::string>;

[[noreturn]] void RefuseProvocation(const std::string& what) {
  throw relay::Error(relay::ErrorKind::kUsage, what);
}

// Takes the word that is next; empty when there is none.
std::string TakeWord(Words& words) {
  if (words.empty()) {
    return "";
  }
  std::string word = words.front();
  words.erase(words.begin());
  return word;
}

// Names of ports begin with #, what else stands behind does not.
void TakePort(Words& words, Provocation& provocation) {
  if (!words.empty() && words.front().starts_with('#')) {
    provocation.port = TakeWord(words);
  }
}

void TakeIds(Words& words, Provocation& provocation) {
  provocation.ids = "0403:6001";
  if (!words.empty()) {
    const relay::Port ids = relay::Port::FromText(TakeWord(words));
    if (!ids.IsNumbered()) {
      RefuseProvocation(ids.Text() + " is no VID:PID");
    }
    provocation.ids = ids.Text();
  }
}

// All that is left.
void TakeNumbered(Words& words, Provocation& provocation) {
  TakeIds(words, provocation);
  std::string hex;
  while (!words.empty()) {
    hex += TakeWord(words);
  }
  provocation.bytes = relay::FromHex(hex);
  if (provocation.bytes.size() > PlayedService::kMostReceived) {
    RefuseProvocation("a notification has at most 4096 bytes");
  }
}

template <typename Number>
Number TakeNumber(Words& words, Number most) {
  const std::string word = TakeWord(words);
  Number number{};
  const char* const end = word.data() + word.size();
  const std::from_chars_result parsed = std::from_chars(word.data(), end, number);
  if (parsed.ec != std::errc() || parsed.ptr != end || !(number >= 0 && number <= most)) {
    RefuseProvocation(relay::Quote(word) + " is no number from 0 to " +
                      std::to_string(static_cast<unsigned>(most)));
  }
  return number;
}

void TakeSeconds(Words& words, Provocation& provocation) {
  constexpr double kMostSecondsProvoked = 1000000;
  provocation.seconds = TakeNumber<double>(words, kMostSecondsProvoked);
}

void TakeBehind(Words& words, Provocation& provocation) {
  if (!words.empty()) {
    provocation.behind = TakeNumber<size_t>(words, kMaxPacketSize);
  }
}

void TakeStatus(Words& words, Provocation& provocation) {
  const std::string word = TakeWord(words);
  if (word.size() != 1 || word[0] < '2' || word[0] > '5') {
    RefuseProvocation(relay::Quote(word) + " is no status from 2 to 5");
  }
  provocation.status = static_cast<uint16_t>(word[0] - '0');
}

struct Row {
  const char* word;
  Provocation::Kind kind;
  void (*take)(Words& words,
               Provocation& provocation);  // what stands behind the port; nullptr: nothing
};

constexpr Row kRows[] = {
    {"unplug", Provocation::Kind::kUnplug, nullptr},
    {"plug", Provocation::Kind::kPlug, TakeIds},
    {"cable", Provocation::Kind::kCable, nullptr},
    {"status", Provocation::Kind::kStatus, TakeStatus},
    {"numbered", Provocation::Kind::kNumbered, TakeNumbered},
    {"late", Provocation::Kind::kLate, TakeSeconds},
    {"never", Provocation::Kind::kNever, nullptr},
    {"break", Provocation::Kind::kBreak, TakeBehind},
    {"end", Provocation::Kind::kEnd, nullptr},
    {"reset", Provocation::Kind::kReset, nullptr},
    {"away", Provocation::Kind::kAway, TakeSeconds},
};

}  // namespace

Provocation Provocation::FromText(const std::string& text) {
  std::istringstream stream(text);
  Words words;
  for (std::string word; stream >> word;) {
    words.push_back(word);
  }
  const std::string name = TakeWord(words);
  const auto* const row = std::find_if(std::begin(kRows), std::end(kRows),
                                       [&](const Row& one) { return name == one.word; });
  if (row == std::end(kRows)) {
    std::string all;
    for (const Row& one : kRows) {
      all += (all.empty() ? "" : ", ") + std::string(one.word);
    }
    RefuseProvocation(relay::Quote(name) + " is none of " + all);
  }
  Provocation provocation;
  provocation.kind = row->kind;
  TakePort(words, provocation);
  if (row->take != nullptr) {
    row->take(words, provocation);
  }
  if (!words.empty()) {
    RefuseProvocation(relay::Quote(words.front()) + " is too much behind " + name);
  }
  return provocation;
}

const std::vector<ProvokingKey>& ProvokingKeys() {
  static const std::vector<ProvokingKey> keys = {
      {'u', "cable", "unplug the chosen port's device, or plug it in"},
      {'2', "status 2", "its next open is answered with status 2"},
      {'3', "status 3", "... with status 3"},
      {'4', "status 4", "... with status 4"},
      {'5', "status 5", "its next close is answered with status 5"},
      {'n', "numbered 0403:6001 48 69", "a notification by ids, \"Hi\" from 0403:6001"},
      {'l', "late 2", "the next answer comes 2 seconds late, and all behind it"},
      {'x', "never", "the next answer never comes"},
      {'b', "break", "the link breaks in the middle of the next packet"},
      {'e', "end", "the link ends"},
      {'r', "reset", "the link is reset"},
      {'a', "away 5", "the link ends, and nobody listens for 5 seconds"},
  };
  return keys;
}
