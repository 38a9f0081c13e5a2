// SPDX-License-Identifier: MIT
// usage: open_line PATH BAUD-RATE
// Opens a line as the service does, 8N1 without flow control, and closes it at the end of standard
// input. The service's configuration has words for a part of the rates only.
#include <cstdlib>
#include <iostream>
#include <limits>
#include <string>

#include "serial/LinuxSerial.h"

int main(int argc, char** argv) {
  if (argc != 3) {
    std::cerr << "usage: open_line PATH BAUD-RATE\n";
    return EXIT_FAILURE;
  }
  SerialSettings settings;
  settings.baudRate = static_cast<uint32_t>(std::stoul(argv[2]));
  settings.dataBits = 8;
  settings.parity = kParityNone;
  CLinuxSerial line;
  if (line.Open(argv[1], settings) != 0) {
    return EXIT_FAILURE;
  }
  std::cin.ignore(std::numeric_limits<std::streamsize>::max());
  return line.Close() == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
