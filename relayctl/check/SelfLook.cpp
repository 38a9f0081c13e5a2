// SPDX-License-Identifier: MIT
#include "check/SelfLook.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <sstream>

namespace {

constexpr relay::Millis kBetweenSelfLooks{20};
constexpr relay::Millis kSecond{1000};

// The number below the heading `name` in the two lines of `protocol`.
size_t Counter(const std::string& text, const std::string& protocol, const std::string& name) {
  std::istringstream lines(text);
  std::string heading;
  for (std::string line; std::getline(lines, line);) {
    if (!line.starts_with(protocol + ": ")) {
      continue;
    }
    if (heading.empty()) {
      heading = line;
      continue;
    }
    std::istringstream names(heading);
    std::istringstream values(line);
    std::string title;
    std::string value;
    while (names >> title && values >> value) {
      if (title == name) {
        return std::stoul(value);
      }
    }
  }
  return 0;
}

}  // namespace

void SelfLook::Start(pid_t programInIt) {
  const std::string path = "/proc/" + std::to_string(programInIt) + "/net/snmp";
  counters = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (counters == -1) {
    Fail("a look into it");
  }
}

SelfLook::~SelfLook() { (void)close(counters); }

std::optional<relay::Clock::time_point> SelfLook::Due() const {
  return IsBusy() ? std::optional(nextLook) : std::nullopt;
}

// A try that is under way just now is none that has succeeded: that one is still there at the next
// look, or the program has ended.
void SelfLook::Look() {
  std::array<char, 8192> buffer{};
  const ssize_t count = pread(counters, buffer.data(), buffer.size(), 0);
  const std::string text(buffer.data(), count > 0 ? static_cast<size_t>(count) : 0);
  const size_t tries = Counter(text, "Tcp", "ActiveOpens");
  const size_t open = tries - std::min(tries, Counter(text, "Tcp", "AttemptFails"));
  const bool isSame = tries == result.tries && open == successful;
  result.isToItself = result.isToItself || (isSame && open > 0);
  result.tries = tries;
  successful = open;
}

void SelfLook::LookAtLast() {
  if (counters != -1) {
    Look();
    Look();
  }
}

void SelfLook::Work() {
  const auto now = relay::Clock::now();
  if (!IsBusy() || now < nextLook) {
    return;
  }
  nextLook = now + kBetweenSelfLooks;
  Look();
  firstTry = firstTry || result.tries == 0 ? firstTry : std::optional(now);
  if (firstTry && now >= *firstTry + kSecond) {
    result.perSecond = result.tries;
    isOver = true;
  }
}
