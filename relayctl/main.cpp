// SPDX-License-Identifier: MIT
#include <cstdio>
#include <exception>

#include "CommandLine.h"
#include "ExitStatus.h"
#include "show/Output.h"

int main(int argc, char** argv) {
  try {
    OccupyClosedStreams();
    const int status = CommandLine().Run(argc, argv);
    FlushOutput();
    return status;
  } catch (const std::exception& error) {
    (void)std::fprintf(stderr, "relayctl: %s\n", error.what());
    return kExitFailed;
  }
}
