// SPDX-License-Identifier: MIT
// The cases of a recording: whatever happens to the packets on their way, the conversation is the
// same.
#include "check/Cases.h"

namespace {

constexpr const char* kPieces =
    "TCP does not keep packets together; a packet may arrive in pieces, and several may arrive at "
    "once.";
constexpr const char* kReconnect = "Try to reconnect until it works; nothing else is needed.";
constexpr size_t kSmallStranger = 60;

Judgement JudgeEnd(const Undisturbed& plain, const std::vector<Tried>& /*tried*/) {
  if (!plain.seen.rest.empty()) {
    return Failed("undisturbed it does not get there: " + plain.seen.rest);
  }
  return Passed(std::to_string(plain.seen.asked.front().Count()) + " commands, " +
                std::to_string(plain.seen.sent.size()) + " packets from the service");
}

template <typename Change>
std::vector<Disturbance> AtEachPacket(const Undisturbed& plain, Change change) {
  std::vector<Disturbance> all;
  for (size_t packet = 0; packet < plain.seen.sent.size(); ++packet) {
    change(all, packet, PlaceText(plain, packet));
  }
  return all;
}

std::vector<Disturbance> Cuts(const Undisturbed& plain) {
  return AtEachPacket(plain, [&](auto& all, size_t packet, const std::string& place) {
    for (size_t behind = 1; behind < plain.seen.sent[packet].size(); ++behind) {
      Disturbance how;
      how.name = "a cut behind byte " + std::to_string(behind) + " of " + place;
      how.cut = Disturbance::Place{packet, behind};
      all.push_back(how);
    }
  });
}

std::vector<Disturbance> Merges(const Undisturbed& plain) {
  return AtEachPacket(plain, [](auto& all, size_t packet, const std::string& place) {
    Disturbance how;
    how.name = place + " with the next one";
    how.merged = packet;
    all.push_back(how);
  });
}

std::vector<Disturbance> Delays(const Undisturbed& plain) {
  return AtEachPacket(plain, [](auto& all, size_t packet, const std::string& place) {
    Disturbance how;
    how.name = place + " late";
    how.late = packet;
    all.push_back(how);
  });
}

std::vector<Disturbance> Strangers(const Undisturbed& plain) {
  const std::vector<std::string> strangers = {StrangersPacket(plain, kSmallStranger),
                                              NumberedPacket(),
                                              StrangersPacket(plain, kMaxPacketSize)};
  return AtEachPacket(plain, [&](auto& all, size_t packet, const std::string& place) {
    for (const std::string& stranger : strangers) {
      for (const bool isTogether : {false, true}) {
        Disturbance how;
        how.name =
            "a notification of " + std::to_string(stranger.size()) + " bytes in front of " + place;
        how.stranger = stranger;
        how.before = packet;
        how.isTogether = isTogether;
        all.push_back(how);
      }
    }
  });
}

std::vector<Disturbance> Splits(const Undisturbed& plain) {
  return AtEachPacket(plain, [&](auto& all, size_t packet, const std::string& place) {
    const relay::Packet parsed =
        relay::ParsePacket(plain.seen.sent[packet], relay::Direction::kFromService).packet;
    for (size_t behind = 1; behind < parsed.Data().size(); ++behind) {
      Disturbance how;
      how.name = place + " as two, the first with " + std::to_string(behind) + " bytes of data";
      how.split = Disturbance::Place{packet, behind};
      all.push_back(how);
    }
  });
}

std::vector<Disturbance> Ends(const Undisturbed& plain) {
  return Breaks(plain, Disturbance::Ending::kOrderly);
}

std::vector<Disturbance> Resets(const Undisturbed& plain) {
  return Breaks(plain, Disturbance::Ending::kReset);
}

constexpr CheckCase kRecordingCases[] = {
    {"reaches-the-end", "The bytes of one port come in the order in which it received them.",
     nullptr, nullptr, JudgeEnd},
    {"same-under-cuts", kPieces, "reaches-the-end", Cuts, JudgeSame},
    {"same-under-merges", kPieces, "reaches-the-end", Merges, JudgeSame},
    {"same-under-delays", "Nothing times out.", "reaches-the-end", Delays, JudgeSame},
    {"same-under-strangers",
     "notifications of open ports come while a relay service waits for a reply", "reaches-the-end",
     Strangers, JudgeSame},
    {"same-under-splits",
     "what the device sends in one go may come in several notifications, and several of its "
     "messages in one",
     "reaches-the-end", Splits, JudgeSame},
    {"end-after-breaks", kReconnect, "reaches-the-end", Ends, JudgeComesBack},
    {"end-after-resets", kReconnect, "reaches-the-end", Resets, JudgeComesBack},
};

}  // namespace

const std::vector<CheckCase>& RecordingCases() {
  static const std::vector<CheckCase> cases(std::begin(kRecordingCases), std::end(kRecordingCases));
  return cases;
}
