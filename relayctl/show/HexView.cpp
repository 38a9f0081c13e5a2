// SPDX-License-Identifier: MIT
#include "show/HexView.h"

#include <array>
#include <cstdio>

namespace {

constexpr size_t kRowBytes = 16;

std::string RowText(char direction, size_t offset, std::string_view bytes) {
  std::array<char, 16> text{};
  (void)std::snprintf(text.data(), text.size(), "%c %08zx ", direction, offset & 0xFFFFFFFF);
  std::string shown = text.data();
  std::string letters;
  for (size_t i = 0; i < kRowBytes; ++i) {
    const auto byte = static_cast<unsigned char>(i < bytes.size() ? bytes[i] : 0);
    (void)std::snprintf(text.data(), text.size(), i < bytes.size() ? " %02x" : "   ", byte);
    shown += text.data();
    if (i < bytes.size()) {
      letters += byte >= 0x20 && byte < 0x7F ? bytes[i] : '.';
    }
  }
  return shown + "  |" + letters + "|";
}

}  // namespace

std::string HexView::Show(char direction, std::string_view bytes) {
  std::string shown;
  if (direction != rowDirection) {
    shown += EndRow();
  }
  rowDirection = direction;
  size_t& before = direction == '<' ? received : sent;
  while (!bytes.empty()) {
    const std::string_view part = bytes.substr(0, kRowBytes - row.size());
    row += part;
    bytes.remove_prefix(part.size());
    shown += "\r" + RowText(direction, before, row);
    if (row.size() == kRowBytes) {
      shown += "\n";
      before += row.size();
      row.clear();
    }
  }
  return shown;
}

std::string HexView::EndRow() {
  if (row.empty()) {
    return "";
  }
  (rowDirection == '<' ? received : sent) += row.size();
  row.clear();
  return "\n";
}
