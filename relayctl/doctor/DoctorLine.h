// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "doctor/Doctor.h"
#include "machine/TerminalDevice.h"

// The part of ExaminePort behind the node at `path`, which is a character device: driver and chip,
// who may open it and who has; where lines may be opened, also which programs would grab it and how
// well the line does.
void ExamineLine(const Machine& machine, const std::string& path, const TerminalNode& node,
                 LineAccess lines, Report& report);
