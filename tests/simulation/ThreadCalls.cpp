// SPDX-License-Identifier: MIT
#include <pthread.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <ctime>

#include "simulation/Calls.h"
#include "simulation/Races.h"

using namespace simulation;

namespace {

// A mutex's state lies where the real one's would.
struct MutexState {
  int owner;  // 0: nobody
};
static_assert(sizeof(MutexState) <= sizeof(pthread_mutex_t));

MutexState& StateOf(pthread_mutex_t* mutex) { return *reinterpret_cast<MutexState*>(mutex); }

Thread& ThreadOf(pthread_t handle, const char* call) {
  Kernel& kernel = *Kernel::Running();
  Thread* const thread = kernel.Find(static_cast<int>(handle));
  if (thread == nullptr || thread->isJoined || (thread->isDetached && thread->isEnded)) {
    kernel.Defect(std::string(call) + " of a thread that is no more");
  }
  return *thread;
}

SignalSet SetFrom(const sigset_t& set) {
  SignalSet bits = 0;
  std::memcpy(&bits, &set, sizeof bits);
  return bits & ~kNeverBlocked;
}

void SetTo(SignalSet bits, sigset_t* set) {
  if (set != nullptr) {
    (void)sigemptyset(set);
    std::memcpy(set, &bits, sizeof bits);
  }
}

}  // namespace

SIMULATED(int, pthread_create, pthread_t* handle, const pthread_attr_t* attributes,
          void* (*routine)(void*), void* argument) {
  if (!IsRunning()) {
    return __real_pthread_create(handle, attributes, routine, argument);
  }
  Kernel& kernel = *Kernel::Running();
  kernel.Point();
  if (Machine::Running()->faults.Strike(Fault::kNoThread)) {
    return EAGAIN;
  }
  Thread& made = kernel.Spawn("thread", true, [&kernel, routine, argument] {
    kernel.Current().result = routine(argument);
  });
  made.name += " " + std::to_string(made.number);
  *handle = static_cast<pthread_t>(made.number);
  Machine::Running()->oracle->Makes(made.number);
  kernel.Point();
  return 0;
}

// The first thread's number is known before it runs: the service asks while it is loaded.
SIMULATED(pthread_t, pthread_self) {
  return static_cast<pthread_t>(IsRunning() ? Kernel::Running()->Current().number : 1);
}

SIMULATED(int, pthread_tryjoin_np, pthread_t handle, void** result) {
  if (!IsRunning()) {
    return __real_pthread_tryjoin_np(handle, result);
  }
  Kernel::Running()->Point();
  Thread& thread = ThreadOf(handle, "pthread_tryjoin_np");
  thread.isJoined = thread.isEnded;
  if (thread.isJoined && result != nullptr) {
    *result = thread.result;
  }
  if (thread.isJoined && Races::Watching() != nullptr) {
    Races::Watching()->Joins(thread.number);
  }
  return thread.isEnded ? 0 : EBUSY;
}

SIMULATED(int, pthread_detach, pthread_t handle) {
  if (!IsRunning()) {
    return __real_pthread_detach(handle);
  }
  Kernel::Running()->Point();
  ThreadOf(handle, "pthread_detach").isDetached = true;
  return 0;
}

SIMULATED(int, pthread_cancel, pthread_t handle) {
  if (!IsRunning()) {
    return __real_pthread_cancel(handle);
  }
  Kernel& kernel = *Kernel::Running();
  kernel.Point();
  kernel.Cancel(ThreadOf(handle, "pthread_cancel"));
  return 0;
}

SIMULATED(int, pthread_setcancelstate, int state, int* earlier) {
  if (!IsRunning()) {
    return __real_pthread_setcancelstate(state, earlier);
  }
  Thread& me = Kernel::Running()->Current();
  if (earlier != nullptr) {
    *earlier = me.isCancellable ? PTHREAD_CANCEL_ENABLE : PTHREAD_CANCEL_DISABLE;
  }
  me.isCancellable = state == PTHREAD_CANCEL_ENABLE;
  return 0;
}

SIMULATED(int, pthread_sigmask, int how, const sigset_t* set, sigset_t* earlier) {
  if (!IsRunning()) {
    return __real_pthread_sigmask(how, set, earlier);
  }
  Kernel& kernel = *Kernel::Running();
  Thread& me = kernel.Current();
  SetTo(me.blocked, earlier);
  if (set != nullptr) {
    const SignalSet wanted = SetFrom(*set);
    me.blocked = how == SIG_SETMASK ? wanted
                 : how == SIG_BLOCK ? me.blocked | wanted
                                    : me.blocked & ~wanted;
  }
  kernel.Point();
  return 0;
}

SIMULATED(int, pthread_kill, pthread_t handle, int signal) {
  if (!IsRunning()) {
    return __real_pthread_kill(handle, signal);
  }
  Kernel& kernel = *Kernel::Running();
  kernel.SendToThread(ThreadOf(handle, "pthread_kill"), signal);
  kernel.Point();
  return 0;
}

