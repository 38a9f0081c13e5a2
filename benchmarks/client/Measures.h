// SPDX-License-Identifier: MIT
// What is measured over one bridge. Each adds its figures; "in" is from the serial line to TCP,
// "out" the other way. All bytes that come through are compared with those that went in; a
// difference is an exception.
#pragma once

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
  int idleMilliseconds = 1000;
  int opens = 5;
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
void MeasureOpen(Peer& peer, const Plan& plan, Figures& figures);
