// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "link/CommandStream.h"
#include "link/PeerSocket.h"
#include "relay/Client.h"

class Loop;

// The service's end of the link: one relay service at a time, cut into packets as the service does,
// and a link that ends as the service's does. The next relay service is let in 250 ms later;
// whoever has connected meanwhile is reset.
//
// Kept are at most 64 KiB that have come (no more is received before all is taken) and what the
// system has not taken of the packets sent (no packet should be sent before IsClear).
class ServedLink {
 public:
  struct Owner {
    std::function<void()> wake;  // there may be a packet, or room for one
    std::function<void()> ended;
    std::function<void(const std::string& text)> tell;
  };

  // Throws relay::Error when the TCP port cannot be had, also from the loop, later.
  ServedLink(Loop& ownLoop, uint16_t port, Owner linkOwner);
  ServedLink(const ServedLink&) = delete;
  ServedLink& operator=(const ServedLink&) = delete;

  // That it listens, and where. Whenever it listens anew, it is told without this.
  void TellWhere() const;

  bool IsUp() const { return isUp; }
  bool IsClear() const { return isUp && socket->Unsent() == 0; }

  // The next whole packet of what has come.
  std::optional<std::string> Next();

  void Send(std::string_view packet);

  // What a link can do to a relay service. Each ends it, if there is one.
  enum class Ending { kOrderly, kReset };
  void End(Ending ending);
  void GoAway(relay::Clock::duration time);  // and nobody listens for so long

  // The next packet breaks off behind so many bytes, or in its middle, and the link ends there.
  void CutNext(std::optional<size_t> behind) { cut = Cut{behind}; }

 private:
  struct Cut {
    std::optional<size_t> behind;
  };

  void Deafen();
  void Listen();
  void Accept();
  void OnPeer(short ready);
  void End();
  void SendPart(std::string_view packet);

  Loop& loop;
  const uint16_t tcpPort;
  const Owner owner;
  std::optional<PeerSocket> socket;
  int watchedPeer = -1;
  bool isUp = false;
  std::optional<relay::Clock::time_point> listenAt;  // the link has ended
  std::optional<Cut> cut;
  CommandStream input;
};
