// SPDX-License-Identifier: MIT
#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <ctime>

#include "simulation/conformance/Row.h"
#include "simulation/conformance/Script.h"

namespace conformance {
namespace {

constexpr useconds_t kLong = 100'000'000;

struct Mutex {
  Mutex() { (void)pthread_mutex_init(&mutex, nullptr); }
  pthread_mutex_t mutex{};
};

void* Seven(void* argument) { return argument; }

void Joins(Bench& bench) {
  Mutex gate;
  (void)pthread_mutex_lock(&gate.mutex);
  pthread_t handle = 0;
  bench.Saw(ToldByResult("pthread_create", pthread_create(
                                               &handle, nullptr,
                                               [](void* held) {
                                                 auto* const mutex =
                                                     static_cast<pthread_mutex_t*>(held);
                                                 (void)pthread_mutex_lock(mutex);
                                                 (void)pthread_mutex_unlock(mutex);
                                                 return static_cast<void*>(nullptr);
                                               },
                                               &gate.mutex)));
  bench.Saw("running: " + ToldByResult("pthread_tryjoin_np", pthread_tryjoin_np(handle, nullptr)));
  (void)pthread_mutex_unlock(&gate.mutex);
  Until(bench, [&] { return pthread_tryjoin_np(handle, nullptr) == 0; });
  bench.Saw("ended: joined");
}

void GivesAResult(Bench& bench) {
  int seven = 7;
  pthread_t handle = 0;
  (void)pthread_create(&handle, nullptr, Seven, &seven);
  void* result = nullptr;
  Until(bench, [&] { return pthread_tryjoin_np(handle, &result) == 0; });
  bench.Saw(result == &seven ? "its result" : "another result");
}

void KnowsItself(Bench& bench) {
  pthread_t own = 0;
  Worker worker(bench, [&] { own = pthread_self(); });
  (void)worker.Ends();
  bench.Saw(pthread_equal(own, worker.Handle()) != 0 ? "the handle" : "another handle");
  bench.Saw(pthread_equal(own, pthread_self()) != 0 ? "main's" : "not main's");
}

void Detaches(Bench& bench) {
  volatile bool went = false;
  Worker worker(bench, [&] {
    (void)usleep(1000);
    went = true;
  });
  bench.Saw(ToldByResult("pthread_detach", pthread_detach(worker.Handle())));
  Until(bench, [&] { return went; });
  bench.Saw("it goes on");
}

struct UnwindingMark {
  explicit UnwindingMark(volatile bool& place) : mark(place) {}
  ~UnwindingMark() { mark = true; }
  UnwindingMark(const UnwindingMark&) = delete;
  UnwindingMark& operator=(const UnwindingMark&) = delete;
  volatile bool& mark;
};

void CancelsADetachedOne(Bench& bench) {
  volatile bool unwound = false;
  Worker worker(bench, [&] {
    const UnwindingMark mark(unwound);
    (void)usleep(kLong);
  });
  worker.AwaitIn("usleep");
  bench.Saw(ToldByResult("pthread_cancel", pthread_cancel(worker.Handle())));
  bench.Saw(ToldByResult("pthread_detach", pthread_detach(worker.Handle())));
  Until(bench, [&] { return unwound; });
  bench.Saw("unwound");
}

void CancelsAnEndedOne(Bench& bench) {
  Worker worker(bench, [] {});
  worker.AwaitEnd();
  bench.Saw(ToldByResult("pthread_cancel", pthread_cancel(worker.Handle())));
  bench.Saw(ToldByResult("pthread_kill", pthread_kill(worker.Handle(), SIGUSR1)));
  bench.Saw(worker.Ends());
}

void WaitsForAMutex(Bench& bench) {
  Mutex held;
  bench.Saw(ToldByResult("pthread_mutex_lock", pthread_mutex_lock(&held.mutex)));
  Worker worker(bench, [&] {
    (void)pthread_mutex_lock(&held.mutex);
    bench.Saw("the other has it");
    (void)pthread_mutex_unlock(&held.mutex);
  });
  worker.AwaitIn("pthread_mutex_lock");
  bench.Saw("one has it");
  const int unlocked = pthread_mutex_unlock(&held.mutex);
  (void)worker.Ends();
  bench.Saw(ToldByResult("pthread_mutex_unlock", unlocked));
  bench.Saw(ToldByResult("pthread_mutex_destroy", pthread_mutex_destroy(&held.mutex)));
}

void DestroysAHeldMutex(Bench& bench) {
  Mutex held;
  (void)pthread_mutex_lock(&held.mutex);
  bench.Saw(ToldByResult("pthread_mutex_destroy", pthread_mutex_destroy(&held.mutex)));
}

void HandlesWhileItWaits(Bench& bench) {
  Handle(SIGUSR1, Ignored);
  Mutex held;
  (void)pthread_mutex_lock(&held.mutex);
  Worker worker(bench, [&] {
    bench.Saw(ToldByResult("pthread_mutex_lock", pthread_mutex_lock(&held.mutex)));
    (void)pthread_mutex_unlock(&held.mutex);
  });
  worker.AwaitIn("pthread_mutex_lock");
  worker.IsInterruptedBy(SIGUSR1);
  worker.AwaitIn("pthread_mutex_lock");
  bench.Saw("handled, and it waits on");
  (void)pthread_mutex_unlock(&held.mutex);
  (void)worker.Ends();
}

void Sleeps(Bench& bench) {
  timespec began{};
  timespec ended{};
  (void)clock_gettime(CLOCK_MONOTONIC, &began);
  bench.Saw(Told("usleep", usleep(20'000)));
  (void)clock_gettime(CLOCK_MONOTONIC, &ended);
  const int64_t nanoseconds =
      int64_t{ended.tv_sec - began.tv_sec} * 1'000'000'000 + ended.tv_nsec - began.tv_nsec;
  bench.Saw(nanoseconds >= 20'000'000 ? "long enough" : "too short");
  timespec calendar{};
  bench.Saw(Told("clock_gettime", clock_gettime(CLOCK_REALTIME, &calendar)));
  bench.Saw(Told("CLOCK_BOOTTIME", clock_gettime(CLOCK_BOOTTIME, &calendar)));
}

}  // namespace

std::vector<Row> ThreadRows() {
  return {{"`pthread_tryjoin_np` of a thread that runs, and has ended", Joins},
          {"a thread's result", GivesAResult},
          {"`pthread_self`", KnowsItself},
          {"a detached thread", Detaches},
          {"a detached thread, cancelled", CancelsADetachedOne},
          {"`pthread_cancel` and `pthread_kill` of a thread that has ended", CancelsAnEndedOne},
          {"a mutex that another one holds", WaitsForAMutex},
          {"`pthread_mutex_destroy` of a mutex that is held", DestroysAHeldMutex},
          {"a signal under a `pthread_mutex_lock` that waits", HandlesWhileItWaits},
          {"`usleep` and the clocks", Sleeps}};
}

}  // namespace conformance
