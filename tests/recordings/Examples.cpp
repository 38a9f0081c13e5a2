// SPDX-License-Identifier: MIT
#include "recordings/Examples.h"

#include <sstream>

#include "e2e/support/Workplace.h"

std::vector<Example> ReadExamples(const std::string& document) {
  constexpr std::string_view kFence = "```";
  std::vector<Example> examples(1);
  std::istringstream lines(workplace::ReadWhole(document));
  for (std::string line; std::getline(lines, line);) {
    if (!line.starts_with(kFence)) {
      examples.back().text += line + "\n";
      continue;
    }
    Example& next = examples.emplace_back();
    std::istringstream(line.substr(kFence.size())) >> next.kind >> next.name;
  }
  return examples;
}
