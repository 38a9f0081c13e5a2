// SPDX-License-Identifier: MIT
#include "libvost/IniFile.h"

#include <algorithm>

namespace vost {
namespace {

constexpr std::string_view kBlanks = " \t";

// What is wrong with a line; nullptr: nothing.
using Problem = const char*;

std::string_view WithoutBlanks(std::string_view text) {
  const std::size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) {
    return {};
  }
  return text.substr(first, text.find_last_not_of(kBlanks) + 1 - first);
}

bool IsForbidden(char character) {
  const auto byte = static_cast<unsigned char>(character);
  return (byte < 0x20 && byte != '\t') || byte == 0x7f;
}

bool IsComment(std::string_view line) {
  return line.starts_with(';') || line == "#" || line.starts_with("# ") || line.starts_with("#\t");
}

// Takes the next line, without its end, off the front of `text`.
std::string_view TakeLine(std::string_view& text) {
  const std::size_t end = text.find('\n');
  std::string_view line = text.substr(0, end);
  text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  if (line.ends_with('\r')) {
    line.remove_suffix(1);
  }
  return line;
}

Problem Unquote(std::string_view& value) {
  if (!value.starts_with('"')) {
    return nullptr;
  }
  value.remove_prefix(1);
  if (!value.ends_with('"')) {
    return "quote not closed";
  }
  value.remove_suffix(1);
  return value.find('"') != std::string_view::npos ? "quote inside of quotes" : nullptr;
}

class Parser {
 public:
  Parser(IniFile& result, std::size_t valueLimit) : file(result), longestValue(valueLimit) {}

  Problem TakeLine(std::string_view line) {
    if (std::any_of(line.begin(), line.end(), IsForbidden)) {
      return "control byte in the line";
    }
    const std::string_view content = WithoutBlanks(line);
    if (content.empty() || IsComment(content)) {
      return nullptr;
    }
    return content.starts_with('[') ? OpenSection(content) : AddEntry(content);
  }

 private:
  Problem OpenSection(std::string_view content) {
    if (content.find(']') != content.size() - 1) {
      return "section name without one ']' at the end of the line";
    }
    const std::string_view name = content.substr(1, content.size() - 2);
    if (name.empty()) {
      return "section without a name";
    }
    const auto [place, isNew] = file.sections.try_emplace(name);
    section = &place->second;
    return isNew ? nullptr : "section given twice";
  }

  Problem AddEntry(std::string_view content) {
    const std::size_t equals = content.find('=');
    if (equals == std::string_view::npos) {
      return "neither comment, [section] nor key = value";
    }
    if (section == nullptr) {
      return "key outside of a section";
    }
    const std::string_view key = WithoutBlanks(content.substr(0, equals));
    if (key.empty()) {
      return "value without a key";
    }
    std::string_view value = WithoutBlanks(content.substr(equals + 1));
    if (Problem problem = Unquote(value); problem != nullptr) {
      return problem;
    }
    if (value.size() > longestValue) {
      return "value too long";
    }
    return section->try_emplace(key, value).second ? nullptr : "key given twice in its section";
  }

  IniFile& file;
  std::size_t longestValue;
  IniSection* section = nullptr;
};

}  // namespace

const std::string_view* IniFile::Find(std::string_view section, std::string_view key) const {
  const auto place = sections.find(section);
  if (place == sections.end()) {
    return nullptr;
  }
  const auto entry = place->second.find(key);
  return entry == place->second.end() ? nullptr : &entry->second;
}

IniFile ParseIni(std::string_view text, std::size_t longestValue) {
  IniFile file;
  Parser parser(file, longestValue);
  for (int number = 1; !text.empty(); ++number) {
    file.problem = parser.TakeLine(TakeLine(text));
    if (file.problem != nullptr) {
      file.badLine = number;
      file.sections.clear();
      break;
    }
  }
  return file;
}

}  // namespace vost
