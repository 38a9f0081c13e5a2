// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <cstdint>
#include <fstream>
#include <string>

#include "relay/Writer.h"

// Sends a file to a port at the pace of its line, and tells how far it is. Bytes count as sent when
// the service has taken them.
class FileSender {
 public:
  // Throws relay::Error (kUsage) when it cannot be read. `lineWriter` must outlive the object.
  FileSender(const std::string& path, relay::Writer& lineWriter);

  // Sends on as far as the line takes it. To be called whenever something has come from the
  // service.
  void Continue();

  // Whether Continue would send anything at the moment.
  bool MayContinue() const;

  bool IsDone() const;
  uint64_t Size() const { return size; }

  // "NAME: 4096 of 10000 bytes, 40 %, 11.4 kB/s, 0:01 left", or less of it in fewer columns.
  std::string Progress(size_t columns) const;

 private:
  uint64_t Sent() const;

  std::string name;
  std::ifstream file;
  uint64_t size = 0;
  relay::Writer& writer;
  uint64_t before = 0;  // bytes that the writer had taken before
  uint64_t taken = 0;   // of the file's
  bool atEnd = false;
  std::chrono::steady_clock::time_point begin = std::chrono::steady_clock::now();
};
