// SPDX-License-Identifier: MIT
#pragma once

#include <cstdio>
#include <cstdlib>

// Ends the run and keeps the input that broke the rule.
inline void Check(bool holds, const char* rule) {
  if (!holds) {
    (void)std::fprintf(stderr, "broken rule: %s\n", rule);
    std::abort();
  }
}
