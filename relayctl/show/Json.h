// SPDX-License-Identifier: MIT
// The JSON that commands print.
#pragma once

#include <concepts>
#include <string>
#include <string_view>
#include <vector>

// One JSON object on one line. Keys in the order in which they are added.
class JsonLine {
 public:
  // Bytes, each a character of its own number, so that any can be had back. ASCII comes of it.
  JsonLine& Add(std::string_view key, std::string_view bytes);
  JsonLine& Add(std::string_view key, const char* bytes) {
    return Add(key, std::string_view(bytes));
  }

  // What people wrote: UTF-8 stays, and what is none becomes U+FFFD.
  JsonLine& AddText(std::string_view key, std::string_view text);
  JsonLine& AddTexts(std::string_view key, const std::vector<std::string>& texts);

  template <std::integral Number>
  requires(!std::same_as<Number, bool>) JsonLine& Add(std::string_view key, Number value) {
    return AddRaw(key, std::to_string(value));
  }
  JsonLine& Add(std::string_view key, double seconds);  // microseconds exactly
  JsonLine& Add(std::string_view key, bool value);
  JsonLine& Add(std::string_view key, const JsonLine& object);
  JsonLine& Add(std::string_view key, const std::vector<JsonLine>& objects);

  std::string Text() const { return body + "}"; }

 private:
  JsonLine& AddRaw(std::string_view key, std::string_view text);

  std::string body = "{";
};
