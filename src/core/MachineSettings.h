// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "core/SettingWords.h"
#include "serial/SerialSettings.h"

constexpr uint32_t kDefaultRelayPort = 60004;

// The TCP port that the configuration's text stands for: its leading number; the default when that
// is missing or a reserved one. A number beyond 31 bits counts as the largest of 31 bits.
uint32_t RelayPortOf(const std::string& text);

// What the machine's platform library says, asked afresh each time.
class MachineSettings {
 public:
  // Where the relay service is waited for; the default when the library says nothing. Any thread.
  static uint32_t RelayPort();

  // How the line of a port is set; nothing for a name that the library does not know. One call at a
  // time: unknown setting words are remembered.
  std::optional<SerialSettings> SettingsOf(const std::string& portName);

 private:
  WordTable baudRates = BaudRateWords();
  WordTable dataBitsWords = DataBitsWords();
  WordTable parityWords = ParityWords();
  WordTable stopBitsWords = StopBitsWords();
  WordTable flowControlWords = FlowControlWords();
};
