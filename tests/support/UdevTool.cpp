// SPDX-License-Identifier: MIT
#include "support/UdevTool.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace fs = std::filesystem;

UdevTool::UdevTool() : oldPath(getenv("PATH")) {
  std::string pattern = (fs::temp_directory_path() / "udev-XXXXXX").string();
  EXPECT_NE(nullptr, mkdtemp(pattern.data()));
  folder = pattern;
  fs::create_directory(Path("bin"));
  fs::remove_all(kDumpFile);
  EXPECT_EQ(0, setenv("PATH", (Path("bin") + ":" + oldPath).c_str(), 1));
  Runs("if [ $(wc -l < " + Path("runs") + ") -gt 1 ] && [ -e " + Path("later") + " ]\n" +  //
       "then cat " + Path("later") + "\n" +                                                //
       "else cat " + Path("database") + "\nfi");
}

UdevTool::~UdevTool() {
  EXPECT_EQ(0, setenv("PATH", oldPath.c_str(), 1));
  fs::remove_all(kDumpFile);
  fs::remove_all(folder);
}

void UdevTool::Prints(const std::string& database) const { WriteText(Path("database"), database); }

void UdevTool::PrintsLater(const std::string& database) const {
  WriteText(Path("later"), database);
}

void UdevTool::Runs(const std::string& commands) const {
  const std::string script = Path("bin/udevadm");
  WriteText(script, "#!/bin/sh\necho \"$*\" >> " + Path("runs") + "\n" + commands + "\n");
  fs::permissions(script, fs::perms::owner_all);
}

void UdevTool::IsMissing() const {
  fs::remove(Path("bin/udevadm"));
  fs::create_symlink("/bin/rm", Path("bin/rm"));
  EXPECT_EQ(0, setenv("PATH", Path("bin").c_str(), 1));
}

std::vector<std::string> UdevTool::Runs() const {
  std::istringstream text(ReadText(Path("runs")));
  std::vector<std::string> runs;
  for (std::string line; std::getline(text, line);) {
    runs.push_back(line);
  }
  return runs;
}

void WriteText(const std::string& path, const std::string& text) {
  std::ofstream(path, std::ios::binary) << text;
}

std::string ReadText(const std::string& path) {
  std::ostringstream text;
  text << std::ifstream(path, std::ios::binary).rdbuf();
  return text.str();
}

std::string RealDatabase(const std::string& file) {
  const std::string text = ReadText(std::string(SPH_TEST_DATA) + "/" + file);
  EXPECT_LT(1000U, text.size()) << file;
  return text;
}
