// SPDX-License-Identifier: MIT
// usage: Recordings FILE: status 0 when the service behaves as recorded.
#include <iostream>

#include "recordings/Player.h"

int main(int count, char** arguments) {
  if (count != 2) {
    std::cerr << "usage: Recordings FILE\n";
    return 2;
  }
  const std::string text = workplace::ReadWhole(arguments[1]);
  if (text.empty()) {
    std::cerr << arguments[1] << ": nothing in it\n";
    return 2;
  }
  const std::string difference = Player().Play(text, arguments[1]);
  if (difference.empty()) {
    return 0;
  }
  std::cerr << difference << "\n--- log\n"
            << workplace::ReadWhole(workplace::kLog) << "--- standard output\n"
            << Service::Output() << "--- standard error\n"
            << Service::Errors();
  return 1;
}
