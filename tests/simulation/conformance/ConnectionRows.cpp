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

// A connection, and its far side.
struct Link {
  explicit Link(Bench& bench)
      : listening(Listening()), peer(bench.Connects(kPort)), number(Accepted(listening)) {}

  std::string Recv(size_t capacity, int flags = 0) const {
    std::string buffer(capacity, '\0');
    const ssize_t count = recv(number, buffer.data(), capacity, flags);
    const std::string text = Told("recv", count);
    return count > 0 ? text + " '" + buffer.substr(0, static_cast<size_t>(count)) + "'" : text;
  }

  // TCP may bring them in pieces.
  std::string RecvAll(size_t count) const {
    std::string whole;
    while (whole.size() < count) {
      char buffer[100];
      const ssize_t more = recv(number, buffer, std::min(sizeof buffer, count - whole.size()), 0);
      if (more < 1) {
        return "'" + whole + "' and " + Told("recv", more);
      }
      whole.append(buffer, static_cast<size_t>(more));
    }
    return "recv '" + whole + "'";
  }

  std::string Send(std::string_view bytes, int flags = 0) const {
    return Told("send", send(number, bytes.data(), bytes.size(), flags));
  }

  std::string SendPart(int flags = 0) const {
    const ssize_t sent = send(number, Endless().data(), Endless().size(), flags);
    return sent > 0 && sent < static_cast<ssize_t>(Endless().size()) ? "send a part"
                                                                     : Told("send", sent);
  }

  const int listening;
  std::unique_ptr<Peer> peer;
  int number = -1;
};

void SpeaksBothWays(Bench& bench) {
  const Link link(bench);
  bench.Saw({PollOf(link.number), link.Recv(10, MSG_DONTWAIT)});
  link.peer->Sends("abc");
  AwaitEvents(link.number, POLLIN);
  bench.Saw({PollOf(link.number), link.RecvAll(1), link.RecvAll(2)});
  bench.Saw({link.Send("defg"), "the peer takes '" + TakesAll(bench, *link.peer, 4) + "'"});
  bench.Saw("the peer sees " + link.peer->Sees());
}

void IsHalfClosed(Bench& bench) {
  const Link link(bench);
  link.peer->Sends("abc");
  link.peer->Finishes();
  bench.Saw({link.RecvAll(3), link.Recv(10), link.Recv(10)});
  bench.Saw(PollOf(link.number));
  bench.Saw({link.Send("de"), link.Send("fg")});
  bench.Saw("the peer takes '" + TakesAll(bench, *link.peer, 4) + "'");
}

void HasNoPeerAnyMore(Bench& bench) {
  (void)std::signal(SIGPIPE, SIG_IGN);
  const Link link(bench);
  link.peer->Leaves();
  AwaitEvents(link.number, POLLIN);
  bench.Saw({link.Recv(10), link.Send("a")});
  AwaitEvents(link.number, 0);  // the answer to what was sent
  bench.Saw({PollOf(link.number), link.Send("b"), link.Send("c"), link.Recv(10)});
}

void IsReset(Bench& bench) {
  (void)std::signal(SIGPIPE, SIG_IGN);
  const Link link(bench);
  link.peer->Resets();
  AwaitEvents(link.number, 0);
  bench.Saw({PollOf(link.number), link.Recv(10), link.Recv(10), link.Send("a")});
}

void SendsToWhoHasReset(Bench& bench) {
  (void)std::signal(SIGPIPE, SIG_IGN);
  const Link link(bench);
  link.peer->Resets();
  AwaitEvents(link.number, 0);
  bench.Saw({link.Send("a"), link.Send("b"), link.Recv(10)});
}

void IsResetBehindBytes(Bench& bench) {
  const Link link(bench);
  link.peer->Sends("a");
  AwaitEvents(link.number, POLLIN);
  link.peer->Resets();
  AwaitEvents(link.number, 0);
  bench.Saw({link.Recv(10), link.Recv(10), link.Recv(10)});
}

void IsLeftUnread(Bench& bench) {
  const Link link(bench);
  (void)link.Send("abc");
  (void)SeenBy(bench, *link.peer);
  link.peer->Leaves();
  AwaitEvents(link.number, 0);
  bench.Saw({PollOf(link.number), link.Recv(10)});
}

void IsEndedByALink(Bench& bench) {
  const Link link(bench);
  link.peer->Resets();
  AwaitEvents(link.number, 0);
  bench.Saw({link.Send("a", MSG_NOSIGNAL), link.Send("a", MSG_NOSIGNAL)});
  bench.Saw(link.Send("a"));
}

void Closes(Bench& bench) {
  const Link link(bench);
  (void)link.Send("abc");
  (void)close(link.number);
  bench.Saw({"the peer takes '" + TakesAll(bench, *link.peer, 3) + "'",
             "sees " + SeenBy(bench, *link.peer)});
}

void ClosesUnread(Bench& bench) {
  const Link link(bench);
  (void)link.Send("abc");
  link.peer->Sends("def");
  AwaitEvents(link.number, POLLIN);
  (void)close(link.number);
  bench.Saw({"the peer takes '" + TakesAll(bench, *link.peer, 3) + "'",
             "sees " + SeenBy(bench, *link.peer)});
}

