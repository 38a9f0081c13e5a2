// SPDX-License-Identifier: MIT
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <string>

#include "e2e/support/Transfer.h"

constexpr const char* kLink = "/tmp/e2e/port";  // to the pseudo-terminal

// A program that has the pseudo-terminal, or another file, open.
class PtyProgram {
 public:
  explicit PtyProgram(const char* path = kLink)
      : descriptor(open(path, O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC)) {}
  ~PtyProgram() { (void)close(descriptor); }
  PtyProgram(const PtyProgram&) = delete;
  PtyProgram& operator=(const PtyProgram&) = delete;

  int Descriptor() const { return descriptor; }
  bool Writes(const std::string& bytes) const { return WritesAll(descriptor, bytes); }
  std::string Reads(size_t size) const { return ReadsAll(descriptor, size); }

 private:
  int descriptor;
};
