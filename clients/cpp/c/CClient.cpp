// SPDX-License-Identifier: MIT
#include "c/CClient.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <memory>
#include <utility>

#include "c/Translation.h"

namespace {

// While it lives, events may be under way.
class Inside {
 public:
  explicit Inside(bool& flag) : isInside(flag), before(std::exchange(flag, true)) {}
  ~Inside() { isInside = before; }
  Inside(const Inside&) = delete;
  Inside& operator=(const Inside&) = delete;

 private:
  bool& isInside;
  const bool before;
};

}  // namespace

relayclient::relayclient(const relayclient_options& given, const relayclient_events& told)
    : events(told),
      lineEnd(given.line_end != nullptr ? given.line_end : "\n"),
      longestLine(given.longest_line != 0 ? given.longest_line : relay::LineCutter::kLongest),
      isReconnecting(given.reconnect != 0),
      link(relay::OptionsOf(given), Told()) {
  (void)relay::LineCutter(lineEnd);
}

relay::Events relayclient::Told() {
  relay::Events told;
  told.connected = [this] {
    if (events.connected != nullptr) {
      events.connected(events.context);
    }
  };
  told.disconnected = [this](const relay::Error& error) {
    ForgetLink();
    if (link.IsOver()) {
      TellDisconnected(error, -1, 0);
    }
  };
  told.retrying = [this](const relay::Retry& retry) {
    const auto pause = std::min<relay::Millis::rep>(retry.pause.count(), INT_MAX);
    TellDisconnected(retry.reason, static_cast<int>(pause), retry.triesInVain);
  };
  told.reply = [this](const relay::Reply& reply) { TakeReply(reply); };
  told.received = [this](const relay::Port& port, std::string_view data) { Take(port, data); };
  return told;
}

void relayclient::TellDisconnected(const relay::Error& error, int pause, unsigned tries) const {
  if (events.disconnected != nullptr) {
    events.disconnected(events.context, relay::ErrnoOf(error), error.what(), pause, tries);
  }
}

void relayclient::ForgetLink() {
  ++linksEnded;
  for (auto& [port, kept] : ports) {
    kept.status.reset();
    kept.writer.Clear();
    kept.lines.DropUnfinished();
  }
}

void relayclient::TakeReply(const relay::Reply& reply) {
  const auto found = ports.find(reply.port);
  if (reply.command != kCommandOpen || found == ports.end()) {
    return;
  }
  found->second.status = reply.status;
  const int error = relay::ErrnoOfOpen(reply.status);
  if (error != 0 && !isReconnecting) {
    (void)link.LetGo(reply.port);
  }
  if (events.opened != nullptr) {
    const std::string why = relay::StatusText(reply.command, reply.status);
    events.opened(events.context, relay::NameOf(reply.port).c_str(), error, why.c_str());
  }
}

void relayclient::Take(const relay::Port& port, std::string_view data) {
  if (events.received != nullptr) {
    events.received(events.context, relay::NameOf(port).c_str(), data.data(), data.size());
    return;
  }
  const auto found = ports.find(port);
  if (found != ports.end()) {
    found->second.lines.Add(data);
  }
}

int relayclient::Fail(int error, std::string_view why) noexcept {
  const size_t count = std::min(why.size(), text.size() - 1);
  std::memcpy(text.data(), why.data(), count);
  text[count] = '\0';
  return error;
}

int relayclient::WhyNotWait(int limit) {
  if (isInside && limit != 0) {
    return Fail(EDEADLK, "an event function cannot wait");
  }
  return 0;
}

int relayclient::WhyOver() {
  if (!link.IsOver()) {
    return 0;
  }
  return link.Failure() ? Fail(relay::ErrnoOf(*link.Failure()), link.Failure()->what())
                        : Fail(ENOTCONN, "the link is not started");
}

// ETIMEDOUT without a text: it is the caller's affair whether that is a failure.
int relayclient::Run(int limit, const Done& done) {
  if (const int error = WhyOver()) {
    return error;
  }
  const Inside inside(isInside);
  if (limit < 0) {
    link.RunUntil(done);
    return 0;
  }
  return link.RunFor(relay::Millis(limit), done) ? 0 : ETIMEDOUT;
}

int relayclient::Wait(int limit, const std::string& inVain, const Done& done) {
  if (done()) {
    return 0;
  }
  const int error = isInside ? ETIMEDOUT : Run(limit, done);
  if (error == ETIMEDOUT) {
    const bool isLimited = limit > 0;
    return Fail(error, inVain + (isLimited ? " within " + std::to_string(limit) + " ms" : " yet"));
  }
  return error;
}

int relayclient::Start() {
  const Inside inside(isInside);
  link.Start();
  return 0;
}

void relayclient::Stop() {
  link.Stop();
  ForgetLink();
}

int relayclient::Process() {
  if (const int error = WhyNotWait(-1)) {
    return error;
  }
  const Inside inside(isInside);
  link.Process();
  return WhyOver();
}