void IsClosedUnderARecv(Bench& bench) {
  const Link link(bench);
  Worker worker(bench, [&] { bench.Saw(link.Recv(10)); });
  worker.AwaitIn("recv");
  bench.Saw(Told("close", close(link.number)));
  link.peer->Sends("a");
  bench.Saw(worker.Ends());
  bench.Saw("the peer sees " + SeenBy(bench, *link.peer));
}

void IsClosedUnderASend(Bench& bench) {
  const Link link(bench);
  std::string sent;
  Worker worker(bench, [&] { sent = link.Send(Endless()); });
  worker.AwaitIn("send");
  bench.Saw(Told("close", close(link.number)));
  bench.Saw("the peer takes " +
            std::to_string(TakesAll(bench, *link.peer, Endless().size()).size()));
  bench.Saw({worker.Ends(), sent, "the peer sees " + SeenBy(bench, *link.peer)});
}

void IsInterruptedReceiving(Bench& bench) {
  Handle(SIGUSR1, Ignored);
  Handle(SIGUSR2, Ignored, SA_RESTART);
  const Link link(bench);
  Worker worker(bench, [&] {
    bench.Saw(link.Recv(10));
    bench.Saw("with SA_RESTART: " + link.Recv(10));
  });
  worker.AwaitIn("recv");
  worker.IsInterruptedBy(SIGUSR1);
  worker.AwaitIn("recv");
  worker.IsInterruptedBy(SIGUSR2);
  worker.AwaitIn("recv");
  link.peer->Sends("a");
  (void)worker.Ends();
}

void FloodsAPeer(Bench& bench) {
  const Link link(bench);
  Worker worker(bench, [&] { bench.Saw(link.Send(Endless())); });
  worker.AwaitIn("send");
  bench.Saw("the peer takes " +
            std::to_string(TakesAll(bench, *link.peer, Endless().size()).size()));
  bench.Saw(worker.Ends());
}

// A far end that moves together what it has finds room for a little more now and then.
void FloodsWithoutWaiting(Bench& bench) {
  const Link link(bench);
  bench.Saw(link.SendPart(MSG_DONTWAIT));
  std::string told;
  Until(bench, [&] { return (told = link.Send("a", MSG_DONTWAIT)) != "send 1"; });
  bench.Saw(told);
}

std::string InterruptedSend(Bench& bench, const Link& link) {
  std::string told;
  Worker worker(bench, [&] { told = link.SendPart(); });
  worker.AwaitIn("send");
  (void)pthread_kill(worker.Handle(), SIGUSR1);
  (void)worker.Ends();
  return told;
}

// Room that is found again is filled first.
void IsInterruptedSending(Bench& bench) {
  Handle(SIGUSR1, Ignored);
  const Link link(bench);
  const std::string part = InterruptedSend(bench, link);
  std::string behind = part;
  while (behind == "send a part") {
    behind = InterruptedSend(bench, link);
  }
  bench.Saw({part, behind});
}

void IsResetUnderASend(Bench& bench) {
  (void)std::signal(SIGPIPE, SIG_IGN);
  const Link link(bench);
  Worker worker(bench, [&] { bench.Saw({link.SendPart(), link.Send("a")}); });
  worker.AwaitIn("send");
  link.peer->Resets();
  bench.Saw({worker.Ends(), link.Send("a")});
}

void IsResetUnderARecv(Bench& bench) {
  const Link link(bench);
  Worker worker(bench, [&] { bench.Saw({link.Recv(10), link.Recv(10)}); });
  worker.AwaitIn("recv");
  link.peer->Resets();
  bench.Saw(worker.Ends());
}

void IsFinishedUnderARecv(Bench& bench) {
  const Link link(bench);
  Worker worker(bench, [&] { bench.Saw(link.Recv(10)); });
  worker.AwaitIn("recv");
  link.peer->Finishes();
  bench.Saw(worker.Ends());
}

}  // namespace

std::vector<Row> ConnectionRows() {
  return {{"a connection, both ways", SpeaksBothWays},
          {"half-close: the peer sends nothing more", IsHalfClosed},
          {"the peer has left", HasNoPeerAnyMore},
          {"a reset, then `recv`", IsReset},
          {"a reset, then `send`", SendsToWhoHasReset},
          {"a reset behind bytes that were not read", IsResetBehindBytes},
          {"the peer leaves and has not read all", IsLeftUnread},
          {"`send` to a reset peer where SIGPIPE is not ignored", IsEndedByALink},
          {"`close`, seen by the peer", Closes},
          {"`close` with bytes unread, seen by the peer", ClosesUnread},
          {"`close` does not wake a `recv` that waits", IsClosedUnderARecv},
          {"`close` does not wake a `send` that waits", IsClosedUnderASend},
          {"`recv`, interrupted", IsInterruptedReceiving},
          {"`send` to a peer that does not read", FloodsAPeer},
          {"the same with MSG_DONTWAIT", FloodsWithoutWaiting},
          {"`send` that waits, interrupted behind a part, and before any", IsInterruptedSending},
          {"a reset under a `send` that waits", IsResetUnderASend},
          {"a reset under a `recv` that waits", IsResetUnderARecv},
          {"an end under a `recv` that waits", IsFinishedUnderARecv}};
}

}  // namespace conformance
