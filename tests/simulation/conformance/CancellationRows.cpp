// SPDX-License-Identifier: MIT
// A cancellation before a call, in it, and when it has done its work and has not returned yet.
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "simulation/conformance/Row.h"
#include "simulation/conformance/Script.h"

namespace conformance {
namespace {

constexpr useconds_t kVeryLong = 100'000'000;

// What calls can be made on: a line, a connection and a socket with a peer in its queue.
struct Site {
  explicit Site(Bench& wanted)
      : bench(wanted),
        device(bench.PlugsIn()),
        line(OpenRaw(*device)),
        listening(Listening()),
        peer(bench.Connects(kPort)),
        connection(Accepted(listening)) {}

  // Reads wait until something comes.
  void Waits() const {
    termios attributes{};
    (void)tcgetattr(line, &attributes);
    attributes.c_cc[VMIN] = 1;
    (void)tcsetattr(line, TCSANOW, &attributes);
  }

  // Something is there for each call.
  void IsReady() {
    device->Sends("abc");
    peer->Sends("a");
    queued = bench.Connects(kPort);
    AwaitEvents(line, POLLIN);
    AwaitEvents(connection, POLLIN);
    AwaitEvents(listening, POLLIN);
    numbersBefore = bench.OpenNumbers();
  }

  std::string Numbers() const {
    return std::to_string(bench.OpenNumbers() - numbersBefore) + " numbers more";
  }

  Bench& bench;
  std::unique_ptr<Device> device;
  int line;
  int listening;
  std::unique_ptr<Peer> peer;
  int connection;
  std::unique_ptr<Peer> queued;
  int numbersBefore = 0;
};

// A call that finds all that it needs, one that waits for ever, and what is to be seen afterwards.
struct Deed {
  const char* call;
  void (*act)(const Site&);
  void (*wait)(const Site&);  // null: it never waits
  std::string (*look)(const Site&);
};

std::string LooksAtNumbers(const Site& site) { return site.Numbers(); }

std::string LooksAtNothing(const Site& /*site*/) { return ""; }

std::string LooksAtInput(const Site& site) { return "then " + ReadOf(site.line, 10); }

std::string LooksAtReceived(const Site& site) {
  char buffer[10];
  return Told("then recv", recv(site.connection, buffer, sizeof buffer, MSG_DONTWAIT));
}

// Behind what the call has written or not.
std::string LooksAtOutput(const Site& site) {
  Drop(write(site.line, ".", 1));
  std::string text;
  Until(site.bench, [&] { return (text += site.device->Takes()).ends_with("."); });
  return "the device takes '" + text + "'";
}

std::string LooksAtSent(const Site& site) {
  (void)send(site.connection, ".", 1, 0);
  std::string text;
  Until(site.bench, [&] { return (text += site.peer->Takes()).ends_with("."); });
  return "the peer takes '" + text + "'";
}

void Opens(const Site& /*site*/) { (void)open("/dev/null", O_RDWR); }
void OpensAStream(const Site& /*site*/) { Drop(std::fopen("/tmp/deviceinfo.txt", "re")); }
void ClosesOne(const Site& /*site*/) { (void)close(0); }
void Polls(const Site& site) { AwaitEvents(site.line, POLLIN); }
void PollsNothing(const Site& /*site*/) { (void)poll(nullptr, 0, -1); }
void SleepsShortly(const Site& /*site*/) { (void)usleep(1); }
void SleepsLong(const Site& /*site*/) { (void)usleep(kVeryLong); }
void Accepts(const Site& site) { (void)Accepted(site.listening); }
void Writes(const Site& site) { Drop(write(site.line, "ab", 2)); }
void SendsSome(const Site& site) { (void)send(site.connection, "ab", 2, 0); }
void WritesMuch(const Site& site) { Drop(write(site.line, Endless().data(), Endless().size())); }

void SendsMuch(const Site& site) {
  (void)send(site.connection, Endless().data(), Endless().size(), 0);
}

void Reads(const Site& site) {
  char buffer[10];
  Drop(read(site.line, buffer, sizeof buffer));
}

void Receives(const Site& site) {
  char buffer[10];
  (void)recv(site.connection, buffer, sizeof buffer, 0);
}

constexpr Deed kDeeds[] = {
    {"open", Opens, nullptr, LooksAtNumbers},
    {"close", ClosesOne, nullptr, LooksAtNumbers},
    {"read", Reads, Reads, LooksAtInput},
    {"write", Writes, WritesMuch, LooksAtOutput},
    {"poll", Polls, PollsNothing, LooksAtNothing},
    {"usleep", SleepsShortly, SleepsLong, LooksAtNothing},
    {"accept", Accepts, Accepts, LooksAtNumbers},
    {"recv", Receives, Receives, LooksAtReceived},
    {"send", SendsSome, SendsMuch, LooksAtSent},
    {"fopen", OpensAStream, nullptr, LooksAtNothing},
};

void CancelsItself() {
  (void)pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
  (void)pthread_cancel(pthread_self());
  (void)pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, nullptr);
}

void Sees(const Site& site, Worker& worker, const Deed& deed) {
  site.bench.Saw(worker.Ends());
  if (const std::string seen = deed.look(site); !seen.empty()) {
    site.bench.Saw(seen);
  }
}

void CancelsBefore(Bench& bench, const Deed& deed) {
  Site site(bench);
  site.IsReady();
  Worker worker(bench, [&] {
    CancelsItself();
    deed.act(site);
  });
  Sees(site, worker, deed);
}

void CancelsIn(Bench& bench, const Deed& deed) {
  const Site site(bench);
  site.Waits();
  Worker worker(bench, [&] { deed.wait(site); });
  worker.AwaitIn(deed.call);
  (void)pthread_cancel(worker.Handle());
  bench.Saw(worker.Ends());
}

void CancelsOnTheWayOut(Bench& bench, const Deed& deed) {
  bench.Puts("/tmp/deviceinfo.txt", "text");
  Site site(bench);
  site.IsReady();
  Worker worker(bench, [&] {
    bench.HoldsAfter(deed.call);
    deed.act(site);
  });
  Until(bench, [&] { return bench.HasHeld(); });
  (void)pthread_cancel(worker.Handle());
  bench.LetsGo();
  Sees(site, worker, deed);
}

// All the others that the service makes.
void CallsThatAreNoPoints(const Site& site) {
  termios attributes{};
  struct stat status {};
  struct sigaction action {};
  timespec now{};
  int off = 0;
  (void)tcgetattr(site.line, &attributes);
  (void)tcsetattr(site.line, TCSANOW, &attributes);
  (void)tcflush(site.line, TCIFLUSH);
  (void)ioctl(site.line, TIOCMBIC, &off);
  (void)isatty(site.line);
  (void)fcntl(site.line, F_SETFD, FD_CLOEXEC);
  (void)dup3(site.line, 2, O_CLOEXEC);
  (void)fstat(site.line, &status);
  (void)stat("/tmp/nothing", &status);
  (void)unlink("/tmp/nothing");
  (void)setsockopt(socket(AF_INET, SOCK_STREAM, 0), SOL_SOCKET, SO_REUSEADDR, &off, sizeof off);
  (void)Listening(kPort + 1);
  (void)sigaction(SIGUSR1, nullptr, &action);
  (void)std::signal(SIGUSR1, SIG_IGN);
  ChangeMask(SIG_BLOCK, SIGUSR1);
  (void)pthread_kill(pthread_self(), SIGUSR1);
  (void)clock_gettime(CLOCK_MONOTONIC, &now);
  Drop(getenv("PATH"));
  (void)getsid(0);
  pthread_mutex_t mutex{};
  (void)pthread_mutex_init(&mutex, nullptr);
  (void)pthread_mutex_lock(&mutex);
  (void)pthread_mutex_unlock(&mutex);
  (void)pthread_mutex_destroy(&mutex);
}

void PassesCallsThatAreNoPoints(Bench& bench) {
  const Site site(bench);
  Worker worker(bench, [&] {
    CancelsItself();
    CallsThatAreNoPoints(site);
    bench.Saw("they do their work");
    (void)usleep(0);
    bench.Saw("nor is usleep one");
  });
  bench.Saw(worker.Ends());
}

void WaitsForAMutexCancelled(Bench& bench) {
  pthread_mutex_t mutex{};
  (void)pthread_mutex_init(&mutex, nullptr);
  (void)pthread_mutex_lock(&mutex);
  Worker worker(bench, [&] {
    (void)pthread_mutex_lock(&mutex);
    (void)pthread_mutex_unlock(&mutex);
    bench.Saw("has had it");
    (void)usleep(0);
  });
  worker.AwaitIn("pthread_mutex_lock");
  (void)pthread_cancel(worker.Handle());
  (void)pthread_mutex_unlock(&mutex);
  bench.Saw(worker.Ends());
}

void IsShielded(Bench& bench) {
  const Site site(bench);
  Worker worker(bench, [&] {
    int earlier = -1;
    (void)pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &earlier);
    bench.Saw(earlier == PTHREAD_CANCEL_ENABLE ? "was enabled" : "was disabled");
    Receives(site);
    bench.Saw(Told("shielded: system", std::system("rm /tmp/deviceinfo.txt")));
    (void)pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, &earlier);
    bench.Saw(earlier == PTHREAD_CANCEL_ENABLE ? "was enabled" : "was disabled");
    (void)usleep(0);
    bench.Saw("goes on");
  });
  worker.AwaitIn("recv");
  (void)pthread_cancel(worker.Handle());
  site.peer->Sends("a");
  bench.Saw(worker.Ends());
}

