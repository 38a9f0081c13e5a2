// SPDX-License-Identifier: MIT
#include "pty/FileSender.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <filesystem>
#include <system_error>

#include "show/Progress.h"

namespace {

// In the writer's hands at a time, besides what is on its way.
constexpr uint64_t kAhead = relay::Writer::kPiece;

}  // namespace

FileSender::FileSender(const std::string& path, relay::Writer& lineWriter)
    : name(std::filesystem::path(path).filename()),
      file(path, std::ios::binary),
      writer(lineWriter),
      before(lineWriter.Confirmed() + lineWriter.Pending()) {
  std::error_code error;
  size = std::filesystem::file_size(path, error);
  if (error || !file) {
    throw relay::Error(relay::ErrorKind::kUsage,
                       path + ": " + (error ? error.message() : "cannot be read"));
  }
  Continue();
}

void FileSender::Continue() {
  std::array<char, relay::Writer::kPiece> piece;
  while (MayContinue()) {
    file.read(piece.data(), piece.size());
    const auto count = static_cast<size_t>(file.gcount());
    writer.Write(std::string_view(piece.data(), count));
    taken += count;
    atEnd = !file;
  }
  if (atEnd) {
    writer.Confirm();
  }
}

bool FileSender::MayContinue() const { return !atEnd && writer.Unsent() < kAhead; }

uint64_t FileSender::Sent() const {
  return std::min(taken, writer.Confirmed() - std::min(before, writer.Confirmed()));
}

bool FileSender::IsDone() const { return atEnd && writer.Pending() == 0; }

std::string FileSender::Progress(size_t columns) const {
  const auto elapsed = std::chrono::duration_cast<std::chrono::milliseconds>(
      std::chrono::steady_clock::now() - begin);
  const std::string text = name + ": " + ProgressText(Sent(), size, elapsed);
  return text.size() <= columns ? text : ProgressText(Sent(), size, elapsed, columns);
}
