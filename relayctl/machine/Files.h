// SPDX-License-Identifier: MIT
// What the kernel shows as files. What is gone, or may not be seen, is empty.
#pragma once

#include <string>
#include <system_error>
#include <vector>

// All of a file.
std::string TextOf(const std::string& path);

// In such a text, what stands behind the colon of the first line that begins with `key`.
std::string ValueIn(const std::string& text, const std::string& key);

// Where a symbolic link leads.
std::string LinkOf(const std::string& path);

// The paths of all that is in a folder.
std::vector<std::string> PathsIn(const std::string& folder, std::error_code& error);
std::vector<std::string> PathsIn(const std::string& folder);

// What stands behind the last slash.
std::string NameIn(const std::string& path);
