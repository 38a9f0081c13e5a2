// SPDX-License-Identifier: MIT
#include "pty/TerminalKeys.h"

#include <algorithm>
#include <cctype>
#include <charconv>

namespace {

constexpr char kControlBit = 0x40;
constexpr char kDelete = 0x7F;
constexpr char kLastControl = 0x1F;

struct Command {
  char key;
  TerminalAction action;
  const char* help;
};

constexpr Command kCommands[] = {
    {'q', TerminalAction::kQuit, "leave"},
    {'h', TerminalAction::kHelp, "this help"},
    {'x', TerminalAction::kHex, "hex and text side by side, on or off"},
    {'e', TerminalAction::kEcho, "show what is typed (local echo), on or off"},
    {'n', TerminalAction::kEnding, "what Enter sends: CR, LF, CR LF"},
    {'s', TerminalAction::kFile, "send a file"},
    {'i', TerminalAction::kStatistics, "bytes so far"},
    {'z', TerminalAction::kSuspend, "back to the shell for a while (fg returns)"},
    {'?', TerminalAction::kHelp, nullptr},
    {'.', TerminalAction::kQuit, nullptr},
};

// With or without Shift or Control: a finger that still holds Control means the same key.
char Letter(char key) {
  const char plain = key > 0 && key <= 26 ? static_cast<char>(key | kControlBit) : key;
  return static_cast<char>(std::tolower(static_cast<unsigned char>(plain)));
}

TerminalAction ActionOf(char key) {
  for (const Command& command : kCommands) {
    if (command.key == Letter(key)) {
      return command.action;
    }
  }
  return TerminalAction::kUnknown;
}

}  // namespace

std::string BytesOf(LineEnding ending) {
  return ending == LineEnding::kCr ? "\r" : ending == LineEnding::kLf ? "\n" : "\r\n";
}

std::string NameOf(LineEnding ending) {
  return ending == LineEnding::kCr ? "CR" : ending == LineEnding::kLf ? "LF" : "CR LF";
}

LineEnding Next(LineEnding ending) {
  return ending == LineEnding::kCr   ? LineEnding::kLf
         : ending == LineEnding::kLf ? LineEnding::kCrLf
                                     : LineEnding::kCr;
}

std::vector<KeyPress> TerminalKeys::Take(std::string_view& typed) {
  std::vector<KeyPress> presses;
  const auto send = [&presses](char byte) {
    if (presses.empty() || presses.back().action != TerminalAction::kSend) {
      presses.push_back({TerminalAction::kSend, ""});
    }
    presses.back().bytes += byte;
  };
  while (!typed.empty() && (presses.empty() || presses.back().action != TerminalAction::kFile)) {
    const char key = typed.front();
    typed.remove_prefix(1);
    if (escaped) {
      escaped = false;
      if (key == escapeKey) {
        send(key);
      } else {
        presses.push_back({ActionOf(key), ""});
      }
    } else if (key == escapeKey) {
      escaped = true;
    } else {
      send(key);
    }
  }
  return presses;
}

std::string TerminalKeys::EscapeName() const {
  return std::string("Ctrl-") + static_cast<char>(escapeKey ^ kControlBit);
}

std::string TerminalKeys::Help() const {
  std::string help = EscapeName() + ", and then\n";
  for (const Command& command : kCommands) {
    if (command.help != nullptr) {
      help += std::string("  ") + command.key + "       " + command.help + "\n";
    }
  }
  return help + "  " + EscapeName() + "  sends " + EscapeName() + " itself\n";
}

int ControlByte(const std::string& name) {
  std::string text = name;
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char character) { return std::toupper(character); });
  int byte = -1;
  if (text.starts_with("0X")) {
    const char* const end = text.data() + text.size();
    const auto result = std::from_chars(text.data() + 2, end, byte, 16);
    byte = result.ptr == end && result.ec == std::errc() ? byte : -1;
  } else {
    const size_t prefix = text.starts_with("CTRL-") ? 5 : text.starts_with("^") ? 1 : text.size();
    byte = text.size() == prefix + 1 ? text.back() ^ kControlBit : -1;
  }
  return byte >= 0 && byte <= kLastControl ? byte : -1;
}

std::string LinePrompt::Take(std::string_view& typed) {
  constexpr char kInterrupt = 3;
  constexpr char kEndOfText = 4;
  constexpr char kBackspace = 8;
  constexpr char kKill = 21;
  constexpr char kEscape = 27;
  const std::string erase = "\b \b";
  std::string shown;
  while (!typed.empty() && state == State::kTyping) {
    const char key = typed.front();
    typed.remove_prefix(1);
    if (key == '\r' || key == '\n') {
      state = State::kDone;
    } else if (key == kInterrupt || key == kEndOfText || key == kEscape) {
      state = State::kGivenUp;
    } else if (key == kBackspace || key == kDelete) {
      shown += text.empty() ? "" : erase;
      text.resize(text.empty() ? 0 : text.size() - 1);
    } else if (key == kKill) {
      for (; !text.empty(); text.pop_back()) {
        shown += erase;
      }
    } else if (static_cast<unsigned char>(key) > kLastControl) {
      text += key;
      shown += key;
    }
  }
  return state == State::kTyping ? shown : shown + "\n";
}
