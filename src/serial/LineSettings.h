// SPDX-License-Identifier: MIT
#pragma once

#include <termios.h>

#include "serial/SerialSettings.h"

// Raw bytes: 8 bits, no parity, one stop bit, no flow control, modem lines ignored, and a read that
// returns with the first byte or after 0.1 s.
void SetRawMode(termios& attributes);

// Puts the settings into the attributes.
void SetLine(termios& attributes, const SerialSettings& settings);
