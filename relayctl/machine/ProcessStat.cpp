// SPDX-License-Identifier: MIT
#include "machine/ProcessStat.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <sstream>

#include "machine/Files.h"

namespace {

uint64_t TicksASecond() { return static_cast<uint64_t>(sysconf(_SC_CLK_TCK)); }

}  // namespace

// The name, which may hold anything, stands between brackets; the state behind it is the third.
ProcessStat::ProcessStat(const std::string& folder) {
  const std::string stat = TextOf(folder + "/stat");
  std::istringstream words(stat.substr(std::min(stat.rfind(')') + 1, stat.size())));
  for (std::string word; words >> word;) {
    fields.push_back(word);
  }
}

uint64_t ProcessStat::Field(size_t number) const {
  return number - 3 < fields.size() ? std::strtoull(fields[number - 3].c_str(), nullptr, 10) : 0;
}

uint64_t ProcessStat::ProcessorMillis() const {
  return (Field(14) + Field(15)) * 1000 / TicksASecond();
}

double ProcessStat::Age() const {
  timespec now{};
  (void)clock_gettime(CLOCK_BOOTTIME, &now);
  const double up = static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
  return up - static_cast<double>(Field(22)) / static_cast<double>(TicksASecond());
}

double ProcessStat::StartedAt() const { return SecondsSince1970() - Age(); }

double SecondsSince1970() {
  return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}
