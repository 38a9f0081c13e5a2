// SPDX-License-Identifier: MIT
#pragma once

#include <string>

// The device node that "#PhysicalPort" or "#USBSerialPort" and a number stand for, or an empty
// text. Dumps and searches the udev database for a USB port; one search at a time.
std::string ResolvePortName(const std::string& portName);
