// SPDX-License-Identifier: MIT
#pragma once

#include <map>
#include <string>

// The machine's configuration file. Each change is written at once; the service reads the file at
// each look-up.
class Configuration {
 public:
  Configuration() { Write(); }

  // The relay port's text.
  void RelayPort(const std::string& text);

  // The setting words of one port, with blanks between them: "9600 8 none 1 none" are the baud
  // rate, data bits, parity, stop bits and flow control.
  void Port(const std::string& name, const std::string& words);

  // The file as a whole, for what the above cannot say.
  static void Text(const std::string& text);

 private:
  void Write() const;

  std::string relayPort;
  std::map<std::string, std::string> ports;
};
