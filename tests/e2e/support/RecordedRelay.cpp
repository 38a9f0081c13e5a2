// SPDX-License-Identifier: MIT
#include "e2e/support/RecordedRelay.h"

#include <deque>
#include <map>
#include <vector>

#include "e2e/support/Wire.h"
#include "relay/Recording.h"
#include "relay/Text.h"

namespace {

using relay::RecordedEvent;
using Kind = RecordedEvent::Kind;

// What has come from the service and was not asked for yet. The bytes of a port may be cut in
// another way than those recorded, and between bytes and replies there is no order.
class Arrivals {
 public:
  explicit Arrivals(Relay& arrivingRelay) : relay(arrivingRelay) {}

  // Takes one more packet. Empty, or why there is none.
  std::string TakePacket() {
    const std::string hex = relay.NextPacket();
    if (hex.find_first_not_of("0123456789ABCDEF") != std::string::npos) {
      return hex;
    }
    const std::vector<uint8_t> bytes = WireBytes(hex);
    const RecordedEvent event = relay::RecordPacket({}, relay::Direction::kFromService,
                                                    std::string(bytes.begin(), bytes.end()));
    if (event.kind == Kind::kData) {
      data[event.port] += event.bytes;
    } else {
      others.push_back(event.ToPacket());
    }
    return "";
  }

  // Takes packets until there is what the event needs. Empty, or what came instead.
  std::string Await(const RecordedEvent& event) {
    const bool isData = event.kind == Kind::kData;
    std::string& bytes = data[event.port];
    while (isData ? bytes.size() < event.bytes.size() : others.empty()) {
      const std::string end = TakePacket();
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
    const std::string& wanted = isData ? event.bytes : event.ToPacket();
    return came == wanted ? "" : relay::ToHex(came, " ");
  }

 private:
  Relay& relay;
  std::map<relay::Port, std::string> data;
  std::deque<std::string> others;
};

}  // namespace

std::string PlayRecording(Relay& relay, const std::string& recording) {
  Arrivals arrivals(relay);
  for (const RecordedEvent& event : relay::ReadRecordingFile(recording)) {
    if (event.kind == Kind::kLinkDown) {
      relay.Leaves();
    } else if (event.IsPacket() && event.direction == relay::Direction::kToService) {
      relay.SendsBytes(event.ToPacket());
    } else if (event.IsPacket()) {
      const std::string instead = arrivals.Await(event);
      if (!instead.empty()) {
        return relay::ToLine(event) + ": came " + instead;
      }
    }
  }
  return "";
}
