// SPDX-License-Identifier: MIT
#pragma once

#include <cstdio>
#include <string>

// A udev database as a stream that needs no file.
class DatabaseInMemory {
 public:
  explicit DatabaseInMemory(const std::string& text);
  ~DatabaseInMemory();
  DatabaseInMemory(const DatabaseInMemory&) = delete;
  DatabaseInMemory& operator=(const DatabaseInMemory&) = delete;

  std::FILE* FromStart();

 private:
  std::string content;
  std::FILE* stream;
};

// So many records of devices that are no serial adapters, each as long as usual.
std::string GeneratedDatabase(int records);
