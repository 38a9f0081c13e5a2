// SPDX-License-Identifier: MIT
#include "recordings/Arrivals.h"

#include "relay/Text.h"

using relay::RecordedEvent;

std::string Arrivals::TakePacket(Relay& relay) {
  const std::string hex = relay.NextPacket();
  if (hex.find_first_not_of("0123456789ABCDEF") != std::string::npos) {
    return hex;
  }
  const RecordedEvent event =
      relay::RecordPacket({}, relay::Direction::kFromService, relay::FromHex(hex));
  if (event.kind == RecordedEvent::Kind::kData) {
    data[event.port] += event.bytes;
  } else {
    others.push_back(event.ToPacket());
  }
  return "";
}

std::string Arrivals::Take(Relay& relay, const RecordedEvent& event) {
  const bool isData = event.kind == RecordedEvent::Kind::kData;
  std::string& bytes = data[event.port];
  while (isData ? bytes.size() < event.bytes.size() : others.empty()) {
    const std::string end = TakePacket(relay);
    if (!end.empty()) {
      return end;
    }
  }
  std::string came;
  if (isData) {
    came = bytes.substr(0, event.bytes.size());
    bytes.erase(0, event.bytes.size());
  } else {
    came = others.front();
    others.pop_front();
  }
  return came == (isData ? event.bytes : event.ToPacket()) ? "" : relay::ToHex(came, " ");
}

std::string Arrivals::Rest() const {
  std::string rest;
  for (const auto& [port, bytes] : data) {
    rest += bytes.empty() ? "" : " " + port.Text() + " sent " + relay::ToHex(bytes, " ");
  }
  for (const std::string& packet : others) {
    rest += " " + relay::ToHex(packet, " ");
  }
  return rest;
}
