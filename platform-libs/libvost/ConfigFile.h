// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <string>

namespace vost {

// Bytes of the largest file that is read: room for several hundred ports.
inline constexpr std::size_t kLargestFile = 65536;

// The environment's VOST_CONFIG; /etc/vost.conf when that is unset or empty.
const char* ConfigPath();

enum class FileState {
  kRead,
  kMissing,     // there is no such file
  kUnreadable,  // there is one, but it is of no use: see `problem`
};

struct FileText {
  FileState state = FileState::kMissing;
  std::string text;
  const char* problem = nullptr;
};

// Reads a regular file as it is at this moment. Never waits, whatever `path` leads to.
FileText ReadConfig(const char* path);

}  // namespace vost
