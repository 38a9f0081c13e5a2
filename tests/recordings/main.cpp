// SPDX-License-Identifier: MIT
// usage: Recordings FILE: status 0 when the service behaves as recorded.
//        Recordings --served FILE: the same of relayctl serve.
#include <iostream>
#include <string_view>

#include "e2e/support/Service.h"
#include "e2e/support/Workplace.h"
#include "recordings/Player.h"
#include "recordings/ServedMachine.h"

int main(int count, char** arguments) {
  const bool isServed = count == 3 && std::string_view(arguments[1]) == "--served";
  if (count != 2 && !isServed) {
    std::cerr << "usage: Recordings [--served] FILE\n";
    return 2;
  }
  const char* const file = arguments[count - 1];
  const std::string text = workplace::ReadWhole(file);
  if (text.empty()) {
    std::cerr << file << ": nothing in it\n";
    return 2;
  }
  Player player = isServed ? Player(std::make_unique<ServedMachine>()) : Player();
  const std::string difference = player.Play(text, file);
  if (difference.empty()) {
    return 0;
  }
  std::cerr << difference << "\n--- log\n"
            << workplace::ReadWhole(workplace::kLog) << "--- standard output\n"
            << Service::Output() << "--- standard error\n"
            << Service::Errors();
  return 1;
}
