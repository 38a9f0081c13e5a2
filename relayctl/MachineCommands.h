// SPDX-License-Identifier: MIT
#pragma once

#include "CommandLine.h"

// The commands that look at the machine instead of the link.
void AddDoctor(CommandLine& line);
void AddSuggest(CommandLine& line);
