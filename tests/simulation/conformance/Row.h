// SPDX-License-Identifier: MIT
// One little script, and what it is called in the table.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "simulation/conformance/Bench.h"

namespace conformance {

struct Row {
  std::string name;
  std::function<void(Bench&)> play;
};

std::vector<Row> FileRows();
std::vector<Row> PipeRows();
std::vector<Row> TerminalRows();
std::vector<Row> ListenRows();
std::vector<Row> ConnectionRows();
std::vector<Row> ThreadRows();
std::vector<Row> SignalRows();
std::vector<Row> CancellationRows();
std::vector<Row> EndRows();

}  // namespace conformance
