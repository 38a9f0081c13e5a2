// SPDX-License-Identifier: MIT
// What comes is cut into the same lines however it arrives, and never more is kept than was
// allowed. Input: the end of a line, the longest one and the size of the pieces, then the bytes.
#include <algorithm>
#include <string>
#include <vector>

#include "Check.h"
#include "relay/LineCutter.h"

namespace {

struct Lines {
  std::vector<std::string> whole;
  uint64_t lost = 0;
  bool operator==(const Lines&) const = default;
};

// As it would be without a stream.
Lines Wanted(std::string_view text, const std::string& end, size_t longest) {
  Lines lines;
  for (size_t at = text.find(end); at != std::string_view::npos; at = text.find(end)) {
    if (at <= longest) {
      lines.whole.emplace_back(text.substr(0, at));
    } else {
      ++lines.lost;
    }
    text.remove_prefix(at + end.size());
  }
  return lines;
}

Lines Cut(std::string_view text, const std::string& end, size_t longest, size_t piece) {
  relay::LineCutter cutter(end, longest);
  Lines lines;
  for (; !text.empty(); text.remove_prefix(std::min(piece, text.size()))) {
    cutter.Add(text.substr(0, piece));
    Check(cutter.Size() <= relay::LineCutter::kMost + longest + end.size() + piece, "its memory");
    while (auto line = cutter.Next()) {
      lines.whole.push_back(std::move(*line));
    }
    Check(cutter.Size() < longest + end.size(), "a line that is too long is not kept");
  }
  lines.lost = cutter.Lost();
  return lines;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 3) {
    return 0;
  }
  const std::string ends[] = {"\n", "\r\n", "aa", "aba", std::string(1, '\0')};
  const std::string& end = ends[data[0] % std::size(ends)];
  const size_t longest = data[1] % 16;
  const std::string text(data + 3, data + size);
  Check(Cut(text, end, longest, 1 + data[2] % 8) == Wanted(text, end, longest), "the same lines");
  return 0;
}
