// SPDX-License-Identifier: MIT
#pragma once

#include "doctor/Doctor.h"

// The part of ExamineService about the process itself: its program, and who reads its standard
// streams.
void ExamineProcess(const Machine& machine, Report& report);
