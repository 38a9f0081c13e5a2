// SPDX-License-Identifier: MIT
// Real files for the tests of the platform libraries.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

// A folder of the test's own, gone afterwards.
class ScratchFolder {
 public:
  ScratchFolder() {
    std::string pattern = (std::filesystem::temp_directory_path() / "sph-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) {
      std::abort();
    }
    folder = pattern;
  }
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;
  ~ScratchFolder() { std::filesystem::remove_all(folder); }

  std::string Path(const std::string& name) const { return (folder / name).string(); }

 private:
  std::filesystem::path folder;
};

inline std::string ContentOf(const std::string& path) {
  std::ifstream stream(path, std::ios::binary);
  std::ostringstream text;
  text << stream.rdbuf();
  return text.str();
}

inline std::vector<std::string> LinesOf(const std::string& path) {
  std::vector<std::string> lines;
  std::istringstream text(ContentOf(path));
  for (std::string line; std::getline(text, line);) {
    lines.push_back(line);
  }
  return lines;
}

inline void WriteFile(const std::string& path, std::string_view content) {
  std::ofstream(path, std::ios::binary) << content;
}

// Sends a standard stream to a file for as long as the object lives.
class StreamFile {
 public:
  StreamFile(int standardStream, const std::string& file)
      : path(file), stream(standardStream), saved(dup(standardStream)) {
    const int opened = open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    dup2(opened, stream);
    close(opened);
  }
  StreamFile(const StreamFile&) = delete;
  StreamFile& operator=(const StreamFile&) = delete;
  ~StreamFile() {
    dup2(saved, stream);
    close(saved);
  }

  std::vector<std::string> Lines() const { return LinesOf(path); }

 private:
  std::string path;
  int stream;
  int saved;
};

class StandardErrorFile : public StreamFile {
 public:
  explicit StandardErrorFile(const std::string& file) : StreamFile(STDERR_FILENO, file) {}
};

// How many descriptors lead to the file, and which is the lowest; -1: none.
struct OpenDescriptors {
  int count = 0;
  int lowest = -1;
};

inline OpenDescriptors DescriptorsOf(const std::string& path) {
  OpenDescriptors found;
  for (int number = 0; number < 1024; ++number) {
    std::error_code error;
    const auto target =
        std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(number), error);
    if (!error && target == path) {
      found.lowest = found.count == 0 ? number : found.lowest;
      ++found.count;
    }
  }
  return found;
}

inline bool IsBefore(std::chrono::steady_clock::time_point deadline) {
  return std::chrono::steady_clock::now() < deadline;
}

inline std::chrono::steady_clock::time_point GenerousDeadline() {
  return std::chrono::steady_clock::now() + std::chrono::seconds(30);
}
