// SPDX-License-Identifier: MIT
#include "simulation/oracle/Streams.h"

#include <algorithm>
#include <cctype>

namespace simulation {
namespace {

struct LogMessage {
  char level;
  std::string_view module;
  std::string_view file;
  std::string_view beginning;  // of the message
  std::string_view end;
};

constexpr std::string_view kService = "SerialPortHandler";
constexpr std::string_view kCore = "SerialPortHandler.cpp";
constexpr LogMessage kMessages[] = {
    {'3', kService, kCore, "Serial Port Handler start running.", ""},
    {'3', kService, kCore, "open command proc.", ""},
    {'3', kService, kCore, "close command proc.", ""},
    {'3', kService, kCore, "data command proc.", ""},
    {'3', kService, kCore, "request stop.", ""},
    {'3', kService, kCore, "Serial Port Handler stop.", ""},
    {'1', kService, kCore, "Command parse failed.", ""},
    {'1', kService, kCore, "Serial Device Send Error.", ""},
    {'1', kService, "SerialPort.cpp", "Cannot open serial device. [Port ", "]"},
    {'1', kService, "SerialPort.cpp", "Close serial device. [Port /dev/", "]"},
    {'0', kService, "CommSocket.cpp", "Failed to open the Socket connection for RelayService.", ""},
    {'1', "LinuxThread", "Linux/LinuxThread.cpp", "error: thread can not join", ""},
    {'1', "LinuxThread", "Linux/LinuxThread.cpp", "error: thread can not cancel", ""},
    {'1', "LinuxThread", "Linux/LinuxThread.cpp", "error: thread can not detach", ""},
    {'1', "libvost", "Libvost.cpp", "/etc/vost.conf: ", ""},
    {'1', "libvost", "Libvost.cpp", "/etc/vost.conf:", ""},
};

bool IsMessage(const LogMessage& known, std::string_view message) {
  const bool isWhole = known.beginning.ends_with('.');
  return isWhole ? message == known.beginning
                 : message.size() >= known.beginning.size() + known.end.size() &&
                       message.starts_with(known.beginning) && message.ends_with(known.end);
}

std::string_view TakeWord(std::string_view& rest) {
  const size_t end = std::min(rest.find(' '), rest.size());
  const std::string_view word = rest.substr(0, end);
  rest.remove_prefix(std::min(end + 1, rest.size()));
  return word;
}

// 2026-11-21T02:50:26.668817Z
bool IsTime(std::string_view word) {
  constexpr std::string_view kForm = "0000-00-00T00:00:00.000000Z";
  return word.size() == kForm.size() &&
         std::equal(word.begin(), word.end(), kForm.begin(), [](char found, char form) {
           return form == '0' ? std::isdigit(static_cast<unsigned char>(found)) != 0
                              : found == form;
         });
}

bool IsNumber(std::string_view text) {
  return !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
}

}  // namespace

// TIME LEVEL MODULE FILE:LINE TAG MESSAGE
std::string MessageOf(std::string_view line) {
  if (!line.ends_with('\n')) {
    return {};
  }
  std::string_view rest = line.substr(0, line.size() - 1);
  const std::string_view time = TakeWord(rest);
  const std::string_view level = TakeWord(rest);
  const std::string_view module = TakeWord(rest);
  const std::string_view place = TakeWord(rest);
  const std::string_view tag = TakeWord(rest);
  const size_t colon = std::min(place.find(':'), place.size() - 1);
  const bool isKnown =
      std::any_of(std::begin(kMessages), std::end(kMessages), [&](const LogMessage& known) {
        return level == std::string_view(&known.level, 1) && module == known.module &&
               place.substr(0, colon) == known.file && IsMessage(known, rest);
      });
  const bool isFormed = IsTime(time) && tag == "4" && IsNumber(place.substr(colon + 1));
  return isFormed && isKnown ? std::string(rest) : std::string();
}

bool IsKnownOnConsole(std::string_view line) {
  constexpr std::string_view kListens = "[LISTEN]IP:127.0.0.1(PORT:";
  return line.starts_with("[ACCEPT]IP:127.0.0.") || line == "終了" ||
         line.starts_with("recv error:") ||
         (line.starts_with(kListens) && line.ends_with(")") &&
          IsNumber(line.substr(kListens.size(), line.size() - kListens.size() - 1)));
}

std::string DumpOf(std::string_view data) {
  constexpr std::string_view kDigits = "0123456789ABCDEF";
  std::string text = "Received(" + std::to_string(data.size()) + "):";
  for (const char byte : data) {
    const auto value = static_cast<unsigned char>(byte);
    text += {kDigits[value / 16], kDigits[value % 16], ' '};
  }
  return text;
}

std::vector<std::string> Lines::Add(std::string_view text) {
  std::vector<std::string> whole;
  rest += text;
  for (size_t end = 0; (end = rest.find('\n')) != std::string::npos; rest.erase(0, end + 1)) {
    whole.push_back(rest.substr(0, end));
  }
  return whole;
}

}  // namespace simulation
