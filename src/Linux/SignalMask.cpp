// SPDX-License-Identifier: MIT
#include "Linux/SignalMask.h"

namespace {

// How many CStopSignalsHeld this thread is inside of. The handler of a stop signal may run between
// any two of these statements, but leaves the count as it finds it.
thread_local int holdDepth = 0;

void ChangeStopSignals(int how) {
  const sigset_t stopSignals = CSignalMask::StopSignals();
  (void)pthread_sigmask(how, &stopSignals, nullptr);
}

}  // namespace

CSignalMask::CSignalMask(const sigset_t& blocked) {
  (void)pthread_sigmask(SIG_BLOCK, &blocked, &earlier);
}

CSignalMask::~CSignalMask() { (void)pthread_sigmask(SIG_SETMASK, &earlier, nullptr); }

sigset_t CSignalMask::AllSignals() {
  sigset_t signals;
  (void)sigfillset(&signals);
  return signals;
}

sigset_t CSignalMask::StopSignals() {
  sigset_t signals;
  (void)sigemptyset(&signals);
  (void)sigaddset(&signals, SIGINT);
  (void)sigaddset(&signals, SIGHUP);
  (void)sigaddset(&signals, SIGTERM);
  return signals;
}

CAllSignalsAdmitted::CAllSignalsAdmitted() {
  sigset_t none;
  (void)sigemptyset(&none);
  (void)pthread_sigmask(SIG_SETMASK, &none, &earlier);
}

CAllSignalsAdmitted::~CAllSignalsAdmitted() {
  (void)pthread_sigmask(SIG_SETMASK, &earlier, nullptr);
}

CStopSignalsHeld::CStopSignalsHeld() : mask(CSignalMask::StopSignals()) { ++holdDepth; }

CStopSignalsHeld::~CStopSignalsHeld() { --holdDepth; }

CStopSignalsAdmitted::CStopSignalsAdmitted() : holds(holdDepth) {
  if (holds != 0) {
    ChangeStopSignals(SIG_UNBLOCK);
  }
}

CStopSignalsAdmitted::~CStopSignalsAdmitted() {
  if (holds != 0) {
    ChangeStopSignals(SIG_BLOCK);
  }
}

void AdmitStopSignals() { ChangeStopSignals(SIG_UNBLOCK); }

void HoldStopSignals() { ChangeStopSignals(SIG_BLOCK); }
