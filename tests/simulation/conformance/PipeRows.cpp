// SPDX-License-Identifier: MIT
// Number 1, as the service's console is one.
#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <csignal>

#include "simulation/conformance/Row.h"
#include "simulation/conformance/Script.h"

namespace conformance {
namespace {

constexpr size_t kPage = 4096;
constexpr size_t kPages = 16;

std::string Bytes(size_t count) { return std::string(count, 'x'); }

// The same pipe, and a description of its own that does not wait.
int OpenedAgain() { return open("/proc/self/fd/1", O_WRONLY | O_NONBLOCK | O_CLOEXEC); }

std::string QueuedIn(int number) {
  int bytes = -1;
  (void)ioctl(number, FIONREAD, &bytes);
  return std::to_string(bytes) + " wait";
}

void FillsAPipe(Bench& bench) {
  const int own = OpenedAgain();
  bench.Saw({PollOf(own), WriteOf(own, Bytes(2 * kPage * kPages))});
  bench.Saw({QueuedIn(1), PollOf(own), WriteOf(own, "a")});
}

void TakesRoomByThePage(Bench& bench) {
  const int own = OpenedAgain();
  (void)WriteOf(own, Bytes(kPage * kPages));
  (void)bench.OutputTakes(kPage - 1);
  bench.Saw({QueuedIn(own), PollOf(own), WriteOf(own, "a")});
  (void)bench.OutputTakes(1);
  bench.Saw({PollOf(own), WriteOf(own, Bytes(kPage + 1)), WriteOf(own, "a")});
}

void WritesLittleWhole(Bench& bench) {
  const int own = OpenedAgain();
  (void)WriteOf(own, Bytes(kPage * kPages - 100));
  bench.Saw({PollOf(own), WriteOf(own, Bytes(101))});
  bench.Saw({WriteOf(own, Bytes(60)), WriteOf(own, Bytes(60)), WriteOf(own, Bytes(40)),
             WriteOf(own, "a")});
  bench.Saw(QueuedIn(own));
}

void LeavesRoomUnused(Bench& bench) {
  const int own = OpenedAgain();
  for (size_t i = 0; i < kPages; ++i) {
    (void)WriteOf(own, Bytes(3000));
  }
  bench.Saw({QueuedIn(own), WriteOf(own, Bytes(2000)), WriteOf(own, Bytes(1096))});
}

void AddsToTheLastPage(Bench& bench) {
  const int own = OpenedAgain();
  for (size_t i = 0; i < 3 * kPages; ++i) {
    (void)WriteOf(own, "ab");
  }
  bench.Saw({QueuedIn(own), PollOf(own)});
  (void)WriteOf(own, Bytes(kPage * kPages));
  bench.Saw({QueuedIn(own), PollOf(own)});
}

void WaitsUntilAllIsWritten(Bench& bench) {
  Worker worker(bench, [&] { bench.Saw(WriteOf(1, Bytes(3 * kPage * kPages))); });
  worker.AwaitIn("write");
  bench.Saw(QueuedIn(1));
  for (size_t taken = 0; taken < 3 * kPage * kPages;) {
    taken += bench.OutputTakes(kPage).size();
  }
  bench.Saw(worker.Ends());
}

void IsInterruptedInAWrite(Bench& bench) {
  Handle(SIGUSR1, Ignored);
  for (const size_t count : {kPage * kPages + 1, size_t{1}}) {
    Worker worker(bench, [&] { bench.Saw(WriteOf(1, Bytes(count))); });
    worker.AwaitIn("write");
    (void)pthread_kill(worker.Handle(), SIGUSR1);
    (void)worker.Ends();
  }
}

void WritesToNobody(Bench& bench) {
  (void)std::signal(SIGPIPE, SIG_IGN);
  bench.OutputReaderLeaves();
  bench.Saw({PollOf(1), WriteOf(1, "abc")});
}

void IsEndedByAPipe(Bench& bench) {
  bench.OutputReaderLeaves();
  bench.Saw(WriteOf(1, "abc"));
}

void IsLeftInAWrite(Bench& bench) {
  (void)std::signal(SIGPIPE, SIG_IGN);
  Worker worker(bench, [&] {
    bench.Saw(WriteOf(1, Bytes(kPage * kPages + 1)));
    bench.Saw(WriteOf(1, "a"));
  });
  worker.AwaitIn("write");
  bench.OutputReaderLeaves();
  (void)worker.Ends();
}

void ReadsAnEndForWriting(Bench& bench) {
  bench.Saw(ReadOf(1, 1));
  bench.Saw(ReadOf(OpenedAgain(), 1));
}

void AwaitsRoom(Bench& bench) {
  pollfd entry = {1, POLLOUT, 0};
  (void)WriteOf(1, Bytes(kPage * kPages));
  bench.Saw(Told("poll", poll(&entry, 1, 20)));
  Worker worker(bench, [&] { bench.Saw(Told("poll", poll(&entry, 1, -1))); });
  worker.AwaitIn("poll");
  (void)bench.OutputTakes(kPage);
  bench.Saw(worker.Ends());
}

}  // namespace

std::vector<Row> PipeRows() {
  return {
      {"a pipe is filled", FillsAPipe},
      {"a full pipe has room when a page is free", TakesRoomByThePage},
      {"up to a page goes into a pipe whole or not at all", WritesLittleWhole},
      {"pages that are not full leave less room", LeavesRoomUnused},
      {"little texts share a page", AddsToTheLastPage},
      {"`write` to a full pipe waits until all is written", WaitsUntilAllIsWritten},
      {"`write` to a full pipe, interrupted behind a part, and before any", IsInterruptedInAWrite},
      {"`write` to a pipe without a reader", WritesToNobody},
      {"the same where SIGPIPE is not ignored", IsEndedByAPipe},
      {"the reader leaves under a `write` that waits", IsLeftInAWrite},
      {"`read` from an end for writing", ReadsAnEndForWriting},
      {"`poll` waits for room in a pipe", AwaitsRoom}};
}

}  // namespace conformance
