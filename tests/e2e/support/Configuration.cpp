// SPDX-License-Identifier: MIT
#include "e2e/support/Configuration.h"

#include <sstream>

#include "e2e/support/Workplace.h"

void Configuration::RelayPort(const std::string& text) {
  relayPort = text;
  Write();
}

void Configuration::Port(const std::string& name, const std::string& words) {
  ports[name] = words;
  Write();
}

void Configuration::Text(const std::string& text) {
  workplace::WriteWhole(workplace::kConfiguration, text);
}

void Configuration::Write() const {
  std::string text;
  if (!relayPort.empty()) {
    text += "[connect]\nport = " + relayPort + "\n";
  }
  for (const auto& [name, words] : ports) {
    text += "[" + name + "]\n";
    std::istringstream rest(words);
    for (const char* const key : {"baud", "data", "parity", "stop", "flow"}) {
      std::string word;
      rest >> word;
      text += std::string(key) + " = " + word + "\n";
    }
  }
  Text(text);
}
