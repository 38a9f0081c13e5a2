// SPDX-License-Identifier: MIT
#include "recordings/Lines.h"

#include <sstream>

#include "e2e/support/LogFile.h"
#include "e2e/support/Service.h"
#include "support/Eventually.h"

namespace {

std::vector<std::string> LinesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream rest(text);
  for (std::string line; std::getline(rest, line) && !rest.eof();) {
    lines.push_back(line.substr(0, line.find_last_not_of(' ') + 1));
  }
  return lines;
}

// Of "LEVEL MODULE FILE TAG MESSAGE".
std::string LevelAndMessage(const std::string& line) {
  std::istringstream rest(line);
  std::string level;
  std::string word;
  rest >> level >> word >> word >> word;
  std::getline(rest, word);
  return level + word;
}

}  // namespace

std::string Lines::Next() {
  (void)Eventually([this] { return read().size() > taken; });
  const std::vector<std::string> all = read();
  return all.size() > taken ? all[taken++] : "nothing";
}

std::string Lines::Rest() const {
  const std::vector<std::string> all = read();
  std::string rest;
  for (size_t line = taken; line < all.size(); ++line) {
    rest += all[line] + "\n";
  }
  return rest;
}

std::vector<std::string> LogLines() {
  std::vector<std::string> lines;
  for (const std::string& line : LogFile::Lines()) {
    lines.push_back(LevelAndMessage(line));
  }
  std::erase(lines, "3 Serial Port Handler start running.");
  return lines;
}

std::vector<std::string> OutputLines() {
  std::vector<std::string> lines = LinesOf(Service::Output());
  std::erase_if(lines, [](const std::string& line) { return line.starts_with("["); });
  return lines;
}

std::vector<std::string> ErrorLines() { return LinesOf(Service::Errors()); }
