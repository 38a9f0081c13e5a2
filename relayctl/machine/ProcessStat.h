// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>
#include <vector>

// The kernel's numbers about a process or thread: the file `stat` of its folder, as in proc(5).
class ProcessStat {
 public:
  // `folder`: "/proc/12", "/proc/12/task/13". All is 0 when there is none.
  explicit ProcessStat(const std::string& folder);

  // By the number that proc(5) gives the field, from 4 on.
  uint64_t Field(size_t number) const;

  int Parent() const { return static_cast<int>(Field(4)); }
  uint64_t Terminal() const { return Field(7); }  // the controlling one
  uint64_t ProcessorMillis() const;               // since it began
  double Age() const;                             // seconds since it began
  double StartedAt() const;                       // seconds since 1970

 private:
  std::vector<std::string> fields;
};

double SecondsSince1970();
