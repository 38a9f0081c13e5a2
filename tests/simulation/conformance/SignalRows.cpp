// SPDX-License-Identifier: MIT
#include <poll.h>
#include <pthread.h>
#include <unistd.h>

#include <csignal>
#include <string>
#include <utility>

#include "simulation/conformance/Row.h"
#include "simulation/conformance/Script.h"

namespace conformance {
namespace {

constexpr useconds_t kForLong = 100'000'000;

// What the handlers did, in order. One thread at a time handles something in each row.
std::string handled;
pthread_t handledBy = 0;

void Note(int signal) {
  handled += signal == SIGUSR1 ? "1" : "2";
  handledBy = pthread_self();
}

std::string TakeNotes() { return "handled '" + std::exchange(handled, {}) + "'"; }

void SendsToItself(Bench& bench) {
  Handle(SIGUSR1, Note);
  bench.Saw({ToldByResult("pthread_kill", pthread_kill(pthread_self(), SIGUSR1)), TakeNotes()});
  bench.Signals(SIGUSR1);
  bench.Saw("to the process: " + TakeNotes());
}

void HoldsAndLetsGo(Bench& bench) {
  Handle(SIGUSR1, Note);
  Handle(SIGUSR2, Note);
  ChangeMask(SIG_BLOCK, SIGUSR1);
  ChangeMask(SIG_BLOCK, SIGUSR2);
  (void)pthread_kill(pthread_self(), SIGUSR2);
  (void)pthread_kill(pthread_self(), SIGUSR1);
  (void)pthread_kill(pthread_self(), SIGUSR1);
  bench.Signals(SIGUSR1);
  bench.Saw("held: " + TakeNotes());
  ChangeMask(SIG_UNBLOCK, SIGUSR1);
  bench.Saw("1 let go, sent twice to the thread and once to the process: " + TakeNotes());
  ChangeMask(SIG_UNBLOCK, SIGUSR2);
  bench.Saw("2 let go: " + TakeNotes());
}

// The later one interrupts the earlier one's handler before it has begun.
void LetsGoTogether(Bench& bench) {
  Handle(SIGUSR1, Note);
  Handle(SIGUSR2, Note);
  sigset_t both;
  (void)sigemptyset(&both);
  (void)sigaddset(&both, SIGUSR1);
  (void)sigaddset(&both, SIGUSR2);
  (void)pthread_sigmask(SIG_BLOCK, &both, nullptr);
  (void)pthread_kill(pthread_self(), SIGUSR1);
  (void)pthread_kill(pthread_self(), SIGUSR2);
  (void)pthread_sigmask(SIG_UNBLOCK, &both, nullptr);
  bench.Saw("both sent to the thread: " + TakeNotes());
  (void)pthread_sigmask(SIG_BLOCK, &both, nullptr);
  (void)pthread_kill(pthread_self(), SIGUSR2);
  bench.Signals(SIGUSR1);
  (void)pthread_sigmask(SIG_UNBLOCK, &both, nullptr);
  bench.Saw("2 to the thread, 1 to the process: " + TakeNotes());
}

void MergesWhatIsPending(Bench& bench) {
  Handle(SIGUSR1, Note);
  ChangeMask(SIG_BLOCK, SIGUSR1);
  bench.Signals(SIGUSR1);
  bench.Signals(SIGUSR1);
  ChangeMask(SIG_UNBLOCK, SIGUSR1);
  bench.Saw("to the process: " + TakeNotes());
}

void TellsTheMask(Bench& bench) {
  sigset_t earlier;
  sigset_t all;
  (void)sigfillset(&all);
  (void)sigemptyset(&earlier);
  ChangeMask(SIG_BLOCK, SIGUSR1);
  bench.Saw(ToldByResult("pthread_sigmask", pthread_sigmask(SIG_SETMASK, &all, &earlier)));
  bench.Saw(sigismember(&earlier, SIGUSR1) == 1 && sigismember(&earlier, SIGUSR2) == 0
                ? "the earlier mask"
                : "another mask");
  (void)pthread_sigmask(SIG_SETMASK, nullptr, &earlier);
  bench.Saw(sigismember(&earlier, SIGTERM) == 1 ? "SIGTERM is held" : "SIGTERM is let in");
  bench.Saw(sigismember(&earlier, SIGKILL) == 1 ? "SIGKILL is held" : "SIGKILL is let in");
  Worker worker(bench, [&] { (void)pthread_sigmask(SIG_SETMASK, nullptr, &earlier); });
  (void)worker.Ends();
  bench.Saw(sigismember(&earlier, SIGTERM) == 1 ? "a new thread has it" : "a new thread has none");
}

void InterruptTheOther(int /*signal*/) {
  handled += "(";
  (void)pthread_kill(pthread_self(), SIGUSR2);
  handled += ")";
}

void HandlesWithinAHandler(Bench& bench) {
  Handle(SIGUSR2, Note);
  Handle(SIGUSR1, InterruptTheOther);
  (void)pthread_kill(pthread_self(), SIGUSR1);
  bench.Saw("no mask: " + TakeNotes());
  Handle(SIGUSR1, InterruptTheOther, 0, SIGUSR2);
  (void)pthread_kill(pthread_self(), SIGUSR1);
  bench.Saw("the other one in its mask: " + TakeNotes());
}

void RepeatOnce(int signal) {
  handled += "(";
  if (handled.size() < 3) {
    (void)pthread_kill(pthread_self(), signal);
  }
  handled += ")";
}

void HandlesItselfLater(Bench& bench) {
  Handle(SIGUSR1, RepeatOnce);
  (void)pthread_kill(pthread_self(), SIGUSR1);
  bench.Saw(TakeNotes());
}

void TellsTheAction(Bench& bench) {
  Handle(SIGUSR1, Note, SA_RESTART, SIGUSR2);
  struct sigaction found {};
  bench.Saw(Told("sigaction", sigaction(SIGUSR1, nullptr, &found)));
  bench.Saw(found.sa_handler == Note ? "its handler" : "another handler");
  bench.Saw(sigismember(&found.sa_mask, SIGUSR2) == 1 ? "its mask" : "another mask");
  bench.Saw((found.sa_flags & SA_RESTART) != 0 ? "SA_RESTART" : "no SA_RESTART");
  bench.Saw(std::signal(SIGUSR1, SIG_IGN) == Note ? "signal tells the earlier one"
                                                  : "signal tells another one");
  bench.Saw(std::signal(SIGUSR1, Note) == SIG_IGN ? "and SIG_IGN" : "and another one");
}

void IgnoresASignal(Bench& bench) {
  (void)std::signal(SIGUSR1, SIG_IGN);
  bench.Signals(SIGUSR1);
  (void)pthread_kill(pthread_self(), SIGUSR1);
  Handle(SIGUSR1, Note);
  bench.Saw("sent when ignored: " + TakeNotes());
  ChangeMask(SIG_BLOCK, SIGUSR1);
  bench.Signals(SIGUSR1);
  (void)pthread_kill(pthread_self(), SIGUSR1);
  (void)std::signal(SIGUSR1, SIG_IGN);
  Handle(SIGUSR1, Note);
  ChangeMask(SIG_UNBLOCK, SIGUSR1);
  bench.Saw("ignored when it is held: " + TakeNotes());
  ChangeMask(SIG_BLOCK, SIGUSR1);
  (void)std::signal(SIGUSR1, SIG_IGN);
  (void)pthread_kill(pthread_self(), SIGUSR1);
  Handle(SIGUSR1, Note);
  ChangeMask(SIG_UNBLOCK, SIGUSR1);
  bench.Saw("sent when held and ignored: " + TakeNotes());
}

void LandsWhereItIsLetIn(Bench& bench) {
  Handle(SIGUSR1, Note);
  Worker worker(bench, [&] { bench.Saw(Told("usleep", usleep(kForLong))); });
  worker.AwaitIn("usleep");
  ChangeMask(SIG_BLOCK, SIGUSR1);
  bench.Signals(SIGUSR1);
  (void)worker.Ends();
  bench.Saw(TakeNotes());
  bench.Saw(pthread_equal(handledBy, worker.Handle()) != 0 ? "by the other thread" : "by main");
}

void StaysWithItsThread(Bench& bench) {
  Handle(SIGUSR1, Note);
  ChangeMask(SIG_BLOCK, SIGUSR1);
  Worker worker(bench, [&] {
    ChangeMask(SIG_UNBLOCK, SIGUSR1);
    (void)usleep(1000);
  });
  (void)pthread_kill(pthread_self(), SIGUSR1);
  (void)worker.Ends();
  bench.Saw("held by its thread, let in by another: " + TakeNotes());
  ChangeMask(SIG_UNBLOCK, SIGUSR1);
  bench.Saw("let go: " + TakeNotes());
}

void InterruptsASleep(Bench& bench) {
  Handle(SIGUSR1, Note);
  Handle(SIGUSR2, Note, SA_RESTART);
  for (const int signal : {SIGUSR1, SIGUSR2}) {
    Worker worker(bench, [&] { bench.Saw(Told("usleep", usleep(kForLong))); });
    worker.AwaitIn("usleep");
    (void)pthread_kill(worker.Handle(), signal);
    (void)worker.Ends();
  }
}

void InterruptsAPoll(Bench& bench) {
  Handle(SIGUSR1, Note);
  Handle(SIGUSR2, Note, SA_RESTART);
  for (const int signal : {SIGUSR1, SIGUSR2}) {
    Worker worker(bench, [&] { bench.Saw(Told("poll", poll(nullptr, 0, -1))); });
    worker.AwaitIn("poll");
    (void)pthread_kill(worker.Handle(), signal);
    (void)worker.Ends();
  }
}

// Sleeps until the signal has been sent, or comes.
std::string SleepsThrough(const volatile bool& wasSent) {
  std::string slept;
  do {
    slept = Told("usleep", usleep(20'000));
  } while (slept == "usleep 0" && !wasSent);
  return slept;
}

void InterruptsNothingWhenHeld(Bench& bench) {
  Handle(SIGUSR1, Note);
  volatile bool wasSent = false;
  Worker worker(bench, [&] {
    ChangeMask(SIG_BLOCK, SIGUSR1);
    bench.Saw(SleepsThrough(wasSent));
    ChangeMask(SIG_UNBLOCK, SIGUSR1);
    bench.Saw("let go: " + TakeNotes());
  });
  worker.AwaitIn("usleep");
  (void)pthread_kill(worker.Handle(), SIGUSR1);
  wasSent = true;
  (void)worker.Ends();
}

void IgnoredInterruptsNothing(Bench& bench) {
  (void)std::signal(SIGUSR1, SIG_IGN);
  volatile bool wasSent = false;
  Worker worker(bench, [&] { bench.Saw(SleepsThrough(wasSent)); });
  worker.AwaitIn("usleep");
  (void)pthread_kill(worker.Handle(), SIGUSR1);
  wasSent = true;
  (void)worker.Ends();
}

}  // namespace

std::vector<Row> SignalRows() {
  return {{"a signal to itself, to the process", SendsToItself},
          {"signals held and let go", HoldsAndLetsGo},
          {"two signals let go together", LetsGoTogether},
          {"the same signal twice", MergesWhatIsPending},
          {"`pthread_sigmask`", TellsTheMask},
          {"a signal inside another one's handler", HandlesWithinAHandler},
          {"a signal inside its own handler", HandlesItselfLater},
          {"`sigaction` and `signal` tell the earlier action", TellsTheAction},
          {"a signal that is ignored", IgnoresASignal},
          {"a signal to the process, held by main", LandsWhereItIsLetIn},
          {"a signal to a thread that holds it", StaysWithItsThread},
          {"`usleep`, interrupted: without SA_RESTART, and with", InterruptsASleep},
          {"`poll`, interrupted: without SA_RESTART, and with", InterruptsAPoll},
          {"`usleep` and a signal that is held", InterruptsNothingWhenHeld},
          {"`usleep` and a signal that is ignored", IgnoredInterruptsNothing}};
}

}  // namespace conformance
