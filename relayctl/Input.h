// SPDX-License-Identifier: MIT
#pragma once

#include <string>

// A file, or standard input, read piece by piece.
class Input {
 public:
  // "-" is standard input. Throws relay::Error when the file cannot be read.
  explicit Input(const std::string& path);
  ~Input();
  Input(const Input&) = delete;
  Input& operator=(const Input&) = delete;

  int Descriptor() const { return descriptor; }

  // What is there, at most 64 KiB; blocks until there is something. Empty at the end.
  std::string Read();

  // Of a regular file; else 0.
  unsigned long long Size() const;

 private:
  void Close() const;

  std::string name;
  int descriptor;
};

// All of a file, as Input reads it.
std::string ReadAll(const std::string& path);
