// SPDX-License-Identifier: MIT
#include "e2e/support/LogFile.h"

#include <algorithm>
#include <regex>
#include <sstream>

#include "e2e/support/Workplace.h"
#include "support/Eventually.h"

namespace {

std::string WithoutTimeAndSourceLine(const std::string& line) {
  static const std::regex format(
      R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{6}Z (\d) (\S+) (\S+):\d+ (\S+) (.*))");
  std::smatch part;
  if (!std::regex_match(line, part, format)) {
    return "malformed: " + line;
  }
  return part.str(1) + " " + part.str(2) + " " + part.str(3) + " " + part.str(4) + " " +
         part.str(5);
}

}  // namespace

std::vector<std::string> LogFile::Lines() {
  std::istringstream text(Text());
  std::vector<std::string> lines;
  std::string line;
  while (std::getline(text, line) && !text.eof()) {
    lines.push_back(WithoutTimeAndSourceLine(line));
  }
  return lines;
}

size_t LogFile::Count(const std::string& line) {
  const std::vector<std::string> lines = Lines();
  return static_cast<size_t>(std::count(lines.begin(), lines.end(), line));
}

bool LogFile::Shows(const std::string& line, size_t count) {
  return Eventually([&] { return Count(line) >= count; });
}

std::string LogFile::Text() { return workplace::ReadWhole(workplace::kLog); }
