// SPDX-License-Identifier: MIT
// usage: ConformanceReal | ConformanceSimulated
// Plays each row on the kernel that its name tells, and prints the table.
#include <iostream>

#include "simulation/conformance/Play.h"

using namespace conformance;

int main() {
  if (const std::string problem = PrepareKernel(); !problem.empty()) {
    std::cerr << "conformance: " << problem << std::endl;
    return 2;
  }
  std::cout << "| what is done | what comes of it |\n|---|---|\n";
  for (const auto& rows : {FileRows(), PipeRows(), TerminalRows(), ListenRows(), ConnectionRows(),
                           ThreadRows(), SignalRows(), CancellationRows(), EndRows()}) {
    for (const Row& row : rows) {
      std::cout << "| " << row.name << " | " << Play(row) << " |" << std::endl;
    }
  }
  return 0;
}