int relayclient::RunFor(int milliseconds) {
  if (const int error = WhyNotWait(-1)) {
    return error;
  }
  const int error = Run(milliseconds, [] { return false; });
  return error == ETIMEDOUT ? 0 : error;
}

int relayclient::Open(const relay::Port& port, int limit) {
  if (const int error = WhyNotWait(limit)) {
    return error;
  }
  KeptPort& kept = ports.try_emplace(port, link, port, lineEnd, longestLine).first->second;
  if (link.IsOpen(port)) {
    return 0;
  }
  kept.status.reset();
  link.KeepOpen(port);
  std::optional<uint16_t> status;
  const int error = Wait(limit, "no answer to the open of " + port.Text(), [&] {
    const auto found = ports.find(port);
    status = found != ports.end() ? found->second.status : std::nullopt;
    return status || found == ports.end();
  });
  if (error == 0 && !status) {
    return Fail(ENOENT, port.Text() + " was closed meanwhile");
  }
  if (error != 0 || relay::ErrnoOfOpen(*status) == 0) {
    return error;
  }
  return Fail(relay::ErrnoOfOpen(*status), relay::StatusText(kCommandOpen, *status));
}

int relayclient::Close(const relay::Port& port, int limit) {
  if (const int error = WhyNotWait(limit)) {
    return error;
  }
  if (ports.erase(port) == 0) {
    return Fail(ENOENT, port.Text() + " was not opened here");
  }
  const auto answer = std::make_shared<std::optional<uint16_t>>();
  const auto take = [answer](const relay::Reply& reply) { *answer = reply.status; };
  if (!link.LetGo(port, take)) {
    return 0;
  }
  // With its link the port is closed, too.
  const int error = Wait(limit, "no answer to the close of " + port.Text(),
                         [&, before = linksEnded] { return *answer || linksEnded != before; });
  if (*answer == kStatusCloseFailed) {
    return Fail(EIO, relay::StatusText(kCommandClose, kStatusCloseFailed));
  }
  return error;
}

int relayclient::Send(const relay::Port& port, std::string_view data) {
  const auto found = ports.find(port);
  if (found == ports.end() || !link.IsOpen(port)) {
    return Fail(ENOTCONN, port.Text() + " is not open at the moment");
  }
  found->second.writer.Write(data);
  return 0;
}

size_t relayclient::Unsent(const relay::Port& port) const {
  const auto found = ports.find(port);
  return found != ports.end() ? found->second.writer.Unsent() : 0;
}

int relayclient::Write(const relay::Port& port, std::string_view data, int limit) {
  const int refusal = WhyNotWait(limit);
  if (const int error = refusal != 0 ? refusal : Send(port, data)) {
    return error;
  }
  ports.find(port)->second.writer.Confirm();
  const uint64_t before = linksEnded;
  const auto isTaken = [&] {
    const auto found = ports.find(port);
    return found == ports.end() || found->second.writer.Pending() == 0;
  };
  const int error = Wait(limit, "not all data for " + port.Text() + " were taken",
                         [&] { return isTaken() || linksEnded != before; });
  if (error == 0 && !ports.contains(port)) {
    return Fail(ENOENT, port.Text() + " was closed meanwhile");
  }
  if (error == 0 && linksEnded != before) {
    return Fail(ECONNRESET, "the link ended while data for " + port.Text() + " were on their way");
  }
  return error;
}

// Or it never will.
bool relayclient::HasLine(const relay::Port& port) {
  const auto found = ports.find(port);
  if (found == ports.end()) {
    return true;
  }
  KeptPort& kept = found->second;
  if (!kept.next) {
    kept.next = kept.lines.Next();
  }
  return kept.next || kept.lines.Lost() != kept.lostAndTold;
}

int relayclient::ReadLine(const relay::Port& port, char* line, size_t size, size_t* length,
                          int limit) {
  if (const int error = WhyNotWait(limit)) {
    return error;
  }
  const bool isThere = events.received == nullptr && ports.contains(port);
  if (const int error =
          isThere ? Wait(limit, "no line from " + port.Text(), [&] { return HasLine(port); }) : 0) {
    return error;
  }
  const auto found = ports.find(port);
  if (!isThere || found == ports.end()) {
    return Fail(ENOENT, "no lines of " + port.Text() + " are kept here");
  }
  KeptPort& kept = found->second;
  if (std::exchange(kept.lostAndTold, kept.lines.Lost()) != kept.lines.Lost()) {
    return Fail(EOVERFLOW, "lines of " + port.Text() + " were dropped");
  }
  if (kept.next->size() >= size) {
    return Fail(EMSGSIZE, "a line of " + std::to_string(kept.next->size()) + " bytes from " +
                              port.Text() + " does not fit");
  }
  const size_t count = kept.next->copy(line, size);
  line[count] = '\0';
  if (length != nullptr) {
    *length = count;
  }
  kept.next.reset();
  return 0;
}
