// SPDX-License-Identifier: MIT
#include "serve/Controls.h"

#include <poll.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <optional>
#include <string_view>

#include "link/Loop.h"
#include "relay/Error.h"
#include "serve/Desk.h"
#include "serve/Provocation.h"
#include "show/Output.h"

// In the background a terminal's keys belong to another program.
Controls::Controls(Loop& ownLoop, Desk& servedDesk, const std::string& onUsr1,
                   const std::string& onUsr2)
    : loop(ownLoop), desk(servedDesk) {
  loop.OnSignal(SIGUSR1, [this, onUsr1] { Provoke(onUsr1); });
  loop.OnSignal(SIGUSR2, [this, onUsr2] { Provoke(onUsr2); });
  const bool isTerminal = isatty(STDIN_FILENO) == 1;
  if (isTerminal && !keys.AreThere()) {
    return;
  }
  loop.Watch(
      STDIN_FILENO, [] { return short{POLLIN}; },
      [this, isTerminal](short) { isTerminal ? TakeKeys() : TakeLines(); });
}

Controls::~Controls() { loop.Forget(STDIN_FILENO); }

// One key: none at all would be a terminal that has gone.
void Controls::TakeKeys() {
  const char key = keys.Next();
  for (const ProvokingKey& one : ProvokingKeys()) {
    if (key == one.key) {
      Provoke(one.provocation);
    }
  }
  if (key == '\t') {
    desk.ChooseNext();
  } else if (key == 'h' || key == '?') {
    Help();
  }
  isOver = key == 'q';
  if (!keys.AreThere()) {
    loop.Forget(STDIN_FILENO);
  }
}

// The end of the input is not the end of the service: /dev/null is a usual input, too.
void Controls::TakeLines() {
  std::array<char, 4096> buffer{};
  const ssize_t count = read(STDIN_FILENO, buffer.data(), buffer.size());
  if (count <= 0) {
    loop.Forget(STDIN_FILENO);
    return;
  }
  lines.Add(std::string_view(buffer.data(), static_cast<size_t>(count)));
  while (const std::optional<std::string> line = lines.Next()) {
    if (line->find_first_not_of(" \t\r") != std::string::npos) {
      Provoke(*line);
    }
  }
}

void Controls::Provoke(const std::string& text) {
  try {
    desk.Provoke(text);
  } catch (const relay::Error& error) {
    if (error.Kind() != relay::ErrorKind::kUsage) {
      throw;
    }
    PrintNotice(Harmless(error.what()));
  }
}

void Controls::Help() {
  for (const ProvokingKey& one : ProvokingKeys()) {
    PrintNotice(std::string(1, one.key) + "    " + one.help);
  }
  PrintNotice("Tab  choose the next port; h help, q quit");
}
