// SPDX-License-Identifier: MIT
// The files of one test. Fixed names, as each test has a /tmp of its own.
#pragma once

#include <string>

namespace workplace {

constexpr const char* kFolder = "/tmp/e2e";
constexpr const char* kPrograms = "/tmp/e2e/bin";  // first in the service's PATH
constexpr const char* kConfiguration = "/tmp/e2e/vost.conf";
constexpr const char* kLog = "/tmp/e2e/log";
constexpr const char* kOutput = "/tmp/e2e/output";
constexpr const char* kErrors = "/tmp/e2e/errors";

// Makes the folders, empty. Ends the program when it does not run in the sandbox: the tests replace
// files in /tmp and /dev.
struct Folders {
  Folders();
};

// The whole text of a file; empty when there is none.
std::string ReadWhole(const std::string& path);

// Replaces a file at once: a reader sees the old text or the new one.
void WriteWhole(const std::string& path, const std::string& text);

}  // namespace workplace
