// SPDX-License-Identifier: MIT
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>

#include "simulation/conformance/Play.h"
#include "simulation/conformance/SimulatedBench.h"

extern "C" ssize_t __real_read(int, void*, size_t);
extern "C" int __real_close(int);
extern "C" [[noreturn]] void __real__Exit(int);

namespace conformance {

using namespace simulation;

namespace {

constexpr uint64_t kSeeds = 20;  // in any order it comes to the same

[[noreturn]] void PlayInChild(const Row& row, uint64_t seed, int report) {
  Holding chooser(seed);
  SimulatedBench* ours = nullptr;
  Kernel kernel(chooser, false, [&ours](const std::string& ending) {
    if (ending != "exit 0") {
      ours->Saw(ending);
    }
    __real__Exit(0);
  });
  kernel.AllowMisuse();
  Machine machine(kernel, [](const Machine& /*ours*/) { return std::make_unique<Witness>(); });
  kernel.Run("main", [&] {
    SimulatedBench bench(machine, chooser, report);
    ours = &bench;
    row.play(bench);
    kernel.End("exit 0");
  });
}

std::string ReadReport(int report) {
  std::string text;
  char piece[4096];
  for (ssize_t count = 0; (count = __real_read(report, piece, sizeof piece)) > 0;) {
    text.append(piece, static_cast<size_t>(count));
  }
  return text;
}

std::string PlayOnce(const Row& row, uint64_t seed) {
  int report[2] = {};
  if (pipe(report) != 0) {
    return "no pipe can be made";
  }
  const pid_t child = fork();
  if (child == 0) {
    PlayInChild(row, seed, report[1]);
  }
  (void)__real_close(report[1]);
  const std::string text = ReadReport(report[0]);
  (void)__real_close(report[0]);
  int status = 0;
  (void)waitpid(child, &status, 0);
  return status == 0 ? text : text + "; the run itself ended with " + std::to_string(status);
}

}  // namespace

std::string PrepareKernel() { return ""; }

std::string Play(const Row& row) {
  const std::string first = PlayOnce(row, 1);
  for (uint64_t seed = 2; seed <= kSeeds; ++seed) {
    if (const std::string text = PlayOnce(row, seed); text != first) {
      return "seed 1: " + first + ", seed " + std::to_string(seed) + ": " + text;
    }
  }
  return first;
}

}  // namespace conformance
