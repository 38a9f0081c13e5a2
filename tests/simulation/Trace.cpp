// SPDX-License-Identifier: MIT
#include "simulation/Trace.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>

#include "simulation/Kernel.h"

namespace simulation {
namespace {

constexpr size_t kWidth = 14;  // of a column
constexpr size_t kRowsOfAPage = 50;

std::string TextOf(Time now) {
  char time[32];
  const int length = snprintf(time, sizeof time, "%5" PRId64 ".%06" PRId64 "  ", now / kSecond,
                              now % kSecond / kMicrosecond);
  return {time, static_cast<size_t>(length)};
}

}  // namespace

size_t Trace::ColumnOf(const Thread& thread) {
  auto column = std::find_if(columns.begin(), columns.end(), [&thread](const Column& each) {
    return each.thread == thread.number;
  });
  if (column == columns.end()) {
    column = std::find_if(columns.begin(), columns.end(),
                          [](const Column& each) { return each.isOver; });
  }
  if (column == columns.end()) {
    column = columns.emplace(columns.end());
  }
  *column = {thread.number, thread.name, thread.isEnded};
  return static_cast<size_t>(column - columns.begin());
}

// A line for each thread that there is.
std::string Trace::Lanes() const {
  std::string row;
  for (const Column& column : columns) {
    row += column.isOver ? ' ' : '|';
    row.append(kWidth - 1, ' ');
  }
  return row;
}

void Trace::Add(const std::string& time, std::string row) {
  row.erase(row.find_last_not_of(' ') + 1);
  lines.append(time).append(row).append("\n");
}

void Trace::NoteNames() {
  std::string row;
  for (const Column& column : columns) {
    row += column.name.substr(0, kWidth - 1);
    row.resize((row.size() / kWidth + 1) * kWidth, ' ');
  }
  Add(std::string(TextOf(0).size(), ' '), row);
}

// What is too long for its column covers those to its right.
void Trace::Note(int64_t now, const Thread& thread, const std::string& text) {
  const size_t column = ColumnOf(thread);
  if (rows++ % kRowsOfAPage == 0) {
    NoteNames();
  }
  std::string row = Lanes();
  row.replace(column * kWidth, text.size() + 1, text + " ");
  Add(TextOf(now), row);
}

}  // namespace simulation
