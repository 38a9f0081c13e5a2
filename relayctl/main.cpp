// SPDX-License-Identifier: MIT
#include <cstdio>
#include <exception>

#include "Commands.h"
#include "ExitStatus.h"

int main(int argc, char** argv) {
  try {
    CommandLine line;
    AddOpenCommand(line);
    AddCloseCommand(line);
    AddWriteCommand(line);
    AddWatchCommand(line);
    AddPipeCommand(line);
    AddRecordCommand(line);
    AddReplayCommand(line);
    AddRawCommand(line);
    AddDecodeCommand(line);
    AddTerminalCommands(line);
    return line.Run(argc, argv);
  } catch (const std::exception& error) {
    (void)std::fprintf(stderr, "relayctl: %s\n", error.what());
    return kExitFailed;
  }
}
