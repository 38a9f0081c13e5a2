// SPDX-License-Identifier: MIT
#pragma once

#include <string>

// `text` with every control byte as "\x1B": what a device or another program chose as its name may
// not steer the terminal.
std::string Printable(const std::string& text);
