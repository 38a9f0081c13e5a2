// SPDX-License-Identifier: MIT
#pragma once

#include "doctor/Doctor.h"

// The part of ExamineService about a service that runs: whether it does what its peer wants of it,
// and what holds it up.
void ExamineActivity(const Machine& machine, Report& report);
