// SPDX-License-Identifier: MIT
// What commands print.
#pragma once

#include <concepts>
#include <cstdint>
#include <string>
#include <string_view>

#include "relay/Client.h"

enum class Color { kNone, kToService, kFromService, kGood, kBad, kDim };

// Whether colour may be used on the descriptor: a terminal, TERM other than "dumb", and NO_COLOR
// unset or empty.
bool MayColor(int descriptor);

// How many columns the descriptor's terminal has; 80 when nobody knows.
size_t ColumnsOf(int descriptor);

// `text` in the colour when `isColored`, else as it is.
std::string Paint(std::string_view text, Color color, bool isColored);

// One JSON object on one line. Keys in the order in which they are added.
class JsonLine {
 public:
  JsonLine& Add(std::string_view key, std::string_view value);
  JsonLine& Add(std::string_view key, const char* value) {
    return Add(key, std::string_view(value));
  }
  template <std::integral Number>
  requires(!std::same_as<Number, bool>) JsonLine& Add(std::string_view key, Number value) {
    return AddRaw(key, std::to_string(value));
  }
  JsonLine& Add(std::string_view key, double seconds);  // microseconds exactly
  JsonLine& Add(std::string_view key, bool value);

  std::string Text() const { return body + "}"; }

 private:
  JsonLine& AddRaw(std::string_view key, std::string_view text);

  std::string body = "{";
};

// A JSON string: ASCII, every byte above 0x7E as the code point of the same number, so that any
// bytes can be had back.
std::string JsonString(std::string_view bytes);

// Standard streams that the caller has closed become unusable ones: their numbers would go to the
// link, and what is printed into it. To be called before anything is opened.
void OccupyClosedStreams();

// Throws relay::Error when something of what was printed could not be written.
void FlushOutput();

// The reason is in errno.
[[noreturn]] void FailToPrint();

// One line on standard output, at once. Throws relay::Error when it cannot be written.
void PrintLine(std::string_view text);

// One line on standard error.
void PrintNotice(std::string_view text);

// Prints what became of an open or a close: `#PhysicalPort0: open`, or as JSON.
void PrintReply(const relay::Reply& reply, bool asJson);

// Of a status other than 0: `#X: status 2: this machine's …`, and what may be wrong with the name.
std::string RefusalText(const relay::Reply& reply);

// Throws kRefused with that text.
void CheckReply(const relay::Reply& reply);
