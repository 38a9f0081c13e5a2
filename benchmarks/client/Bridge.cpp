// SPDX-License-Identifier: MIT
#include "client/Bridge.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <system_error>

#include "client/Checked.h"

namespace {

// The number behind `key` in a status file of /proc.
uint64_t StatusOf(const std::filesystem::path& folder, const std::string& key) {
  std::ifstream file(folder / "status");
  for (std::string line; std::getline(file, line);) {
    if (line.starts_with(key)) {
      return std::stoull(line.substr(key.size()));
    }
  }
  throw std::runtime_error((folder / "status").string() + " lacks " + key);
}

// In the child.
void Redirect(int descriptor, const char* path, int flags) {
  const int opened = open(path, flags, 0600);
  if (opened == -1 || dup2(opened, descriptor) == -1) {
    _exit(126);
  }
}

}  // namespace

Bridge::~Bridge() {
  for (const pid_t pid : pids) {
    (void)kill(pid, SIGKILL);
    (void)waitpid(pid, nullptr, 0);
  }
}

void Bridge::Start(const std::vector<std::string>& words, const std::string& errorPath) {
  std::vector<char*> pointers;
  pointers.reserve(words.size() + 1);
  for (const std::string& word : words) {
    pointers.push_back(const_cast<char*>(word.c_str()));
  }
  pointers.push_back(nullptr);
  int refusal[2] = {};  // says why the program could not be run; closed when it runs
  Checked(pipe2(refusal, O_CLOEXEC), "pipe2");
  const pid_t pid = Checked(fork(), "fork");
  if (pid == 0) {
    (void)prctl(PR_SET_PDEATHSIG, SIGKILL);  // no bridge outlives its measurement
    Redirect(STDIN_FILENO, "/dev/null", O_RDONLY);
    Redirect(STDOUT_FILENO, "/dev/null", O_WRONLY);
    Redirect(STDERR_FILENO, errorPath.c_str(), O_WRONLY | O_CREAT | O_APPEND);
    (void)execvp(pointers[0], pointers.data());
    (void)!write(refusal[1], &errno, sizeof errno);
    _exit(127);
  }
  pids.push_back(pid);
  (void)close(refusal[1]);
  int reason = 0;
  const ssize_t count = read(refusal[0], &reason, sizeof reason);
  (void)close(refusal[0]);
  if (count != 0) {
    throw std::system_error(reason, std::generic_category(), "cannot run " + words[0]);
  }
}

double Bridge::CpuMicroseconds() const {
  double sum = 0;
  for (const pid_t pid : pids) {
    clockid_t clock{};
    timespec used{};
    if (clock_getcpuclockid(pid, &clock) != 0) {
      throw std::runtime_error("a bridge has ended");
    }
    Checked(clock_gettime(clock, &used), "clock_gettime");
    sum += static_cast<double>(used.tv_sec) * 1e6 + static_cast<double>(used.tv_nsec) / 1e3;
  }
  return sum;
}

void Bridge::UseProcessors(const cpu_set_t& processors) const {
  for (const pid_t pid : pids) {
    const auto tasks = std::filesystem::path("/proc") / std::to_string(pid) / "task";
    for (const auto& thread : std::filesystem::directory_iterator(tasks)) {
      Checked(
          sched_setaffinity(std::stoi(thread.path().filename()), sizeof processors, &processors),
          "sched_setaffinity");
    }
  }
}

Usage Bridge::Used() const {
  Usage usage;
  usage.cpuMicroseconds = CpuMicroseconds();
  for (const pid_t pid : pids) {
    const auto process = std::filesystem::path("/proc") / std::to_string(pid);
    usage.peakMemoryKib += StatusOf(process, "VmHWM:");
    for (const auto& thread : std::filesystem::directory_iterator(process / "task")) {
      ++usage.threads;
      usage.contextSwitches += StatusOf(thread.path(), "voluntary_ctxt_switches:");
    }
  }
  return usage;
}
