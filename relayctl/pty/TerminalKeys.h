// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <string_view>
#include <vector>

// What Enter sends.
enum class LineEnding { kCr, kLf, kCrLf };
std::string BytesOf(LineEnding ending);
std::string NameOf(LineEnding ending);  // "CR"
LineEnding Next(LineEnding ending);

enum class TerminalAction {
  kSend,  // the bytes
  kQuit,
  kSuspend,
  kHelp,
  kHex,
  kEcho,
  kEnding,
  kFile,
  kStatistics,
  kUnknown,  // a key behind the escape key that means nothing
};

struct KeyPress {
  TerminalAction action = TerminalAction::kSend;
  std::string bytes;

  bool operator==(const KeyPress&) const = default;
};

// Tells the keys that are meant for the terminal itself from those for the device. The first are
// those behind the escape key; the escape key twice sends it.
class TerminalKeys {
 public:
  // `escape`: the byte that the key sends, a control byte.
  explicit TerminalKeys(char escape) : escapeKey(escape) {}

  // Takes what was typed off the front of `typed`, with neighbouring bytes for the device in one
  // piece. Enter is still the byte that the keyboard sends, CR. What stands behind kFile is left:
  // these keys are the file's name.
  std::vector<KeyPress> Take(std::string_view& typed);

  // "Ctrl-]"
  std::string EscapeName() const;

  // Several lines, each with its end.
  std::string Help() const;

 private:
  char escapeKey;
  bool escaped = false;
};

// The byte that a key's name stands for: "^]", "ctrl-]", "Ctrl-A", "0x1d"; -1: it is none, or no
// control byte.
int ControlByte(const std::string& name);

// One line that a person types while keys come one at a time: Backspace takes a character back,
// Ctrl-U all, Ctrl-C, Ctrl-D and Escape give up.
class LinePrompt {
 public:
  enum class State { kTyping, kDone, kGivenUp };

  // Takes keys off the front of `typed`, up to the end of the line, and gives what to show for
  // them.
  std::string Take(std::string_view& typed);

  State Now() const { return state; }
  const std::string& Text() const { return text; }

 private:
  std::string text;
  State state = State::kTyping;
};
