// SPDX-License-Identifier: MIT
#include "simulation/Stacks.h"

#include <array>
#include <cstdint>
#include <cstdio>
#include <sstream>

namespace simulation {
namespace {

extern "C" const char __executable_start;

// A frame has the address behind its call.
std::string CommandFor(const std::vector<void*>& stack) {
  std::ostringstream command;
  command << "addr2line -Cfpe /proc/$PPID/exe" << std::hex;
  for (const void* const frame : stack) {
    command << ' '
            << reinterpret_cast<uintptr_t>(frame) -
                   reinterpret_cast<uintptr_t>(&__executable_start) - 1;
  }
  return command.str();
}

std::string OutputOf(const std::string& command) {
  std::string text;
  if (FILE* const tool = popen(command.c_str(), "r")) {
    std::array<char, 4096> piece{};
    while (fgets(piece.data(), piece.size(), tool) != nullptr) {
      text += piece.data();
    }
    (void)pclose(tool);
  }
  return text;
}

}  // namespace

std::string PlacesIn(const std::vector<void*>& stack) {
  std::istringstream all(OutputOf(CommandFor(stack)));
  std::string places;
  for (std::string line; std::getline(all, line);) {
    const size_t at = line.rfind(" at ");
    const bool isOurs = line.find("/src/", at) != std::string::npos ||
                        line.find("/platform-libs/", at) != std::string::npos;
    if (at != std::string::npos && isOurs) {
      places += "  " + line.substr(0, at + 4) + line.substr(line.rfind('/') + 1) + "\n";
    }
  }
  return places;
}

}  // namespace simulation
