// SPDX-License-Identifier: MIT
#include "relay/LineCutter.h"

#include <algorithm>
#include <utility>

#include "relay/Error.h"

namespace relay {

LineCutter::LineCutter(std::string lineEnd, size_t longest, size_t most)
    : end(std::move(lineEnd)), longestLine(longest), mostHeld(most) {
  if (end.empty()) {
    throw Error(ErrorKind::kUsage, "a line's end has one byte at least");
  }
}

void LineCutter::Add(std::string_view bytes) {
  while (!bytes.empty()) {
    const size_t last = bytes.find(end.back());
    const size_t count = last == std::string_view::npos ? bytes.size() : last + 1;
    unfinished += bytes.substr(0, count);
    bytes.remove_prefix(count);
    if (unfinished.ends_with(end)) {
      TakeLine();
    } else if (unfinished.size() >= end.size() && unfinished.size() - end.size() >= longestLine) {
      isTooLong = true;
    }
    if (isTooLong) {
      unfinished.erase(0, unfinished.size() - std::min(unfinished.size(), end.size() - 1));
    }
  }
}

void LineCutter::TakeLine() {
  const size_t length = unfinished.size() - end.size();
  const bool hasRoom = lines.empty() || held + unfinished.size() <= mostHeld;
  if (isTooLong || length > longestLine || !hasRoom) {
    ++lost;
  } else {
    held += unfinished.size();
    lines.push_back(unfinished.substr(0, length));
  }
  DropUnfinished();
}

void LineCutter::DropUnfinished() {
  unfinished.clear();
  isTooLong = false;
}

std::optional<std::string> LineCutter::Next() {
  if (lines.empty()) {
    return std::nullopt;
  }
  std::string line = std::move(lines.front());
  lines.pop_front();
  held -= line.size() + end.size();
  return line;
}

}  // namespace relay