struct Unwinding {
  explicit Unwinding(Bench& wanted) : bench(wanted) {}
  ~Unwinding() { bench.Saw("in a destructor: " + Told("usleep", usleep(1000))); }
  Unwinding(const Unwinding&) = delete;
  Unwinding& operator=(const Unwinding&) = delete;
  Bench& bench;
};

void Unwinds(Bench& bench) {
  Worker worker(bench, [&] {
    const Unwinding outer(bench);
    try {
      (void)usleep(kVeryLong);
    } catch (...) {
      bench.Saw("caught and thrown on");
      throw;
    }
  });
  worker.AwaitIn("usleep");
  (void)pthread_cancel(worker.Handle());
  bench.Saw(worker.Ends());
}

}  // namespace

std::vector<Row> CancellationRows() {
  std::vector<Row> rows;
  const auto add = [&rows](const Deed& deed, const char* moment, auto play) {
    rows.push_back({"`" + std::string(deed.call) + "`, cancelled " + moment,
                    [&deed, play](Bench& bench) { play(bench, deed); }});
  };
  for (const Deed& deed : kDeeds) {
    add(deed, "before", CancelsBefore);
    if (deed.wait != nullptr) {
      add(deed, "as it waits", CancelsIn);
    }
    add(deed, "when its work is done", CancelsOnTheWayOut);
  }
  rows.push_back({"calls at which nothing is cancelled", PassesCallsThatAreNoPoints});
  rows.push_back({"`pthread_mutex_lock`, cancelled as it waits", WaitsForAMutexCancelled});
  rows.push_back({"`pthread_setcancelstate`: a shield", IsShielded});
  rows.push_back({"a cancelled thread is unwound", Unwinds});
  return rows;
}

}  // namespace conformance
