// SPDX-License-Identifier: MIT
// Each function adds one command, or a group of them, to the command line. One file each.
#pragma once

#include "CommandLine.h"

void AddOpenCommand(CommandLine& line);
void AddCloseCommand(CommandLine& line);
void AddWriteCommand(CommandLine& line);
void AddWatchCommand(CommandLine& line);
void AddPipeCommand(CommandLine& line);
void AddRecordCommand(CommandLine& line);
void AddReplayCommand(CommandLine& line);
void AddRawCommand(CommandLine& line);
void AddDecodeCommand(CommandLine& line);

// terminal, pty, doctor, suggest.
void AddTerminalCommands(CommandLine& line);
