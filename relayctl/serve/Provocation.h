// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// Something that a relay service can meet, and that does not happen by itself.
struct Provocation {
  enum class Kind {
    kUnplug,
    kPlug,
    kCable,   // one of the two, as it is
    kStatus,  // of the next open or close
    kNumbered,
    kLate,   // the next answer comes so late
    kNever,  // the next answer does not come
    kBreak,  // the link breaks in the middle of the next packet
    kEnd,
    kReset,
    kAway,  // nobody listens for a time
  };

  Kind kind = Kind::kCable;
  std::string port;              // empty: the chosen one
  std::string ids;               // kPlug and kNumbered: "0403:6001"
  uint16_t status = 0;           // kStatus
  std::string bytes;             // kNumbered
  double seconds = 0;            // kLate and kAway
  std::optional<size_t> behind;  // kBreak: so many bytes; else half of them

  // "unplug #USBSerialPort0", "status 4". Throws kUsage for what is none.
  static Provocation FromText(const std::string& text);
};

// A key of the keyboard, and what is provoked by it.
struct ProvokingKey {
  char key;
  const char* provocation;
  const char* help;
};

const std::vector<ProvokingKey>& ProvokingKeys();
