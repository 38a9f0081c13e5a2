// SPDX-License-Identifier: MIT
// SIGINT, SIGHUP and SIGTERM ask the service to stop. Their handler notes that and closes the relay
// link, between any two statements of the main thread. So that it always meets that thread, and
// never anything half changed:
//  - main unblocks them once the handler stands, whatever its starter had blocked, and blocks them
//    for good before the objects that the handler uses go (AdmitStopSignals, HoldStopSignals).
//  - Every other thread starts with all signals blocked (CSignalMask). Only the tools that it runs
//    are to have none blocked, so that an operator can end them (CAllSignalsAdmitted); a stop that
//    meets the thread itself then is handed on to main.
//  - main holds them back while it changes what the handler uses, the link and its thread, and
//    while it stops a port's thread: that takes locks of the C library's own, and so does the
//    handler (CStopSignalsHeld). Held signals are not lost.
//  - Waiting for the relay service, also inside such a hold, main lets them in: accept must be
//    interrupted (CStopSignalsAdmitted).
#pragma once

#include <csignal>

// Blocks a set of signals in the calling thread for a scope, on top of those already blocked.
class CSignalMask {
 public:
  explicit CSignalMask(const sigset_t& blocked);
  ~CSignalMask();
  CSignalMask(const CSignalMask&) = delete;
  CSignalMask& operator=(const CSignalMask&) = delete;

  static sigset_t AllSignals();

  static sigset_t StopSignals();

 private:
  sigset_t earlier;
};

// Lets every signal through to the calling thread for a scope: programs that it starts inherit what
// it blocks.
class CAllSignalsAdmitted {
 public:
  CAllSignalsAdmitted();
  ~CAllSignalsAdmitted();
  CAllSignalsAdmitted(const CAllSignalsAdmitted&) = delete;
  CAllSignalsAdmitted& operator=(const CAllSignalsAdmitted&) = delete;

 private:
  sigset_t earlier;
};

// Holds the stop signals back from the calling thread for a scope. They are delivered at its end,
// or inside a CStopSignalsAdmitted. A function that changes what their handler uses takes one as an
// argument: whoever calls it holds them.
class CStopSignalsHeld {
 public:
  CStopSignalsHeld();
  ~CStopSignalsHeld();
  CStopSignalsHeld(const CStopSignalsHeld&) = delete;
  CStopSignalsHeld& operator=(const CStopSignalsHeld&) = delete;

 private:
  CSignalMask mask;
};

// Lets the stop signals through again for a scope, where the calling thread holds them back with
// CStopSignalsHeld; otherwise does nothing.
class CStopSignalsAdmitted {
 public:
  CStopSignalsAdmitted();
  ~CStopSignalsAdmitted();
  CStopSignalsAdmitted(const CStopSignalsAdmitted&) = delete;
  CStopSignalsAdmitted& operator=(const CStopSignalsAdmitted&) = delete;

 private:
  int holds;
};

// Unblock and block the stop signals in the calling thread, for good.
void AdmitStopSignals();
void HoldStopSignals();
