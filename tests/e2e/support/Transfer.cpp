// SPDX-License-Identifier: MIT
#include "e2e/support/Transfer.h"

#include <unistd.h>

#include <algorithm>

#include "support/Eventually.h"

namespace {

constexpr size_t kPiece = 65536;

}  // namespace

bool WritesAll(int descriptor, const std::string& bytes) {
  for (size_t sent = 0; sent < bytes.size();) {
    const bool isTaken = Eventually([&] {
      const size_t count = std::min(bytes.size() - sent, kPiece);
      const ssize_t result = write(descriptor, bytes.data() + sent, count);
      sent += result > 0 ? static_cast<size_t>(result) : 0;
      return result > 0;
    });
    if (!isTaken) {
      return false;
    }
  }
  return true;
}

std::string ReadsAll(int descriptor, size_t count) {
  std::string bytes;
  std::string buffer(std::min(count, kPiece), '\0');
  const auto readSome = [&] {
    const size_t wanted = std::min(count - bytes.size(), kPiece);
    const ssize_t result = read(descriptor, buffer.data(), wanted);
    bytes.append(buffer, 0, result > 0 ? static_cast<size_t>(result) : 0);
    return result > 0;
  };
  while (bytes.size() < count && Eventually(readSome)) {
  }
  return bytes;
}
