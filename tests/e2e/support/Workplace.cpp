// SPDX-License-Identifier: MIT
#include "e2e/support/Workplace.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace workplace {

Folders::Folders() {
  if (std::getenv("SPH_SANDBOX") == nullptr) {
    (void)std::fputs(
        "This test replaces files in /tmp and /dev: run it with ctest, or with\n"
        "tests/e2e/support/sandbox -- PROGRAM [ARGUMENTS]\n",
        stderr);
    std::exit(EXIT_FAILURE);
  }
  std::filesystem::remove_all(kFolder);
  std::filesystem::create_directories(kPrograms);
}

std::string ReadWhole(const std::string& path) {
  const std::ifstream file(path, std::ios::binary);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

void WriteWhole(const std::string& path, const std::string& text) {
  const std::string fresh = path + ".new";
  std::ofstream(fresh, std::ios::binary) << text;
  std::filesystem::rename(fresh, path);
}

}  // namespace workplace
