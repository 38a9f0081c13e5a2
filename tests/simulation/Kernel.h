// SPDX-License-Identifier: MIT
// The simulated kernel's core: threads of which one runs at a time, virtual time, signals and
// cancellation. Whoever calls in here runs on a simulated thread, unless said otherwise.
#pragma once

#include <unwind.h>

#include <csignal>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "simulation/Chooser.h"
#include "simulation/Fiber.h"
#include "simulation/Trace.h"

namespace simulation {

// Nanoseconds of virtual time since the run began.
using Time = int64_t;
constexpr Time kMicrosecond = 1'000;
constexpr Time kMillisecond = 1'000'000;
constexpr Time kSecond = 1'000'000'000;
constexpr Time kForever = INT64_MAX;

// A set of signals: bit N - 1 is signal N, as in the kernel.
using SignalSet = uint64_t;
constexpr SignalSet SetOf(int signal) { return SignalSet{1} << (signal - 1); }
constexpr SignalSet kNeverBlocked = SetOf(SIGKILL) | SetOf(SIGSTOP);

// Looked at as often as anybody likes: it changes nothing.
using Condition = std::function<bool()>;

enum class Woken { kReady, kTimeout, kSignal };

enum class Waits {
  kThrough,        // a mutex, a device that does not let go: handlers run, the wait goes on
  kRestartably,    // a handler ends it, unless it was set with SA_RESTART
  kInterruptibly,  // a handler ends it
};

struct Thread {
  int number = 0;
  std::string name;
  bool isService = true;  // or an actor: the relay, a device, an operator
  std::function<void()> body;
  std::unique_ptr<Fiber> fiber;

  // Why it does not run; null when it can.
  const Condition* awaited = nullptr;
  Time deadline = kForever;
  Time stalledUntil = 0;
  bool isEnded = false;

  SignalSet blocked = 0;
  SignalSet pending = 0;

  bool isCancellable = true;  // its cancel state
  bool isCancelled = false;   // somebody asked for it
  bool isWaitingCancellably = false;
  std::unique_ptr<_Unwind_Exception> unwinding;  // once it is
  bool isDetached = false;
  bool isJoined = false;
  std::string call;           // that it is in
  int locks = 0;              // that it holds
  int handlers = 0;           // of signals that it is inside of
  void* result = nullptr;     // of its routine
  void* stackBase = nullptr;  // the frame at which unwinding ends
};

class Kernel {
 public:
  // `onEnd` is told how the run ended ("exit 0", "signal 6", "defect: …"), on whatever stack, and
  // must not return.
  Kernel(Chooser& decisions, bool traced, std::function<void(const std::string&)> onEnd);
  Kernel(const Kernel&) = delete;
  Kernel& operator=(const Kernel&) = delete;

  // The run's own, or null outside of one.
  static Kernel* Running();

  Time longestRun = 600 * kSecond;  // more of virtual time is a defect

  // Turns the caller into the scheduler's first thread, `name`, and runs `body` there. Not on a
  // simulated thread. Never returns.
  [[noreturn]] void Run(const std::string& name, std::function<void()> body);

  Thread& Spawn(const std::string& name, bool isService, std::function<void()> body);
  Thread& Current() { return *current; }
  Thread* Find(int number);
  [[noreturn]] void EndThread();
  bool OnlyMainIsLeft() const;
  size_t LivingThreads() const;  // of the service

  Time Now() const { return now; }
  Time Stalled() const;     // all threads in all
  bool HasSettled() const;  // the service has begun
  Chooser& Choice() { return chooser; }

  // A place where others may run and signals are delivered. Each costs a microsecond of virtual
  // time, so that a loop that looks at the clock comes to its end.
  void Point();
  void AtomicPoint();  // the same between two instructions
  Woken Wait(const Condition& condition, Time deadline, Waits how);
  void Sleep(Time duration);

  // The same where the C library lets a cancellation in: on the way in, while it waits, and on the
  // way out, even of a call that has done its work.
  void CancellationPoint();
  Woken WaitCancellably(const Condition& condition, Time deadline, Waits how = Waits::kRestartably);

  void Cancel(Thread& thread);

  using Handler = void (*)(int);
  struct Action {
    Handler handler = SIG_DFL;
    SignalSet mask = 0;
    bool restarts = false;
  };
  const Action& ActionOf(int signal) const { return actions[static_cast<size_t>(signal)]; }
  void SetAction(int signal, const Action& action);
  void SendToProcess(int signal);
  bool HasHandled() const { return hasHandled; }  // some signal
  void SendToThread(Thread& thread, int signal);

  [[noreturn]] void End(const std::string& text);
  [[noreturn]] void Defect(const std::string& text);
  // What the caller is told an errno of, and must not do in the first place.
  void Misuse(const std::string& text);
  void AllowMisuse() { allowsMisuse = true; }

  bool IsTraced() const { return isTraced; }
  void Note(const std::string& text);  // into the trace; nothing where the run is not traced
  const std::string& TraceText() const { return trace.Text(); }

 private:
  static constexpr int kSignals = 65;

  void NoteStacks();
  void Dispatch();
  void Stall();
  Thread* Pick();
  bool IsReady(const Thread& thread) const;
  bool HasDeliverable(const Thread& thread) const;
  bool MustUnwind(const Thread& thread) const;
  void LetTimePass();
  void CountPoint();
  enum class Handled { kNothing, kRestarting, kInterrupting };
  Handled DeliverSignals();
  bool IsDropped(const Thread& target, int signal) const;
  void Start(Thread& thread);
  void ForgetEnded();
  [[noreturn]] void Unwind();
  int TakeSignal();
  Woken WaitHere(const Condition& condition, Time deadline, Waits how, bool isCancellable);

  Chooser& chooser;
  const bool isTraced;
  const std::function<void(const std::string&)> tellEnd;
  std::vector<std::unique_ptr<Thread>> threads;  // that somebody may still ask for; main first
  int made = 0;                                  // the number of the last one
  std::vector<Thread*> ready;                    // of the last look, to keep its memory
  Thread* current = nullptr;
  Time now = 0;
  uint64_t points = 0;
  Time stalled = 0;
  Action actions[kSignals];
  SignalSet processPending = 0;
  bool allowsMisuse = false;
  bool hasHandled = false;
  Trace trace;
};

}  // namespace simulation
