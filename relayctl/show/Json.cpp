// SPDX-License-Identifier: MIT
#include "show/Json.h"

#include <cstdio>

#include "relay/Text.h"
#include "show/Utf8.h"

namespace {

bool IsPlain(char byte) { return byte >= ' ' && byte <= '~' && byte != '"' && byte != '\\'; }

std::string Escaped(char byte) {
  if (byte == '"' || byte == '\\') {
    return {'\\', byte};
  }
  return IsPlain(byte) ? std::string(1, byte) : "\\u00" + relay::ToHex(std::string_view(&byte, 1));
}

std::string Quoted(std::string_view bytes) {
  std::string text = "\"";
  for (const char byte : bytes) {
    text += Escaped(byte);
  }
  return text + '"';
}

std::string QuotedText(std::string_view text) {
  std::string quoted = "\"";
  while (!text.empty()) {
    const bool isAscii = static_cast<unsigned char>(text[0]) < 0x80;
    const size_t size = isAscii ? 1 : Utf8Size(text);
    quoted += isAscii    ? Escaped(text[0])
              : size > 0 ? std::string(text.substr(0, size))
                         : "\xEF\xBF\xBD";
    text.remove_prefix(size > 0 ? size : 1);
  }
  return quoted + '"';
}

// "[1,2]"
std::string Listed(const std::vector<std::string>& values) {
  std::string list;
  for (const std::string& value : values) {
    list += (list.empty() ? "" : ",") + value;
  }
  return "[" + list + "]";
}

}  // namespace

JsonLine& JsonLine::AddRaw(std::string_view key, std::string_view text) {
  body += (body.size() == 1 ? "" : ",") + Quoted(key) + ":";
  body += text;
  return *this;
}

JsonLine& JsonLine::Add(std::string_view key, std::string_view bytes) {
  return AddRaw(key, Quoted(bytes));
}

JsonLine& JsonLine::AddText(std::string_view key, std::string_view text) {
  return AddRaw(key, QuotedText(text));
}

JsonLine& JsonLine::AddTexts(std::string_view key, const std::vector<std::string>& texts) {
  std::vector<std::string> values;
  values.reserve(texts.size());
  for (const std::string& text : texts) {
    values.push_back(QuotedText(text));
  }
  return AddRaw(key, Listed(values));
}

JsonLine& JsonLine::Add(std::string_view key, double seconds) {
  char text[32];
  (void)std::snprintf(text, sizeof text, "%.6f", seconds);
  return AddRaw(key, text);
}

JsonLine& JsonLine::Add(std::string_view key, bool value) {
  return AddRaw(key, value ? "true" : "false");
}

JsonLine& JsonLine::Add(std::string_view key, const JsonLine& object) {
  return AddRaw(key, object.Text());
}

JsonLine& JsonLine::Add(std::string_view key, const std::vector<JsonLine>& objects) {
  std::vector<std::string> values;
  values.reserve(objects.size());
  for (const JsonLine& object : objects) {
    values.push_back(object.Text());
  }
  return AddRaw(key, Listed(values));
}
