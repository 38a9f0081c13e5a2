// SPDX-License-Identifier: MIT
#pragma once

#include "pty/PseudoTerminal.h"
#include "serve/ServedDevice.h"

// A pseudo-terminal on which a program of a person's choice is the device. While no program has it
// open, what goes to the line is lost, as on a cable that ends nowhere; one that does not read
// holds up the service, as a line does whose flow control says no.
class PtyDevice : public ServedDevice {
 public:
  // `path`: PseudoTerminal's link. Throws std::system_error.
  PtyDevice(const Line& portLine, const std::string& path);
  ~PtyDevice() override;

  void Open() override;
  size_t Take(std::string_view bytes) override;
  std::string Give(size_t most) override;

 private:
  const Line line;
  PseudoTerminal terminal;
};
