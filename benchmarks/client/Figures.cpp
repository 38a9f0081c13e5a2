// SPDX-License-Identifier: MIT
#include "client/Figures.h"

#include <algorithm>
#include <sstream>

double MicrosecondsSince(Clock::time_point begin) {
  return std::chrono::duration<double, std::micro>(Clock::now() - begin).count();
}

void AddPercentiles(Figures& figures, const std::string& name, std::vector<double>& samples) {
  std::sort(samples.begin(), samples.end());
  const size_t last = samples.size() - 1;
  figures[name + "_p50"] = samples[last / 2];
  figures[name + "_p99"] = samples[last * 99 / 100];
}

std::string JsonOf(const Figures& figures) {
  std::ostringstream text;
  const char* separator = "{";
  for (const auto& [name, value] : figures) {
    text << separator << '"' << name << "\": " << value;
    separator = ", ";
  }
  text << "}";
  return text.str();
}
