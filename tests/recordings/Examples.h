// SPDX-License-Identifier: MIT
// The fenced blocks of a document, "```KIND NAME", and the prose between them.
#pragma once

#include <string>
#include <vector>

struct Example {
  std::string kind;  // empty: prose
  std::string name;
  std::string text;
};

std::vector<Example> ReadExamples(const std::string& document);