SIMULATED(int, pthread_mutex_init, pthread_mutex_t* mutex, const pthread_mutexattr_t* kind) {
  if (!IsRunning()) {
    return __real_pthread_mutex_init(mutex, kind);
  }
  StateOf(mutex) = {};
  return 0;
}

SIMULATED(int, pthread_mutex_destroy, pthread_mutex_t* mutex) {
  if (!IsRunning()) {
    return __real_pthread_mutex_destroy(mutex);
  }
  if (StateOf(mutex).owner != 0) {
    Kernel::Running()->Misuse("a mutex is destroyed that somebody holds");
    return EBUSY;
  }
  return 0;
}

SIMULATED(int, pthread_mutex_lock, pthread_mutex_t* mutex) {
  if (!IsRunning()) {
    return __real_pthread_mutex_lock(mutex);
  }
  Kernel& kernel = *Kernel::Running();
  MutexState& state = StateOf(mutex);
  kernel.Point();
  if (state.owner == kernel.Current().number) {
    kernel.Defect("a mutex is locked by who holds it");
  }
  (void)kernel.Wait([&state] { return state.owner == 0; }, kForever, Waits::kThrough);
  state.owner = kernel.Current().number;
  ++kernel.Current().locks;
  if (Races* const races = Races::Watching()) {
    races->Acquire(mutex);
  }
  return 0;
}

SIMULATED(int, pthread_mutex_unlock, pthread_mutex_t* mutex) {
  if (!IsRunning()) {
    return __real_pthread_mutex_unlock(mutex);
  }
  Kernel& kernel = *Kernel::Running();
  MutexState& state = StateOf(mutex);
  if (state.owner != kernel.Current().number) {
    kernel.Defect("a mutex is unlocked by who does not hold it");
  }
  if (Races* const races = Races::Watching()) {
    races->Release(mutex);
  }
  state.owner = 0;
  --kernel.Current().locks;
  kernel.Point();
  return 0;
}

// A loaded unwinder is no business of a run: its driver has loaded it.
SIMULATED(int, backtrace, void** frames, int capacity) {
  return IsRunning() ? 0 : __real_backtrace(frames, capacity);
}

SIMULATED(int, sigaction, int signal, const struct sigaction* wanted, struct sigaction* earlier) {
  if (!IsRunning()) {
    return __real_sigaction(signal, wanted, earlier);
  }
  Kernel& kernel = *Kernel::Running();
  if (earlier != nullptr) {
    const Kernel::Action& action = kernel.ActionOf(signal);
    *earlier = {};
    earlier->sa_handler = action.handler;
    earlier->sa_flags = action.restarts ? SA_RESTART : 0;
    SetTo(action.mask, &earlier->sa_mask);
  }
  if (wanted != nullptr) {
    kernel.SetAction(signal, {wanted->sa_handler, SetFrom(wanted->sa_mask),
                              (wanted->sa_flags & SA_RESTART) != 0});
  }
  return 0;
}

SIMULATED(sighandler_t, signal, int number, sighandler_t handler) {
  if (!IsRunning()) {
    return __real_signal(number, handler);
  }
  Kernel& kernel = *Kernel::Running();
  const sighandler_t earlier = kernel.ActionOf(number).handler;
  kernel.SetAction(number, {handler, SetOf(number), true});
  return earlier;
}

SIMULATED(int, usleep, useconds_t microseconds) {
  if (!IsRunning()) {
    return __real_usleep(microseconds);
  }
  Kernel& kernel = *Kernel::Running();
  Call call("usleep", Call::kCancellable, std::to_string(microseconds));
  const Woken woken = kernel.WaitCancellably(
      [] { return false; }, kernel.Now() + static_cast<Time>(microseconds) * kMicrosecond,
      Waits::kInterruptibly);
  return static_cast<int>(call.Gives(woken == Woken::kSignal ? -EINTR : 0));
}

// Every clock shows the time of the run, and the calendar's begins on a day in November 2026.
SIMULATED(int, clock_gettime, clockid_t clock, timespec* time) {
  if (!IsRunning()) {
    return __real_clock_gettime(clock, time);
  }
  constexpr time_t kFirstDay = 1'795'000'000;
  const Time now = Kernel::Running()->Now();
  time->tv_sec = now / kSecond + (clock == CLOCK_REALTIME ? kFirstDay : 1000);
  time->tv_nsec = now % kSecond;
  return 0;
}

SIMULATED(void, _Exit, int status) {
  if (IsRunning()) {
    Kernel::Running()->End("exit " + std::to_string(status & 0xFF));
  }
  __real__Exit(status);
}

SIMULATED(void, abort) {
  if (IsRunning()) {
    Kernel::Running()->End("signal 6");
  }
  __real_abort();
}
