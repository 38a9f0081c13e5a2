// SPDX-License-Identifier: MIT
#include <cstdio>
#include <exception>

#include "Commands.h"
#include "ExitStatus.h"
#include "show/Output.h"

int main(int argc, char** argv) {
  try {
    OccupyClosedStreams();
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
    const int status = line.Run(argc, argv);
    FlushOutput();
    return status;
  } catch (const std::exception& error) {
    (void)std::fprintf(stderr, "relayctl: %s\n", error.what());
    return kExitFailed;
  }
}
