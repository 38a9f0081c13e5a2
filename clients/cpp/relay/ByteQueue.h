// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace relay {

// Bytes that are added behind and taken from the front. Each byte is moved once on the average,
// however small the pieces: taking a string's front moves all the rest each time.
class ByteQueue {
 public:
  void Add(std::string_view more) { bytes += more; }

  // Valid until the next call of Add or Take.
  std::string_view View() const { return std::string_view(bytes).substr(taken); }

  // Takes so many from the front, at most all.
  void Take(size_t count) {
    taken += count;
    if (taken >= bytes.size() - taken) {
      bytes.erase(0, taken);
      taken = 0;
    }
  }

  size_t Size() const { return bytes.size() - taken; }
  bool IsEmpty() const { return Size() == 0; }

  void Clear() {
    bytes.clear();
    taken = 0;
  }

 private:
  std::string bytes;
  size_t taken = 0;
};

}  // namespace relay
