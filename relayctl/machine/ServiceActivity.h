// SPDX-License-Identifier: MIT
// What the service does during a short moment, by many looks at what the kernel shows of it.
// Nothing is sent to it.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "machine/ActivityLook.h"
#include "machine/TcpTraffic.h"

struct ThreadActivity {
  pid_t id = 0;
  double startedAt = 0;  // seconds since 1970
  uint64_t processorMillis = 0;
  uint64_t waits = 0;       // how often it has waited for something
  double idle = 0;          // seconds since it last ran; 0: not shown, or less than can be told
  std::string waitChannel;  // the kernel's function that it waits in; empty: not shown
  std::string terminal;     // the device that it was writing to at a look; empty: none
  bool wroteAlways = true;  // at each look
  dev_t terminalNumber = 0;
  bool terminalMoves = false;             // the line has sent something meanwhile
  bool terminalTells = false;             // how far it is; not where it was not asked
  dev_t receivesFrom = 0;                 // the line that it waits for bytes of; 0: none
  std::optional<uint64_t> receivedBytes;  // since it began; nothing: not shown
  bool waitsForReader = false;            // of the service's own output, at most looks
};

// A connection to the relay port that was there at each look.
struct LinkActivity {
  TcpSocket socket;                   // at the last look
  bool wasUnread = true;              // bytes waited for the service at each look
  bool wasTakenFrom = false;          // and became fewer at least once
  bool isWaitedFor = false;           // a thread waits for bytes from it
  bool wasUnsent = true;              // bytes waited for the peer at each look
  bool peerHasRead = false;           // at least once
  std::optional<TcpTraffic> traffic;  // nothing: the kernel does not tell
};

// A process has it: the others wait in the kernel's queue.
bool IsServed(const LinkActivity& link);

struct ServiceActivity {
  std::chrono::milliseconds moment{0};  // how long it was looked at; 0: not at all
  char state = 0;                       // the process's, as in proc(5)
  bool callsAreShown = false;           // what its threads wait for
  bool linesWereAsked = true;           // those that are written to, how far they are
  std::vector<ThreadActivity> threads;  // the first is the main one
  bool filesAreShown = false;           // and so the lines
  std::vector<OpenLine> lines;          // at the last look
  unsigned portsAway = 0;               // receive threads of ports beyond the lines, at each look
  unsigned portsUnserved = 0;           // lines without such a thread, at each look
  bool peerIsUnserved = false;  // a peer is connected and no thread receives from it, at each look
  std::vector<LinkActivity> links;
  std::string trafficProblem;     // why the kernel does not tell of it
  std::vector<Process> searches;  // udevadm, on the service's behalf, for some seconds
};

// Takes a second. `lines`: those that a thread writes to tell more when they may be opened.
ServiceActivity WatchService(const ProcessTable& processes, const Process& service,
                             uint16_t relayPort, LineAccess lines);
