// SPDX-License-Identifier: MIT
#include "check/TestedProgram.h"

#include <fcntl.h>
#include <net/if.h>
#include <poll.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <system_error>

#include "ExitStatus.h"
#include "link/Loop.h"
#include "relay/Error.h"

namespace {

constexpr const char* kPortPlace = "{port}";
constexpr const char* kPortVariable = "SERIAL_RELAY_PORT";
constexpr size_t kMostOfWords = 4096;  // that are looked at for the last line

std::vector<std::string> WithPort(std::vector<std::string> words, uint16_t port) {
  const std::string number = std::to_string(port);
  for (std::string& word : words) {
    for (size_t at = 0; (at = word.find(kPortPlace, at)) != std::string::npos;) {
      word.replace(at, std::strlen(kPortPlace), number);
    }
  }
  return words;
}

bool WriteFile(const char* path, const std::string& text) {
  const int file = open(path, O_WRONLY | O_CLOEXEC);
  const bool isWritten =
      file != -1 && write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size());
  (void)close(file);
  return isWritten;
}

// The user stays who he was. Without the right to a user namespace, an administrator has still that
// to a network.
bool LeaveTheNetwork() {
  const std::string user = std::to_string(getuid());
  const std::string group = std::to_string(getgid());
  if (unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0) {
    return unshare(CLONE_NEWNET) == 0;
  }
  return WriteFile("/proc/self/setgroups", "deny") &&
         WriteFile("/proc/self/uid_map", user + " " + user + " 1") &&
         WriteFile("/proc/self/gid_map", group + " " + group + " 1");
}

bool BringUpLoopback() {
  ifreq request{};
  (void)std::strncpy(request.ifr_name, "lo", IFNAMSIZ - 1);
  request.ifr_flags = IFF_UP;
  const int socket = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  const bool isUp = socket != -1 && ioctl(socket, SIOCSIFFLAGS, &request) == 0;
  (void)close(socket);
  return isUp;
}

// Of two local ports, a socket that is connected without being bound gets the lower one first, a
// bound one the upper.
bool BeAlone(uint16_t port) {
  return LeaveTheNetwork() && BringUpLoopback() &&
         WriteFile("/proc/sys/net/ipv4/ip_local_port_range",
                   std::to_string(port) + " " + std::to_string(port + 1));
}

// In the child, which has nothing else of the parent's. Gives errno through `failure`.
[[noreturn]] void BecomeProgram(const std::vector<std::string>& words, uint16_t port, bool isAlone,
                                int errors, int failure) {
  sigset_t none;
  (void)sigemptyset(&none);
  (void)sigprocmask(SIG_SETMASK, &none, nullptr);
  (void)setpgid(0, 0);
  std::vector<char*> arguments;
  arguments.reserve(words.size() + 1);
  for (const std::string& word : words) {
    arguments.push_back(const_cast<char*>(word.c_str()));
  }
  arguments.push_back(nullptr);
  if (!isAlone || BeAlone(port)) {
    const int nothing = open("/dev/null", O_RDWR | O_CLOEXEC);
    (void)dup2(nothing, STDIN_FILENO);
    (void)dup2(nothing, STDOUT_FILENO);
    (void)dup2(errors, STDERR_FILENO);
    (void)setenv(kPortVariable, std::to_string(port).c_str(), 1);
    (void)prctl(PR_SET_PDEATHSIG, SIGKILL);
    (void)execvp(arguments[0], arguments.data());
  }
  const int reason = errno;
  (void)!write(failure, &reason, sizeof reason);
  _exit(kExitFailed);
}

}  // namespace

TestedProgram::TestedProgram(Loop& ownLoop, const std::vector<std::string>& words, uint16_t port,
                             bool isAlone)
    : loop(ownLoop) {
  const std::vector<std::string> arguments = WithPort(words, port);
  std::array<int, 2> told = {-1, -1};
  std::array<int, 2> failure{};
  if (pipe2(told.data(), O_CLOEXEC) != 0 || pipe2(failure.data(), O_CLOEXEC) != 0) {
    const int reason = errno;
    (void)close(told[0]);
    (void)close(told[1]);
    throw relay::Error(relay::ErrorKind::kSystem,
                       "cannot start a program: " + std::generic_category().message(reason),
                       reason);
  }
  errors = told[0];
  (void)fcntl(errors, F_SETFL, O_NONBLOCK);
  process = fork();
  if (process == 0) {
    BecomeProgram(arguments, port, isAlone, told[1], failure[1]);
  }
  int reason = process == -1 ? errno : 0;
  (void)close(told[1]);
  (void)close(failure[1]);
  (void)TEMP_FAILURE_RETRY(read(failure[0], &reason, sizeof reason));
  (void)close(failure[0]);
  if (reason != 0) {
    (void)close(errors);
    if (process != -1) {
      (void)TEMP_FAILURE_RETRY(waitpid(process, nullptr, 0));
    }
    throw relay::Error(relay::ErrorKind::kSystem,
                       (isAlone ? "a network of its own" : "cannot start " + arguments[0]) + ": " +
                           std::generic_category().message(reason),
                       reason);
  }
  loop.Watch(
      errors, []() -> short { return POLLIN; }, [this](short) { Hear(); });
}

// Until nobody has the other end any more.
void TestedProgram::Hear() {
  std::array<char, 65536> buffer;
  const ssize_t count = read(errors, buffer.data(), buffer.size());
  if (count > 0) {
    heard.append(buffer.data(), static_cast<size_t>(count));
    heard.erase(0, heard.size() - std::min(heard.size(), kMostOfWords));
  } else if (count == 0) {
    loop.Forget(errors);
  }
}

// The number of the group is nobody else's until its leader has been waited for.
TestedProgram::~TestedProgram() {
  if (!status) {
    (void)kill(-process, SIGKILL);
    (void)TEMP_FAILURE_RETRY(waitpid(process, nullptr, 0));
  }
  loop.Forget(errors);
  (void)close(errors);
}

void TestedProgram::AskToEnd() const {
  if (!status) {
    (void)kill(-process, SIGTERM);
  }
}

// What it has started ends with it, and is given to this process.
std::optional<int> TestedProgram::Status() {
  siginfo_t info{};
  if (!status &&
      waitid(P_PID, static_cast<id_t>(process), &info, WEXITED | WNOHANG | WNOWAIT) == 0 &&
      info.si_pid == process) {
    (void)kill(-process, SIGKILL);
    int result = 0;
    (void)TEMP_FAILURE_RETRY(waitpid(process, &result, 0));
    while (waitpid(-process, nullptr, WNOHANG) > 0) {
    }
    status = WIFEXITED(result) ? WEXITSTATUS(result) : kExitSignal + WTERMSIG(result);
  }
  return status;
}

std::string TestedProgram::LastWords() {
  Hear();
  std::string text = heard;
  text.erase(text.find_last_not_of("\r\n \t") + 1);
  return text.substr(text.find_last_of('\n') + 1);
}
