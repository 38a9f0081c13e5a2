// SPDX-License-Identifier: MIT
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <string>

#include "e2e/support/Transfer.h"

constexpr const char* kLink = "/tmp/e2e/port";  // to the pseudo-terminal

// A program that has the pseudo-terminal, or another file, open.
class Program {
 public:
  explicit Program(const char* path = kLink)
      : descriptor(open(path, O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC)) {}
  ~Program() { (void)close(descriptor); }
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;

  int Descriptor() const { return descriptor; }
  bool Writes(const std::string& bytes) const { return WritesAll(descriptor, bytes); }
  std::string Reads(size_t size) const { return ReadsAll(descriptor, size); }

 private:
  int descriptor;
};
