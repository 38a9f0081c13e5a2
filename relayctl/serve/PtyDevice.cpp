// SPDX-License-Identifier: MIT
#include "serve/PtyDevice.h"

#include <poll.h>
#include <termios.h>

#include "link/Loop.h"
#include "relay/Text.h"

PtyDevice::PtyDevice(const Line& portLine, const std::string& path)
    : line(portLine), terminal({path, {}}) {
  const auto look = [this](short) {
    (void)terminal.Look();
    line.wake();
  };
  line.loop.Watch(
      terminal.Openings(), [] { return short{POLLIN}; }, look);
  line.loop.Watch(
      terminal.Bytes(), [this] { return terminal.InUse() ? line.wanted() : short{0}; },
      [this](short) { line.wake(); });
  line.tell(line.port + " is " + (path.empty() ? "" : relay::Escape(path) + " -> ") +
            terminal.Node());
}

PtyDevice::~PtyDevice() {
  line.loop.Forget(terminal.Openings());
  line.loop.Forget(terminal.Bytes());
}

void PtyDevice::Open() { (void)tcflush(terminal.Bytes(), TCIFLUSH); }

size_t PtyDevice::Take(std::string_view bytes) {
  if (!terminal.InUse()) {
    (void)terminal.Look();
  }
  if (!terminal.InUse()) {
    return bytes.size();
  }
  const size_t count = terminal.Write(bytes.data(), bytes.size());
  if (count == 0) {
    (void)terminal.Look();
  }
  return terminal.InUse() ? count : bytes.size();
}

// A program that has left is not looked for: its last bytes are read first.
std::string PtyDevice::Give(size_t most) {
  if (!terminal.InUse()) {
    (void)terminal.Look();
  }
  std::string bytes(most, '\0');
  bytes.resize(terminal.InUse() ? terminal.Read(bytes.data(), most) : 0);
  return bytes;
}
