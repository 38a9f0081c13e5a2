// SPDX-License-Identifier: MIT
#include "relayctl/StatusTable.h"

#include <cstdlib>
#include <regex>
#include <sstream>

#include "e2e/support/Workplace.h"

namespace {

// A word in capital letters stands for what varies, as dots do for what is left out.
std::string PatternOf(const std::string& quoted) {
  const std::string escaped =
      std::regex_replace(quoted, std::regex(R"([.^$|()\[\]{}*+?\\])"), "\\$&");
  return std::regex_replace(escaped, std::regex("\\b([MNPQT]|NAME|KEY|WORD)\\b|…"), ".+");
}

std::string FirstQuoteIn(const std::string& cell) {
  const size_t begin = cell.find('`') + 1;
  return begin == 0 ? "" : PatternOf(cell.substr(begin, cell.find('`', begin) - begin));
}

std::string GradeIn(const std::string& cell) {
  for (const std::string word : {"fault", "warning", "ok"}) {
    if (cell.find(word) != std::string::npos) {
      return word;
    }
  }
  return "note";
}

}  // namespace

StatusRow RowOf(const std::string& name) {
  const std::string head = "| " + name + " | ";
  std::istringstream lines(workplace::ReadWhole(SPH_OPERATIONS));
  StatusRow row;
  for (std::string line; row.status == -1 && std::getline(lines, line);) {
    const size_t middle = line.find(" | ", head.size());
    if (!line.starts_with(head) || middle == std::string::npos) {
      continue;
    }
    const std::string said = line.substr(head.size(), middle - head.size());
    const std::string doctor = line.substr(middle);
    row.status = std::atoi(said.c_str());
    row.words = FirstQuoteIn(said);
    row.grade = GradeIn(doctor);
    row.doctor = doctor.find('`') == std::string::npos ? row.words : FirstQuoteIn(doctor);
  }
  return row;
}
