// SPDX-License-Identifier: MIT
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>

#include "simulation/conformance/Row.h"
#include "simulation/conformance/Script.h"

namespace conformance {
namespace {

sockaddr_in Loopback(uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

std::string BindOf(int number, uint16_t port) {
  const sockaddr_in address = Loopback(port);
  return Told("bind", bind(number, reinterpret_cast<const sockaddr*>(&address), sizeof address));
}

std::string AcceptOf(int number) {
  return Accepted(number) >= 0 ? "accept a number" : Told("accept", -1);
}

void ListensAndAccepts(Bench& bench) {
  bench.Saw(bench.Connects(kPort) == nullptr ? "nobody listens" : "somebody listens");
  const int number = socket(AF_INET, SOCK_STREAM, 0);
  const int on = 1;
  bench.Saw(Told("setsockopt", setsockopt(number, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on)));
  bench.Saw(BindOf(number, kPort));
  bench.Saw(bench.Connects(kPort) == nullptr ? "nobody listens" : "somebody listens");
  bench.Saw({Told("listen", listen(number, 1)), PollOf(number)});
  const auto peer = bench.Connects(kPort);
  AwaitEvents(number, POLLIN);
  bench.Saw(PollOf(number));
  sockaddr_in from{};
  socklen_t size = sizeof from;
  bench.Saw(Told("accept", accept(number, reinterpret_cast<sockaddr*>(&from), &size)));
  bench.Saw(from.sin_addr.s_addr == htonl(INADDR_LOOPBACK) && size == sizeof from
                ? "from 127.0.0.1"
                : "from elsewhere");
}

void ListensTwice(Bench& bench) {
  const int one = Listening();
  const int other = socket(AF_INET, SOCK_STREAM, 0);
  const int on = 1;
  (void)setsockopt(other, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  bench.Saw(BindOf(other, kPort));
  bench.Saw(Told("close", close(one)));
  bench.Saw({BindOf(other, kPort), Told("listen", listen(other, 1))});
}

void ListensBehindAConnection(Bench& bench) {
  const int first = Listening();
  const auto peer = bench.Connects(kPort);
  const int connection = Accepted(first);
  (void)close(first);
  const int without = socket(AF_INET, SOCK_STREAM, 0);
  bench.Saw("without SO_REUSEADDR: " + BindOf(without, kPort));
  const int with = socket(AF_INET, SOCK_STREAM, 0);
  const int on = 1;
  (void)setsockopt(with, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  bench.Saw({"with it: " + BindOf(with, kPort), Told("listen", listen(with, 1))});
  peer->Sends("a");
  AwaitEvents(connection, POLLIN);
  bench.Saw("the connection: " + ReadOf(connection, 10));
}

void IsSomethingElse(Bench& bench) {
  const int fresh = socket(AF_INET, SOCK_STREAM, 0);
  char byte = 0;
  bench.Saw({AcceptOf(fresh), Told("recv", recv(fresh, &byte, 1, 0)),
             Told("send", send(fresh, "a", 1, MSG_NOSIGNAL))});
  bench.Saw({BindOf(fresh, kPort), BindOf(fresh, kPort)});
  const int on = 1;
  bench.Saw({"a pipe: " + Told("recv", recv(1, &byte, 1, 0)),
             Told("setsockopt", setsockopt(1, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on)),
             AcceptOf(1), BindOf(1, kPort), Told("listen", listen(1, 1))});
  bench.Saw({"no number: " + AcceptOf(kNotOpen), Told("recv", recv(kNotOpen, &byte, 1, 0)),
             Told("send", send(kNotOpen, "a", 1, 0)), Told("listen", listen(kNotOpen, 1))});
}

// Who waits tries again by itself: nothing is said of the queue's end.
void QueuesTwo(Bench& bench) {
  const int number = Listening();
  const auto one = bench.Connects(kPort);
  const auto two = bench.Connects(kPort);
  bench.Saw(one != nullptr && two != nullptr ? "two are taken" : "one is taken");
  bench.Saw(bench.HasRoomFor(kPort) ? "a third is taken" : "a third waits");
  bench.Saw(Accepted(number) >= 0 ? "one is accepted" : "none is accepted");
  bench.Saw(bench.HasRoomFor(kPort) ? "there is room again" : "there is none");
}

void TellsWhoConnects(Bench& bench) {
  constexpr in_addr_t kAnother = INADDR_LOOPBACK + 1;
  const int number = Listening();
  const auto peer = bench.Connects(kPort, kAnother);
  sockaddr_in from{};
  socklen_t size = sizeof from;
  bench.Saw(Told("accept", accept(number, reinterpret_cast<sockaddr*>(&from), &size)));
  bench.Saw(from.sin_addr.s_addr == htonl(kAnother) ? "from 127.0.0.2" : "from elsewhere");
}

void QueuesWhoLeaves(Bench& bench) {
  const int number = Listening();
  const auto peer = bench.Connects(kPort);
  peer->Sends("a");
  peer->Leaves();
  AwaitEvents(number, POLLIN);
  const int accepted = Accepted(number);
  AwaitEvents(accepted, POLLIN);
  char buffer[10] = {};
  bench.Saw(Told("recv", recv(accepted, buffer, sizeof buffer, 0)));
  bench.Saw(Told("recv", recv(accepted, buffer, sizeof buffer, 0)));
}

void QueuesWhoResets(Bench& bench) {
  const int number = Listening();
  bench.Connects(kPort)->Resets();
  AwaitEvents(number, POLLIN);
  const int accepted = Accepted(number);
  bench.Saw(accepted >= 0 ? "accept a number" : Told("accept", -1));
  char byte = 0;
  bench.Saw(Told("recv", recv(accepted, &byte, 1, 0)));
  bench.Saw(Told("recv", recv(accepted, &byte, 1, 0)));
}

void LeavesTheQueue(Bench& bench) {
  const int number = Listening();
  const auto peer = bench.Connects(kPort);
  AwaitEvents(number, POLLIN);
  (void)close(number);
  bench.Saw("the peer sees " + SeenBy(bench, *peer));
  bench.Saw(bench.Connects(kPort) == nullptr ? "nobody listens" : "somebody listens");
}

void IsInterruptedAccepting(Bench& bench) {
  Handle(SIGUSR1, Ignored);
  Handle(SIGUSR2, Ignored, SA_RESTART);
  const int number = Listening();
  Worker worker(bench, [&] {
    bench.Saw(AcceptOf(number));
    bench.Saw("with SA_RESTART: " + AcceptOf(number));
  });
  worker.AwaitIn("accept");
  worker.IsInterruptedBy(SIGUSR1);
  worker.AwaitIn("accept");
  worker.IsInterruptedBy(SIGUSR2);
  worker.AwaitIn("accept");
  const auto peer = bench.Connects(kPort);
  (void)worker.Ends();
}

void IsClosedUnderAnAccept(Bench& bench) {
  const int number = Listening();
  std::string accepted;
  Worker worker(bench, [&] { accepted = AcceptOf(number); });
  worker.AwaitIn("accept");
  bench.Saw(Told("close", close(number)));
  bench.Saw(bench.Connects(kPort) != nullptr ? "somebody listens" : "nobody listens");
  bench.Saw({worker.Ends(), accepted});
  bench.Saw(bench.Connects(kPort) == nullptr ? "nobody listens" : "somebody listens");
}

int closedByHandler = -1;

void CloseIt(int /*signal*/) { (void)close(closedByHandler); }

void ClosesInTheHandler(Bench& bench) {
  Handle(SIGUSR1, CloseIt);
  closedByHandler = Listening();
  Worker worker(bench, [&] { bench.Saw({AcceptOf(closedByHandler), AcceptOf(closedByHandler)}); });
  worker.AwaitIn("accept");
  (void)pthread_kill(worker.Handle(), SIGUSR1);
  bench.Saw(worker.Ends());
}

}  // namespace

std::vector<Row> ListenRows() {
  return {{"a socket from its making to `accept`", ListensAndAccepts},
          {"a port that another one listens on", ListensTwice},
          {"a port of which a connection is left", ListensBehindAConnection},
          {"a call on a socket or file that is not for it", IsSomethingElse},
          {"a backlog of 1", QueuesTwo},
          {"a peer from another address", TellsWhoConnects},
          {"`accept` of a peer that has left", QueuesWhoLeaves},
          {"`accept` of a peer that has reset", QueuesWhoResets},
          {"a peer in the queue of a socket that closes", LeavesTheQueue},
          {"`accept`, interrupted", IsInterruptedAccepting},
          {"`close` does not wake an `accept` that waits", IsClosedUnderAnAccept},
          {"a handler closes what `accept` waits on", ClosesInTheHandler}};
}

}  // namespace conformance
