// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <string>

// The device node that "#PhysicalPort" or "#USBSerialPort" and a number stand for, or an empty
// text. Dumps and searches the udev database for a USB port; one search at a time.
std::string ResolvePortName(const std::string& portName);

// The place of the USB topology that "#USBSerialPort" and a number stand for, as
// FindDeviceByPortIndex takes it; -1 for a number beyond an int. Nothing for any other name.
std::optional<int> UsbPortIndexOf(const std::string& portName);
