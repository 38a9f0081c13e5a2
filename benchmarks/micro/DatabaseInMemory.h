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

// The whole file, or std::runtime_error.
std::string FileText(const std::string& path);

// The database without any serial adapter, so that a search reads it to its end.
std::string WithoutUsbSerial(std::string database);

// So many records of devices that are no serial adapters, each as long as usual.
std::string GeneratedDatabase(int records);
