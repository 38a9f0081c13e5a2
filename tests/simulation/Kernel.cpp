// SPDX-License-Identifier: MIT
#include "simulation/Kernel.h"

#include <pthread.h>
#include <unwind.h>

#include <algorithm>
#include <utility>

#include "simulation/Races.h"
#include "simulation/Stacks.h"

namespace simulation {
namespace {

constexpr Time kCallCost = kMicrosecond;
constexpr uint64_t kMostPoints = 5'000'000;
constexpr Time kSettled = 400 * kMillisecond;  // the service has begun

Kernel* running = nullptr;

// Unwinding ends at the frame in which the thread's routine was called: what is below is ours.
_Unwind_Reason_Code StopAtBase(int /*version*/, _Unwind_Action actions,
                               _Unwind_Exception_Class /*kind*/, _Unwind_Exception* /*exception*/,
                               _Unwind_Context* context, void* /*unused*/) {
  Kernel& kernel = *Kernel::Running();
  const auto frame = reinterpret_cast<void*>(_Unwind_GetCFA(context));
  if ((actions & _UA_END_OF_STACK) != 0 || frame >= kernel.Current().stackBase) {
    kernel.EndThread();
  }
  return _URC_NO_REASON;
}

void NotRethrown(_Unwind_Reason_Code /*reason*/, _Unwind_Exception* /*exception*/) {
  Kernel::Running()->Defect("a cancellation was caught and not thrown on");
}

}  // namespace

Kernel::Kernel(Chooser& decisions, bool traced, std::function<void(const std::string&)> onEnd)
    : chooser(decisions), isTraced(traced), tellEnd(std::move(onEnd)) {}

Kernel* Kernel::Running() { return running; }

void Kernel::Run(const std::string& name, std::function<void()> body) {
  running = this;
  Fiber origin;
  Thread& first = Spawn(name, true, std::move(body));
  current = &first;
  origin.SwitchTo(*first.fiber);
  __builtin_trap();  // nobody switches back
}

Thread& Kernel::Spawn(const std::string& name, bool isService, std::function<void()> body) {
  ForgetEnded();
  Thread& thread = *threads.emplace_back(std::make_unique<Thread>());
  thread.number = ++made;
  thread.name = name;
  thread.isService = isService;
  thread.blocked = current != nullptr ? current->blocked : 0;
  thread.body = std::move(body);
  thread.fiber = std::make_unique<Fiber>([this, &thread] { Start(thread); });
  if (Races* const races = Races::Watching()) {
    races->Begins(thread.number, current != nullptr ? current->number : 0);
  }
  return thread;
}

// A run may last for a year.
void Kernel::ForgetEnded() {
  std::erase_if(threads, [](const auto& thread) {
    return thread->isEnded && (thread->isJoined || thread->isDetached || !thread->isService);
  });
}

void Kernel::Start(Thread& thread) {
  thread.stackBase = __builtin_frame_address(0);
  Note(thread.name + " begins");
  thread.body();
  EndThread();
}

Thread* Kernel::Find(int number) {
  const auto found = std::find_if(threads.begin(), threads.end(), [number](const auto& thread) {
    return thread->number == number;
  });
  return found == threads.end() ? nullptr : found->get();
}

// The stack of a thread that has ended is never switched to again.
void Kernel::EndThread() {
  current->isEnded = true;
  Note("ends");
  if (current->locks != 0) {
    Defect(current->name + " ended and holds a lock");
  }
  Dispatch();
  __builtin_trap();
}

bool Kernel::OnlyMainIsLeft() const {
  return std::all_of(threads.begin() + 1, threads.end(),
                     [](const auto& thread) { return thread->isEnded || !thread->isService; });
}

size_t Kernel::LivingThreads() const {
  return static_cast<size_t>(std::count_if(threads.begin(), threads.end(), [](const auto& thread) {
    return thread->isService && !thread->isEnded;
  }));
}

// Not counting what is still to come.
Time Kernel::Stalled() const {
  Time past = stalled;
  for (const auto& thread : threads) {
    past -= std::max<Time>(0, thread->stalledUntil - now);
  }
  return past;
}

bool Kernel::HasSettled() const { return now >= kSettled; }

void Kernel::Point() {
  now += kCallCost;
  Dispatch();
  (void)DeliverSignals();
}

void Kernel::AtomicPoint() {
  Dispatch();
  (void)DeliverSignals();
}

// Who turns in a circle takes hardly any virtual time.
void Kernel::CountPoint() {
  if (++points > kMostPoints && longestRun != kForever) {
    Defect(current->name + " turns in a circle");
  }
}

void Kernel::Dispatch() {
  CountPoint();
  Thread* const before = current;
  if (HasSettled() && current->isService) {
    Stall();
  }
  current = Pick();
  if (current != before) {
    before->fiber->SwitchTo(*current->fiber);
  }
}

// Only then: a stop that comes before the service's first look is forgotten, as it has to be.
void Kernel::Stall() {
  if (const Time stall = chooser.Stall(*current)) {
    current->stalledUntil = now + stall;
    stalled += stall;
    Note("stalls");
  }
}

Thread* Kernel::Pick() {
  for (;;) {
    ready.clear();
    for (const auto& thread : threads) {
      if (IsReady(*thread)) {
        ready.push_back(thread.get());
      }
    }
    if (!ready.empty()) {
      return chooser.Next(ready);
    }
    LetTimePass();
  }
}

bool Kernel::IsReady(const Thread& thread) const {
  if (thread.isEnded || now < thread.stalledUntil) {
    return false;
  }
  return thread.awaited == nullptr || now >= thread.deadline || (*thread.awaited)() ||
         HasDeliverable(thread) || (thread.isWaitingCancellably && MustUnwind(thread));
}

void Kernel::LetTimePass() {
  Time next = kForever;
  for (const auto& thread : threads) {
    if (!thread->isEnded) {
      next = std::min(next, now < thread->stalledUntil ? thread->stalledUntil : thread->deadline);
    }
  }
  if (next == kForever) {
    std::string all;
    for (const auto& thread : threads) {
      all += thread->isEnded ? "" : " " + thread->name;
    }
    Defect("everybody waits for ever:" + all);
  }
  now = next;
  if (now > longestRun) {
    Defect("the run does not end");
  }
}

Woken Kernel::WaitHere(const Condition& condition, Time deadline, Waits how, bool isCancellable) {
  Thread& me = *current;
  for (;;) {
    if (isCancellable && MustUnwind(me)) {
      Unwind();
    }
    if (condition()) {
      return Woken::kReady;
    }
    if (now >= deadline) {
      return Woken::kTimeout;
    }
    me.awaited = &condition;
    me.deadline = deadline;
    me.isWaitingCancellably = isCancellable;
    Dispatch();
    me.awaited = nullptr;
    me.deadline = kForever;
    me.isWaitingCancellably = false;
    const Handled handled = DeliverSignals();
    if ((handled == Handled::kInterrupting && how != Waits::kThrough) ||
        (handled == Handled::kRestarting && how == Waits::kInterruptibly)) {
      return Woken::kSignal;
    }
  }
}

Woken Kernel::Wait(const Condition& condition, Time deadline, Waits how) {
  return WaitHere(condition, deadline, how, false);
}

Woken Kernel::WaitCancellably(const Condition& condition, Time deadline, Waits how) {
  return WaitHere(condition, deadline, how, true);
}

void Kernel::Sleep(Time duration) {
  (void)Wait([] { return false; }, now + duration, Waits::kThrough);
}

void Kernel::CancellationPoint() {
  Point();
  if (MustUnwind(*current)) {
    Unwind();
  }
}

bool Kernel::MustUnwind(const Thread& thread) const {
  return thread.isCancelled && thread.isCancellable && thread.unwinding == nullptr;
}

void Kernel::Unwind() {
  current->result = PTHREAD_CANCELED;
  Note("is cancelled");
  current->unwinding = std::make_unique<_Unwind_Exception>();
  current->unwinding->exception_cleanup = NotRethrown;
  (void)_Unwind_ForcedUnwind(current->unwinding.get(), StopAtBase, nullptr);
  __builtin_trap();
}

void Kernel::Cancel(Thread& thread) { thread.isCancelled = true; }

void Kernel::End(const std::string& text) {
  Note("== " + text);
  tellEnd(text);
  __builtin_trap();
}

void Kernel::Defect(const std::string& text) {
  if (isTraced) {
    NoteStacks();
  }
  End("defect: " + text);
}

// Where each thread is. Who has not begun has no stack.
void Kernel::NoteStacks() {
  for (const auto& thread : threads) {
    if (thread->isService && !thread->isEnded && thread->stackBase != nullptr) {
      const auto stack = thread.get() == current ? Fiber::StackHere() : thread->fiber->Stack();
      trace.Append(thread->name + ":\n" + PlacesIn(stack));
    }
  }
}

void Kernel::Misuse(const std::string& text) {
  if (!allowsMisuse) {
    Defect(text);
  }
}

void Kernel::Note(const std::string& text) {
  if (isTraced) {
    trace.Note(now, *current, text);
  }
}

}  // namespace simulation
