// SPDX-License-Identifier: MIT
#include "pty/RawTerminal.h"

#include <cerrno>

#include "relay/Error.h"

RawTerminal::RawTerminal(int descriptor) : terminal(descriptor) {
  if (tcgetattr(terminal, &before) != 0) {
    throw relay::Error(relay::ErrorKind::kUsage, "this needs a terminal; see pipe for scripts");
  }
  will = std::make_unique<LastWill>([this] { Restore(); }, std::vector<int>{terminal});
  SetRaw();
}

RawTerminal::~RawTerminal() { Restore(); }

void RawTerminal::Restore() const { (void)tcsetattr(terminal, TCSADRAIN, &before); }

void RawTerminal::SetRaw() const {
  termios raw = before;
  cfmakeraw(&raw);
  raw.c_oflag |= OPOST | ONLCR;
  (void)tcsetattr(terminal, TCSADRAIN, &raw);
}
