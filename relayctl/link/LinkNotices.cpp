// SPDX-License-Identifier: MIT
#include "link/LinkNotices.h"

#include <utility>

#include "link/Silence.h"
#include "show/Output.h"

LinkNotices::LinkNotices(uint16_t servicePort, Teller noticeTeller)
    : relayPort(servicePort), teller(std::move(noticeTeller)) {}

void LinkNotices::Attach(relay::Events& events) {
  silentAt = relay::Clock::now() + kSilence;
  events.connected = [this, next = std::move(events.connected)] {
    OnConnected();
    if (next) {
      next();
    }
  };
  events.disconnected = [this, next = std::move(events.disconnected)](const relay::Error& error) {
    OnDisconnected(error);
    if (next) {
      next(error);
    }
  };
  events.reply = [this, next = std::move(events.reply)](const relay::Reply& reply) {
    OnReply(reply);
    if (next) {
      next(reply);
    }
  };
}

// A link counts once the service has answered: the kernel takes it before the service does.
void LinkNotices::OnConnected() { trouble.reset(); }

void LinkNotices::Remind() {
  silentAt.reset();
  const std::string text = SilenceText(relayPort);
  if (text != std::exchange(silence, text)) {
    teller({"silent", "", text});
  }
}

void LinkNotices::MustHaveLinked() const {
  if (!wasLinked) {
    throw trouble ? *trouble
                  : relay::Error(relay::ErrorKind::kNoAnswer,
                                 "no answer from 127.0.0.1:" + std::to_string(relayPort));
  }
}

void LinkNotices::OnDisconnected(const relay::Error& reason) {
  silentAt = relay::Clock::now() + kSilence;
  trouble = reason;
  if (isLinked) {
    teller({"lost", "", reason.what()});
  }
  if (isLinked || !waitsAlready) {
    teller({"waiting", "", "waiting for the service on 127.0.0.1:" + std::to_string(relayPort)});
  }
  isLinked = false;
  waitsAlready = true;
  lastStatus.clear();
}

void LinkNotices::OnReply(const relay::Reply& reply) {
  silentAt.reset();
  if (!isLinked) {
    isLinked = true;
    wasLinked = true;
    silence.clear();
    teller({"linked", "", "linked to 127.0.0.1:" + std::to_string(relayPort)});
  }
  const auto known = lastStatus.find(reply.port);
  if (reply.command != kCommandOpen ||
      (known != lastStatus.end() && known->second == reply.status)) {
    return;
  }
  lastStatus[reply.port] = reply.status;
  const std::string port = reply.port.Text();
  // Open already: by this very link, for it is the service's only peer.
  if (reply.status == kStatusDone || reply.status == kStatusUnavailable) {
    teller({"opened", port, port + ": open"});
  } else {
    teller({"refused", port, RefusalText(reply)});
  }
}
