// SPDX-License-Identifier: MIT
#include "simulation/Run.h"

#include <sys/single_threaded.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "simulation/Races.h"

// The service's own, under another name.
int ServiceMain();

extern "C" ssize_t __real_read(int, void*, size_t);
extern "C" ssize_t __real_write(int, const void*, size_t);
extern "C" int __real_close(int);
extern "C" [[noreturn]] void __real__Exit(int);

namespace simulation {
namespace {

void WriteWhole(int descriptor, std::string_view text) {
  while (!text.empty()) {
    const ssize_t count = __real_write(descriptor, text.data(), text.size());
    if (count < 1) {
      __real__Exit(125);
    }
    text.remove_prefix(static_cast<size_t>(count));
  }
}

std::string ReadWhole(int descriptor) {
  std::string text;
  char piece[65536];
  for (;;) {
    const ssize_t count = __real_read(descriptor, piece, sizeof piece);
    if (count < 1) {
      return text;
    }
    text.append(piece, static_cast<size_t>(count));
  }
}

// What the process leaves when all its threads are gone.
std::string Remains(const Machine& machine) {
  if (!machine.kernel.OnlyMainIsLeft()) {
    return "defect: a thread outlives the service";
  }
  // The standard streams and the log stay open until the very end.
  for (const int number : machine.descriptors.Open()) {
    const mode_t mode = machine.descriptors.Find(number)->Status().st_mode;
    if (number > 2 && !S_ISREG(mode) && !S_ISFIFO(mode)) {
      return "defect: number " + std::to_string(number) + " is left open at the end";
    }
  }
  return {};
}

// The ending, a zero, the virtual time, the trace.
[[noreturn]] void Report(int descriptor, const Kernel& kernel, const std::string& ending) {
  Races::Watch(nullptr);
  WriteWhole(descriptor, ending);
  const Time now = kernel.Now();
  WriteWhole(descriptor, {"\0", 1});
  WriteWhole(descriptor, {reinterpret_cast<const char*>(&now), sizeof now});
  WriteWhole(descriptor, kernel.TraceText());
  __real__Exit(0);
}

int serviceStatus = 0;  // the service's

// Registered before the service's own objects are made, so that it runs behind their end.
void OnExit() {
  const std::string remains = serviceStatus == 0 ? Remains(*Machine::Running()) : "";
  Kernel::Running()->End(remains.empty() ? "exit " + std::to_string(serviceStatus & 0xFF)
                                         : remains);
}

[[noreturn]] void PlayHere(const Scenario& scenario, Chooser& chooser, bool traced, int report) {
  Kernel kernel(chooser, traced, [&kernel, report](const std::string& ending) {
    Report(report, kernel, Machine::Running()->oracle.Judge(ending));
  });
  Races races;
  Races::Watch(&races);
  __libc_single_threaded = 0;  // reference counts are to be atomic, as beside real threads
  Machine machine(kernel);
  kernel.Run("main", [&] {
    scenario.prepare(machine);
    (void)std::atexit(OnExit);
    serviceStatus = ServiceMain();
    std::exit(serviceStatus);
  });
}

}  // namespace

Outcome Play(const Scenario& scenario, uint64_t seed, bool traced) {
  int channel[2] = {};
  if (pipe(channel) != 0) {
    return {"defect: no pipe can be made"};
  }
  const pid_t child = fork();
  if (child == -1) {
    return {"defect: no process can be made"};
  }
  if (child == 0) {
    (void)__real_close(channel[0]);
    const std::unique_ptr<Chooser> chooser = ChooserOf(seed);
    PlayHere(scenario, *chooser, traced, channel[1]);
  }
  (void)__real_close(channel[1]);
  const std::string text = ReadWhole(channel[0]);
  (void)__real_close(channel[0]);
  int status = 0;
  (void)waitpid(child, &status, 0);
  const size_t end = text.find('\0');
  if (end == std::string::npos) {
    return {"defect: the run itself ended with status " + std::to_string(status)};
  }
  Time now = 0;
  std::memcpy(&now, text.data() + end + 1, sizeof now);
  return {text.substr(0, end), text.substr(end + 1 + sizeof now),
          static_cast<double>(now) / kSecond};
}

}  // namespace simulation
