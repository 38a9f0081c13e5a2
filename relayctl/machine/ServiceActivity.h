// SPDX-License-Identifier: MIT
// What the service does during a short moment, by many looks at what the kernel shows of it.
// Nothing is sent to it.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "machine/ProcessTable.h"

struct ThreadActivity {
  pid_t id = 0;
  uint64_t processorMillis = 0;
  uint64_t waits = 0;       // how often it has waited for something
  std::string waitChannel;  // the kernel's function that it waits in; empty: not shown
  std::string terminal;     // the device that it was writing to at a look; empty: none
  bool wroteAlways = true;  // at each look
  dev_t terminalNumber = 0;
  bool terminalMoves = false;  // the line has sent something meanwhile
};

// A connection to the relay port that was there at each look.
struct LinkActivity {
  TcpSocket socket;           // at the last look
  bool wasUnread = true;      // bytes waited for the service at each look
  bool wasTakenFrom = false;  // and became fewer at least once
  bool isWaitedFor = false;   // a thread waits for bytes from it
  bool wasUnsent = true;      // bytes waited for the peer at each look
  bool peerHasRead = false;   // at least once
};

struct ServiceActivity {
  std::chrono::milliseconds moment{0};  // how long it was looked at; 0: not at all
  char state = 0;                       // the process's, as in proc(5)
  bool callsAreShown = false;           // what its threads wait for
  std::vector<ThreadActivity> threads;  // the first is the main one
  std::vector<LinkActivity> links;
  std::vector<Process> searches;  // udevadm, on the service's behalf, for some seconds
};

// Takes a second.
ServiceActivity WatchService(const ProcessTable& processes, const Process& service,
                             uint16_t relayPort);
