// SPDX-License-Identifier: MIT
#include "relay/Text.h"

#include "relay/Error.h"

namespace relay {

namespace {

constexpr std::string_view kDigits = "0123456789ABCDEF";

// Letter and byte of each escape; the first of a byte is the one that Escape writes.
struct EscapeRow {
  char letter;
  char byte;
};
constexpr EscapeRow kEscapes[] = {
    {'n', '\n'}, {'r', '\r'}, {'t', '\t'},   {'b', '\b'},  {'f', '\f'}, {'v', '\v'},
    {'a', '\a'}, {'0', '\0'}, {'e', '\x1B'}, {'\\', '\\'}, {'"', '"'},  {'\'', '\''},
};

bool IsPrintable(char byte) { return byte >= ' ' && byte <= '~'; }

// -1: no hex digit.
int DigitValue(char digit) {
  const char upper = digit >= 'a' && digit <= 'f' ? static_cast<char>(digit - 'a' + 'A') : digit;
  const size_t value = kDigits.find(upper);
  return value == std::string_view::npos ? -1 : static_cast<int>(value);
}

bool IsBlank(char letter) {
  return letter == ' ' || letter == '\t' || letter == '\n' || letter == '\r';
}

bool IsSeparator(char letter) { return letter == ':' || letter == '-' || letter == ','; }

[[noreturn]] void RefuseHex(std::string_view text, size_t at) {
  throw Error(ErrorKind::kUsage, "not hex bytes: \"" + Escape(text.substr(at, 20)) +
                                     "\" at position " + std::to_string(at + 1));
}

// The byte of the two digits at `at`, or -1.
int ByteAt(std::string_view text, size_t at) {
  const int high = at < text.size() ? DigitValue(text[at]) : -1;
  const int low = at + 1 < text.size() ? DigitValue(text[at + 1]) : -1;
  return high < 0 || low < 0 ? -1 : high * 16 + low;
}

}  // namespace

std::string FromHex(std::string_view text) {
  std::string bytes;
  bytes.reserve(text.size() / 2);
  size_t at = 0;
  while (at < text.size()) {
    if (IsBlank(text[at]) || (IsSeparator(text[at]) && !bytes.empty() && at + 1 < text.size())) {
      ++at;
      continue;
    }
    if (text[at] == '0' && at + 1 < text.size() && (text[at + 1] | 0x20) == 'x') {
      at += 2;
    }
    const int byte = ByteAt(text, at);
    if (byte < 0) {
      RefuseHex(text, at);
    }
    bytes += static_cast<char>(byte);
    at += 2;
  }
  return bytes;
}

std::string ToHex(std::string_view bytes, std::string_view separator) {
  std::string text;
  text.reserve(bytes.size() * (2 + separator.size()));
  for (const char byte : bytes) {
    if (!text.empty()) {
      text += separator;
    }
    const auto value = static_cast<unsigned char>(byte);
    text += kDigits[value >> 4];
    text += kDigits[value & 0xF];
  }
  return text;
}

std::string Unescape(std::string_view text) {
  std::string bytes;
  bytes.reserve(text.size());
  for (size_t at = 0; at < text.size(); ++at) {
    if (text[at] != '\\') {
      bytes += text[at];
      continue;
    }
    const char letter = at + 1 < text.size() ? text[at + 1] : '\0';
    ++at;
    if (letter == 'x') {
      const int byte = ByteAt(text, at + 1);
      if (byte < 0) {
        throw Error(ErrorKind::kUsage, "\\x needs two hex digits behind it");
      }
      bytes += static_cast<char>(byte);
      at += 2;
      continue;
    }
    bool known = false;
    for (const EscapeRow& row : kEscapes) {
      if (at < text.size() && row.letter == letter) {
        bytes += row.byte;
        known = true;
      }
    }
    if (!known) {
      throw Error(ErrorKind::kUsage, "unknown escape \"\\" + Printable(text.substr(at, 1)) +
                                         "\" (\\\\ is one backslash)");
    }
  }
  return bytes;
}

namespace {

std::string EscapeByte(char byte, bool inQuotes) {
  if (IsPrintable(byte) && byte != '\\' && !(inQuotes && byte == '"')) {
    return std::string(1, byte);
  }
  for (const EscapeRow& row : kEscapes) {
    if (row.byte == byte) {
      return std::string("\\") + row.letter;
    }
  }
  return "\\x" + ToHex(std::string_view(&byte, 1));
}

std::string EscapeAll(std::string_view bytes, bool inQuotes) {
  std::string text;
  text.reserve(bytes.size());
  for (const char byte : bytes) {
    text += EscapeByte(byte, inQuotes);
  }
  return text;
}

}  // namespace

std::string Escape(std::string_view bytes) { return EscapeAll(bytes, false); }

std::string Quote(std::string_view bytes) { return '"' + EscapeAll(bytes, true) + '"'; }

std::string Printable(std::string_view bytes, char dot) {
  std::string text(bytes);
  for (char& byte : text) {
    if (!IsPrintable(byte)) {
      byte = dot;
    }
  }
  return text;
}

}  // namespace relay
