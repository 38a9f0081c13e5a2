// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace simulation {

struct Thread;

// A run for a person to read: a column for each thread, and virtual time down the page.
class Trace {
 public:
  void Note(int64_t now, const Thread& thread, const std::string& text);

  void Append(const std::string& text) { lines += text; }

  const std::string& Text() const { return lines; }

 private:
  // The thread that it is for, or was for, while it is nobody else's.
  struct Column {
    int thread = 0;
    std::string name;
    bool isOver = false;
  };

  size_t ColumnOf(const Thread& thread);
  void NoteNames();
  std::string Lanes() const;
  void Add(const std::string& time, std::string row);

  std::vector<Column> columns;
  size_t rows = 0;
  std::string lines;
};

}  // namespace simulation
