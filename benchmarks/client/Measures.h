// SPDX-License-Identifier: MIT
// What is measured over one bridge. Each adds its figures; "in" is from the serial line to TCP,
// "out" the other way. All bytes that come through are compared with those that went in; a
// difference is an exception.
#pragma once

#include <memory>
#include <vector>

#include "client/Bridge.h"
#include "client/Figures.h"
#include "client/Line.h"
#include "client/Peer.h"

// How much of everything one run does.
struct Plan {
  int latencyRounds = 400;
  int delayedRounds = 12;
  int duplexMessages = 250;
  int bulkBlocks = 1024;  // of 4 KiB
  int commands = 20000;
  int idleMilliseconds = 500;
  int opens = 5;
  int portRounds = 200;
  int batches = 10;  // of 100,000 commands
};

// One message at a time: the next one goes when the last one has come.
void MeasureLatency(const Bridge& bridge, const Line& line, Peer& peer, const Plan& plan,
                    Figures& figures);

// The same for a peer that leaves acknowledging to the kernel.
void MeasureDelayed(const Line& line, Peer& peer, const Plan& plan, Figures& figures);

// A message each way every millisecond.
void MeasureDuplex(const Line& line, Peer& peer, const Plan& plan, Figures& figures);

// As much as goes.
void MeasureBulk(const Bridge& bridge, const Line& line, Peer& peer, const Plan& plan,
                 Figures& figures);
void MeasureCommands(const Bridge& bridge, const Line& line, Peer& peer, const Plan& plan,
                     Figures& figures);

void MeasureIdle(const Bridge& bridge, const Plan& plan, Figures& figures);

// Opens of a port that is found through udevadm, and what the two shell commands of such an open
// take by themselves.
void MeasureOpen(size_t port, Peer& peer, const Plan& plan, Figures& figures);

// A message each way on every open port in turn.
void MeasurePorts(const Bridge& bridge, const std::vector<std::unique_ptr<Line>>& lines, Peer& peer,
                  const Plan& plan, Figures& figures);

// The processor time of a command and the memory, after every 100,000.
void MeasureManyCommands(const Bridge& bridge, const Line& line, Peer& peer, const Plan& plan,
                         Figures& figures);

// The device goes on sending to a peer that does not read: what of that is taken, and the memory.
void MeasureUnread(const Bridge& bridge, const Line& line, Figures& figures);
