// SPDX-License-Identifier: MIT
#include "Linux/Command.h"

#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <system_error>
#include <utility>
#include <vector>

#include "Linux/CancellationShield.h"
#include "Linux/SignalMask.h"

namespace {

// Since the machine was started, in the unit of /proc.
using Ticks = uint64_t;

constexpr Ticks kNothingRuns = 0;

// When the command that runs was started. Written by the thread that runs it, read by the one that
// ends it.
std::atomic<Ticks> commandBegan{kNothingRuns};

Ticks Now() {
  timespec now{};
  (void)clock_gettime(CLOCK_BOOTTIME, &now);
  const auto perSecond = static_cast<Ticks>(sysconf(_SC_CLK_TCK));
  return static_cast<Ticks>(now.tv_sec) * perSecond +
         static_cast<Ticks>(now.tv_nsec) * perSecond / 1'000'000'000;
}

class CRunning {
 public:
  CRunning() { commandBegan = Now(); }
  ~CRunning() { commandBegan = kNothingRuns; }
  CRunning(const CRunning&) = delete;
  CRunning& operator=(const CRunning&) = delete;
};

struct Process {
  pid_t id = 0;
  pid_t parent = 0;
  Ticks began = 0;
};

// "PID (NAME) STATE PARENT …", where the name can hold anything, parentheses too; the start is the
// 22nd field. Zeros for what is no process.
Process ReadProcess(const std::filesystem::path& folder) {
  constexpr int kFieldsBetween = 17;
  std::ifstream file(folder / "stat");
  std::string text;
  (void)std::getline(file, text, '\0');
  std::istringstream id(text);
  std::istringstream fields(text.substr(std::min(text.size(), text.rfind(')') + 1)));
  Process process;
  std::string skipped;
  id >> process.id;
  fields >> skipped >> process.parent;
  for (int i = 0; i < kFieldsBetween; ++i) {
    fields >> skipped;
  }
  fields >> process.began;
  return process;
}

std::vector<Process> AllProcesses() {
  std::vector<Process> processes;
  std::error_code error;
  std::filesystem::directory_iterator entry("/proc", error);
  for (const std::filesystem::directory_iterator end; !error && entry != end;
       entry.increment(error)) {
    processes.push_back(ReadProcess(entry->path()));
  }
  return processes;
}

// What descends from this process since then. A start script that has become this process may have
// left it older children, which are none of its business; ages are known in ticks only.
std::vector<pid_t> DescendantsSince(Ticks began) {
  const std::vector<Process> processes = AllProcesses();
  std::vector<pid_t> found = {getpid()};
  for (size_t at = 0; at < found.size(); ++at) {
    for (const Process& process : processes) {
      if (process.parent == found[at] && process.began >= began) {
        found.push_back(process.id);
      }
    }
  }
  found.erase(found.begin());
  return found;
}

void Send(int signal, const std::vector<pid_t>& processes) {
  for (const pid_t process : processes) {
    (void)kill(process, signal);
  }
}

// A /proc of another PID namespace has other numbers.
bool KnowsOurNumbers() {
  std::error_code error;
  return std::filesystem::read_symlink("/proc/self", error) == std::to_string(getpid());
}

}  // namespace

int RunCommand(const std::string& command) {
  const CCancellationShield shield;
  const CAllSignalsAdmitted inherited;  // see SignalMask.h
  const CRunning running;
  return std::system(command.c_str());
}

void EndCommand() {
  const Ticks began = commandBegan;
  if (began == kNothingRuns || !KnowsOurNumbers()) {
    return;
  }
  // Halted first: what runs could start another one between the look and the end.
  std::vector<pid_t> halted;
  for (std::vector<pid_t> found = DescendantsSince(began); found != halted;
       found = DescendantsSince(began)) {
    Send(SIGSTOP, found);
    halted = std::move(found);
  }
  Send(SIGKILL, halted);
}
