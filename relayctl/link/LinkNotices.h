// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>

#include "relay/Client.h"

// Tells a person what becomes of the link and of the ports that are kept open, each change once,
// however often the client tries.
class LinkNotices {
 public:
  struct Notice {
    const char* event;  // for scripts: waiting, linked, lost, opened, refused, silent
    std::string port;   // opened, refused
    std::string text;
  };
  using Teller = std::function<void(const Notice&)>;

  LinkNotices(uint16_t servicePort, Teller noticeTeller);

  // Adds its own to what the events do already. Comes right in front of the client's Start.
  void Attach(relay::Events& events);

  // When Remind should be called: the service does not answer, or the kernel does not even connect.
  std::optional<relay::Clock::time_point> Due() const { return silentAt; }
  void Remind();

  // Throws what has kept the link from coming about, if it never did.
  void MustHaveLinked() const;

 private:
  void OnConnected();
  void OnDisconnected(const relay::Error& reason);
  void OnReply(const relay::Reply& reply);

  const uint16_t relayPort;
  const Teller teller;
  bool isLinked = false;
  bool waitsAlready = false;
  bool wasLinked = false;
  std::optional<relay::Error> trouble;  // why the last link ended, unless there is another
  std::string silence;                  // what was told of it, which is not repeated
  std::optional<relay::Clock::time_point> silentAt;
  std::map<relay::Port, uint16_t> lastStatus;
};
