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

std::string ValueIn(const std::string& text, const std::string& key) {
  const size_t line = text.starts_with(key) ? 0 : text.find("\n" + key);
  const size_t colon = line == std::string::npos ? line : text.find(':', line);
  return colon == std::string::npos ? ""
                                    : text.substr(colon + 1, text.find('\n', colon) - colon - 1);
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
