// SPDX-License-Identifier: MIT
// Port names lead where scanf's "%u%n" says they lead. Every port of the topology has an adapter.
#include <cstdio>
#include <string>

#include "Check.h"
#include "DatabaseInMemory.h"
#include "serial/PortNameResolver.h"
#include "serial/UdevScanner.h"

namespace {

std::string AllAdapters() {
  std::string text;
  for (int i = 0; i < kUsbPortCount; ++i) {
    const std::string name = "ttyUSB" + std::to_string(i);
    text += std::string("P: ") + UsbPortPlace(i) + "/tty/" + name + "\nN: " + name +
            "\nE: DEVNAME=/dev/" + name + "\nE: ID_BUS=usb\n\n";
  }
  return text;
}

// scanf is undefined for numbers that do not fit; those are left to the unit tests.
bool Matches(const char* pattern, const std::string& name, unsigned& number) {
  int consumed = 0;
  return std::sscanf(name.c_str(), pattern, &number, &consumed) == 1 &&
         static_cast<size_t>(consumed) == name.size() && name.find(' ') == std::string::npos;
}

std::string Expected(const std::string& name) {
  unsigned number = 0;
  if (Matches("#PhysicalPort%u%n", name, number)) {
    return number == 0 ? "/dev/ttyS2" : "";
  }
  if (Matches("#USBSerialPort%u%n", name, number)) {
    return number < kUsbPortCount ? "/dev/ttyUSB" + std::to_string(number) : "";
  }
  return "";
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const std::string database = AllAdapters();
  SetDatabase(reinterpret_cast<const uint8_t*>(database.data()), database.size());
  const std::string text(data, data + size);
  const bool overflows = text.find_first_of("0123456789") != std::string::npos &&
                         text.size() > std::string("#USBSerialPort").size() + 9;
  if (!overflows) {
    Check(ResolvePortName(text) == Expected(text), "the name leads where scanf says");
  } else {
    (void)ResolvePortName(text);
  }
  return 0;
}
