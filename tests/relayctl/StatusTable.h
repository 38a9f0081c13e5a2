// SPDX-License-Identifier: MIT
// The table of docs/operations.md that tells what status and doctor say of a service that runs and
// does not work.
#pragma once

#include <string>

struct StatusRow {
  int status = -1;     // status' exit status; -1: there is no such row
  std::string words;   // the first that the row quotes, as a regular expression
  std::string grade;   // how doctor calls it: "fault", "warning", "note" or "ok"
  std::string doctor;  // what it says, as a regular expression
};

// `name`: the row's first cell.
StatusRow RowOf(const std::string& name);
