// SPDX-License-Identifier: MIT
// Where a stream has no description of our own, neither pipes nor terminals have a write that does
// not block on every kernel: RWF_NOWAIT is for pipes without a name, from Linux 6.5 on. `poll`
// before `write` does not help: the room may be less than the text, or gone by then. So a timer of
// the thread's own ends the wait. A thread that owned the stream would need none, but what it holds
// would be lost when the process aborts, and its end would have to be waited for.
#include "Linux/TimedWrite.h"

#include <poll.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

namespace {

constexpr long kTickNanoseconds = 2'000'000;

void InterruptOnly(int /*signal*/) {}

bool HandlesTicks(int signal) {
  struct sigaction action {};
  if (sigaction(signal, nullptr, &action) != 0) {
    return false;
  }
  if (action.sa_handler == SIG_DFL) {
    action = {};  // no SA_RESTART: the write is to end
    action.sa_handler = InterruptOnly;
    return sigaction(signal, &action, nullptr) == 0;
  }
  return action.sa_handler == InterruptOnly;
}

// Threads that come here together find the same one. 0: all are taken.
int TickSignal() {
  for (int signal = SIGRTMIN; signal <= SIGRTMAX; ++signal) {
    if (HandlesTicks(signal)) {
      return signal;
    }
  }
  return 0;
}

// Interrupts the calling thread again and again: a tick that comes before the write has begun is
// followed by one that ends it. No other signal is let in meanwhile: its handler would be
// interrupted, too.
class CTicks {
 public:
  explicit CTicks(int signal) {
    sigset_t others;
    (void)sigfillset(&others);
    (void)sigdelset(&others, signal);
    (void)pthread_sigmask(SIG_SETMASK, &others, &earlier);
    struct sigevent event {};
    event.sigev_notify = SIGEV_THREAD_ID;
    event.sigev_signo = signal;
    event._sigev_un._tid = gettid();
    const itimerspec interval = {{0, kTickNanoseconds}, {0, kTickNanoseconds}};
    isMade = timer_create(CLOCK_MONOTONIC, &event, &timer) == 0;
    isRunning = isMade && timer_settime(timer, 0, &interval, nullptr) == 0;
  }
  ~CTicks() {
    if (isMade) {
      (void)timer_delete(timer);
    }
    (void)pthread_sigmask(SIG_SETMASK, &earlier, nullptr);
  }
  CTicks(const CTicks&) = delete;
  CTicks& operator=(const CTicks&) = delete;

  bool Run() const { return isRunning; }

 private:
  sigset_t earlier;
  timer_t timer = nullptr;
  bool isMade = false;
  bool isRunning = false;
};

bool IsFull(int descriptor) {
  pollfd stream = {descriptor, POLLOUT, 0};
  return poll(&stream, 1, 0) == 0;
}

// The errno of the write, or 0.
int WriteWhileTicking(int descriptor, std::string_view text, ssize_t& written) {
  const int signal = TickSignal();
  if (signal == 0) {
    return EAGAIN;
  }
  const CTicks ticks(signal);
  if (!ticks.Run()) {
    return EAGAIN;
  }
  written = write(descriptor, text.data(), text.size());
  return written < 0 ? errno : 0;
}

}  // namespace

ssize_t TimedWrite(int descriptor, std::string_view text) {
  ssize_t written = -1;
  const int error = IsFull(descriptor) ? EAGAIN : WriteWhileTicking(descriptor, text, written);
  if (error != 0) {
    errno = error == EINTR ? EAGAIN : error;
  }
  return written;
}
