// SPDX-License-Identifier: MIT
// The grammar of the configuration file, on a text in memory.
//
//   ; comment, also "# comment" (hash and blank) and a lone "#"
//   [section]
//   key = value
//   key = " value with its blanks "
//
// A blank is a space or a tab. Blanks before and behind a line, a key and a value are dropped;
// lines may end in LF or CR LF, the last one without either. A section's name stands between the
// brackets as it is, so "[#PhysicalPort0]" is a section and no comment. There is no comment behind
// a value. Keys and sections that nobody asks for are accepted.
//
// A text is malformed as a whole when one of its lines is: a line of no such form, a control byte
// other than the tab, a key outside a section, an empty name, a quote that is not closed or has a
// quote within, a value that is too long, a section given twice, a key given twice in a section.
#pragma once

#include <cstddef>
#include <map>
#include <string_view>

namespace vost {

using IniSection = std::map<std::string_view, std::string_view>;

// Names and values are pieces of the text that was parsed, which must outlive them.
struct IniFile {
  std::map<std::string_view, IniSection> sections;  // empty when malformed

  int badLine = 0;                // the first malformed line, counted from 1; 0: well formed
  const char* problem = nullptr;  // what is wrong with it

  // The value, or nullptr when the section or the key is missing.
  const std::string_view* Find(std::string_view section, std::string_view key) const;
};

// `longestValue`: bytes of the longest value allowed.
IniFile ParseIni(std::string_view text, std::size_t longestValue);

}  // namespace vost
