// SPDX-License-Identifier: MIT
// Where the USB ports are: the index is the number in "#USBSerialPort0", the value the path of the
// USB connector in the device tree. The only table of them in the program; a test compares what
// lists them elsewhere.
#pragma once

#include <array>

inline constexpr auto kUsbPlaces = std::to_array<const char*>({
    "/devices/pci0000:00/0000:00:1d.2/usb4/4-1",
    "/devices/pci0000:00/0000:00:1d.2/usb4/4-2",
    "/devices/pci0000:00/0000:00:1d.1/usb3/3-2",
    "/devices/pci0000:00/0000:00:1d.0/usb2/2-2",
    "/devices/pci0000:00/0000:00:1d.1/usb3/3-1",
    "/devices/pci0000:00/0000:00:1d.0/usb2/2-1",
});

constexpr int kUsbPortCount = static_cast<int>(kUsbPlaces.size());
