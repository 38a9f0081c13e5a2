// SPDX-License-Identifier: MIT
// A udevadm of the test's own, first on PATH, and a folder that is gone afterwards. Tests that use
// it need the sandbox: the file that the database is dumped into is always the same one.
#pragma once

#include <string>
#include <vector>

class UdevTool {
 public:
  UdevTool();
  ~UdevTool();
  UdevTool(const UdevTool&) = delete;
  UdevTool& operator=(const UdevTool&) = delete;

  // A path in the test's folder.
  std::string Path(const std::string& name) const { return folder + "/" + name; }

  void Prints(const std::string& database) const;

  // What it prints when it runs for the second time and later.
  void PrintsLater(const std::string& database) const;

  void Runs(const std::string& commands) const;  // instead of printing
  void IsMissing() const;                        // from PATH, of which only rm is left

  // The arguments of each run.
  std::vector<std::string> Runs() const;

 private:
  std::string folder;
  std::string oldPath;
};

constexpr const char* kDumpFile = "/tmp/deviceinfo.txt";

void WriteText(const std::string& path, const std::string& text);
std::string ReadText(const std::string& path);

// One of the databases in tests/testdata, as the real udevadm printed it.
std::string RealDatabase(const std::string& file);
