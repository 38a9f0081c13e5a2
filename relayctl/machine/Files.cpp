// SPDX-License-Identifier: MIT
#include "machine/Files.h"

#include <filesystem>
#include <fstream>
#include <sstream>

namespace fs = std::filesystem;

std::string TextOf(const std::string& path) {
  const std::ifstream file(path);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

std::string LinkOf(const std::string& path) {
  std::error_code gone;
  return fs::read_symlink(path, gone).string();
}

std::vector<std::string> PathsIn(const std::string& folder, std::error_code& error) {
  std::vector<std::string> paths;
  fs::directory_iterator entry(folder, error);
  for (const fs::directory_iterator end; !error && entry != end; entry.increment(error)) {
    paths.push_back(entry->path().string());
  }
  return paths;
}

std::vector<std::string> PathsIn(const std::string& folder) {
  std::error_code ignored;
  return PathsIn(folder, ignored);
}

std::string NameIn(const std::string& path) { return path.substr(path.rfind('/') + 1); }
