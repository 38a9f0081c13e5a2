// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "relay/Client.h"
#include "relay/LineCutter.h"
#include "relay/Writer.h"
#include "relayclient.h"

// What is behind the handle of the C interface: a Client, what goes to and comes from each port,
// and the last failure. Its functions give 0 or an errno value, as relayclient.h tells, and throw;
// the C functions keep from their callers what is thrown.
struct relayclient {
 public:
  // Throws kUsage for a line's end of no length.
  relayclient(const relayclient_options& given, const relayclient_events& told);
  relayclient(const relayclient&) = delete;
  relayclient& operator=(const relayclient&) = delete;

  const relay::Client& Link() const { return link; }

  int Start();
  void Stop();
  int Process();
  int RunFor(int milliseconds);
  int Open(const relay::Port& port, int limit);
  int Close(const relay::Port& port, int limit);
  int Send(const relay::Port& port, std::string_view data);
  size_t Unsent(const relay::Port& port) const;
  int Write(const relay::Port& port, std::string_view data, int limit);
  int ReadLine(const relay::Port& port, char* line, size_t size, size_t* length, int limit);

  // Keeps the text, cut where it is too long, and gives `error`.
  int Fail(int error, std::string_view why) noexcept;
  const char* ErrorText() const { return text.data(); }

 private:
  using Done = std::function<bool()>;
  struct KeptPort {
    KeptPort(relay::Client& client, const relay::Port& port, const std::string& lineEnd,
             size_t longest)
        : writer(client, port), lines(lineEnd, longest) {}

    std::optional<uint16_t> status;  // the last answer to its open on this link
    relay::Writer writer;
    relay::LineCutter lines;
    std::optional<std::string> next;  // of `lines`, once somebody asked for it
    uint64_t lostAndTold = 0;         // of `lines`
  };

  relay::Events Told();
  void TellDisconnected(const relay::Error& error, int pause, unsigned tries) const;
  void ForgetLink();
  void TakeReply(const relay::Reply& reply);
  void Take(const relay::Port& port, std::string_view data);
  int WhyNotWait(int limit);
  int WhyOver();
  int Run(int limit, const Done& done);
  int Wait(int limit, const std::string& inVain, const Done& done);
  bool HasLine(const relay::Port& port);

  const relayclient_events events;
  const std::string lineEnd;
  const size_t longestLine;
  const bool isReconnecting;
  uint64_t linksEnded = 0;
  bool isInside = false;  // an event may be under way
  std::array<char, 512> text{};
  relay::Client link;
  std::map<relay::Port, KeptPort> ports;  // after their client
};
