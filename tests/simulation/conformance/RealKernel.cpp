// SPDX-License-Identifier: MIT
#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <fstream>
#include <new>

#include "simulation/conformance/Play.h"
#include "simulation/conformance/RealBench.h"

namespace conformance {
namespace {

constexpr unsigned kPatienceSeconds = 100;  // a row takes less than one

[[noreturn]] void PlayInChild(const Row& row, int report, Hold& hold) {
  const rlimit none = {0, 0};
  (void)setrlimit(RLIMIT_CORE, &none);
  (void)alarm(kPatienceSeconds);
  (void)std::signal(SIGPIPE, SIG_DFL);
  RealBench bench(report, hold);
  row.play(bench);
  std::_Exit(0);
}

// Until its end, holding threads that want it.
std::string Watch(int report, Hold& hold) {
  std::string text;
  for (;;) {
    pollfd entry = {report, POLLIN, 0};
    if (poll(&entry, 1, 1) == 1) {
      char piece[4096];
      const ssize_t count = read(report, piece, sizeof piece);
      if (count < 1) {
        return text;
      }
      text.append(piece, static_cast<size_t>(count));
    }
    if (hold.thread != 0) {
      HoldThread(hold);
    }
  }
}

std::string EndingOf(pid_t child) {
  int status = 0;
  (void)waitpid(child, &status, 0);
  if (WIFSIGNALED(status)) {
    return "signal " + std::to_string(WTERMSIG(status));
  }
  return WEXITSTATUS(status) == 0 ? "" : "exit " + std::to_string(WEXITSTATUS(status));
}

}  // namespace

// The tools' part is played by a script, and fixed names and ports are to be ours.
std::string PrepareKernel() {
  if (std::getenv("SPH_SANDBOX") == nullptr) {
    return "not in a sandbox";
  }
  (void)mkdir("/tmp/tools", 0755);
  std::ofstream("/tmp/tools/udevadm")
      << "#!/bin/sh\necho P: /devices/virtual/tty/tty0\n[ ! -p " << RealBench::kDumpGate
      << " ] || : <" << RealBench::kDumpGate << "\n";
  (void)chmod("/tmp/tools/udevadm", 0755);
  const char* const path = std::getenv("PATH");
  (void)setenv("PATH", ("/tmp/tools:" + std::string(path != nullptr ? path : "/bin")).c_str(), 1);
  return "";
}

std::string Play(const Row& row) {
  void* const shared =
      mmap(nullptr, sizeof(Hold), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  Hold& hold = *new (shared) Hold;
  const auto report = NewPipe();
  const pid_t child = fork();
  if (child == 0) {
    PlayInChild(row, report[1], hold);
  }
  (void)close(report[1]);
  const std::string text = Watch(report[0], hold);
  (void)close(report[0]);
  (void)munmap(shared, sizeof(Hold));
  const std::string ending = EndingOf(child);
  return text.empty() || ending.empty() ? text + ending : text + "; " + ending;
}

}  // namespace conformance
