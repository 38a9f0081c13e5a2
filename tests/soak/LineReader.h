// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

// Reads a stream of the service, whole lines at a time, without ever waiting.
class LineReader {
 public:
  // Takes the descriptor over.
  explicit LineReader(int descriptor);
  ~LineReader();
  LineReader(const LineReader&) = delete;
  LineReader& operator=(const LineReader&) = delete;

  // The lines that have come since the last call, without their ends.
  std::vector<std::string> Lines();

  int Descriptor() const { return descriptor; }

 private:
  int descriptor;
  std::string rest;
};
