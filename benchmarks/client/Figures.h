// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <map>
#include <string>
#include <vector>

// What one run over one bridge found, by name; the names say the unit.
using Figures = std::map<std::string, double>;

using Clock = std::chrono::steady_clock;

double MicrosecondsSince(Clock::time_point begin);

// Adds the median of `samples` as NAME_p50 and their 99th percentile as NAME_p99. `samples` is
// sorted by this; it holds at least one.
void AddPercentiles(Figures& figures, const std::string& name, std::vector<double>& samples);

// One JSON object.
std::string JsonOf(const Figures& figures);
