// SPDX-License-Identifier: MIT
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

  // SIGINT, SIGHUP and SIGTERM: those that ask the service to stop.
  static sigset_t StopSignals();

 private:
  sigset_t earlier;
};

// Lets every signal through to the calling thread for a scope, for the sake of the programs that it
// starts: they inherit what it blocks. A stop signal that lands here is main's to handle.
class CAllSignalsAdmitted {
 public:
  CAllSignalsAdmitted();
  ~CAllSignalsAdmitted();
  CAllSignalsAdmitted(const CAllSignalsAdmitted&) = delete;
  CAllSignalsAdmitted& operator=(const CAllSignalsAdmitted&) = delete;

 private:
  sigset_t earlier;
};

// Holds the stop signals back from the main thread while it changes what their handler uses.
// Held signals are not lost: they are delivered at the end, or inside a CStopSignalsAdmitted.
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

// Unblocks the stop signals in the calling thread: whoever started the process may have blocked
// them, and then nothing but SIGKILL would end it.
void AdmitStopSignals();

// Blocks the stop signals in the calling thread for good, for the way out of the process.
void HoldStopSignals();
