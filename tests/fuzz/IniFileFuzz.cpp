// SPDX-License-Identifier: MIT
// Any text is either well formed, and every value stands in it and is short enough, or malformed at
// a line that it has.
#include <algorithm>
#include <string>

#include "Check.h"
#include "libvost/IniFile.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  constexpr size_t kLongestValue = 63;
  const std::string text(data, data + size);
  const vost::IniFile file = vost::ParseIni(text, kLongestValue);
  if (file.badLine != 0) {
    const auto lines = std::count(text.begin(), text.end(), '\n') + 1;
    Check(file.problem != nullptr && file.badLine <= lines,
          "a line of the text, and what is wrong");
    Check(file.sections.empty(), "nothing is taken from a malformed text");
    return 0;
  }
  for (const auto& [name, section] : file.sections) {
    Check(text.find("[" + std::string(name) + "]") != std::string::npos,
          "the section stands there");
    for (const auto& [key, value] : section) {
      Check(!key.empty() && value.size() <= kLongestValue, "a key, and a value that fits");
      Check(text.find(key) != std::string::npos && text.find(value) != std::string::npos,
            "both stand in the text");
      Check(*file.Find(name, key) == value, "what is there is found");
    }
  }
  return 0;
}
