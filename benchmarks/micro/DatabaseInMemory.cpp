// SPDX-License-Identifier: MIT
#include "micro/DatabaseInMemory.h"

#include <stdexcept>

#include "serial/UdevScanner.h"

DatabaseInMemory::DatabaseInMemory(const std::string& text)
    : content(text), stream(fmemopen(content.data(), content.size(), "r")) {
  if (stream == nullptr) {
    throw std::runtime_error("fmemopen");
  }
}

DatabaseInMemory::~DatabaseInMemory() { (void)std::fclose(stream); }

std::FILE* DatabaseInMemory::FromStart() {
  std::rewind(stream);
  return stream;
}

namespace {

std::string GeneratedRecord(int number) {
  const std::string name = "event" + std::to_string(number);
  return std::string("P: ") + UsbPortPlace(0) + "/4-1." + std::to_string(number) + "/input/" +
         name + "\nN: input/" + name + "\nL: 0\nE: DEVPATH=/devices/" + name +
         "\nE: DEVNAME=/dev/input/" + name +
         "\nE: MAJOR=13\nE: MINOR=64\nE: SUBSYSTEM=input\nE: USEC_INITIALIZED=1234567\n"
         "E: ID_INPUT=1\nE: ID_INPUT_KEY=1\nE: ID_BUS=host\nE: TAGS=:power-switch:\n\n";
}

}  // namespace

std::string GeneratedDatabase(int records) {
  std::string text;
  for (int number = 0; number < records; ++number) {
    text += GeneratedRecord(number);
  }
  return text;
}
