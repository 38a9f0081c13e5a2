// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>
#include <vector>

// Something that a relay service can meet, and that does not happen by itself.
struct Provocation {
  enum class Kind { kUnplug, kPlug, kCable, kStatus, kNumbered };

  Kind kind = Kind::kCable;
  std::string port;     // empty: the chosen one
  std::string ids;      // kPlug and kNumbered: "0403:6001"
  uint16_t status = 0;  // kStatus
  std::string bytes;    // kNumbered

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
