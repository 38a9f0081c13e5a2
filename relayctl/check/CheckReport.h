// SPDX-License-Identifier: MIT
// What is told of the cases, in each of the forms that are asked for.
#pragma once

#include <string>
#include <vector>

#include "check/Checker.h"

// For a person.
std::vector<std::string> CheckLines(const std::vector<CaseResult>& results);

// Test Anything Protocol, version 13.
std::vector<std::string> CheckTap(const std::vector<CaseResult>& results);

// JUnit's XML, a suite for each group.
std::string CheckJunit(const std::vector<CaseResult>& results);

// One JSON object for each case.
std::vector<std::string> CheckJson(const std::vector<CaseResult>& results);

bool HasFailed(const std::vector<CaseResult>& results);
