// SPDX-License-Identifier: MIT
// The cases that every relay service is tried with.
#include "check/GenericJudges.h"

namespace {

constexpr const char* kPiecesMayCome =
    "TCP does not keep packets together; a packet may arrive in pieces, and several may arrive at "
    "once.";
constexpr const char* kTryAgain = "Try to reconnect until it works; nothing else is needed.";

constexpr size_t kSmall = 60;
constexpr size_t kFloodPacket = 1000;
constexpr size_t kFlood = size_t{2} << 20;

Disturbance Named(const std::string& name) {
  Disturbance how;
  how.name = name;
  return how;
}

Disturbance WithStranger(const std::string& name, const std::string& packet) {
  Disturbance how = Named(name);
  how.stranger = packet;
  return how;
}

std::vector<Disturbance> Bytewise(const Undisturbed& /*plain*/) {
  Disturbance how = Named("each byte by itself");
  how.isBytewise = true;
  return {how};
}

std::vector<Disturbance> UnexpectedPort(const Undisturbed& plain) {
  return {WithStranger("a notification of another port in front of each packet",
                       StrangersPacket(plain, kSmall))};
}

std::vector<Disturbance> Together(const Undisturbed& plain) {
  Disturbance how =
      WithStranger("each packet together with a notification", StrangersPacket(plain, kSmall));
  how.isTogether = true;
  return {how};
}

std::vector<Disturbance> Largest(const Undisturbed& plain) {
  return {WithStranger("a notification of 65535 bytes in front of each packet",
                       StrangersPacket(plain, kMaxPacketSize))};
}

std::vector<Disturbance> Numbered(const Undisturbed& /*plain*/) {
  return {WithStranger("a notification by ids in front of each packet", NumberedPacket())};
}

std::vector<Disturbance> BeforeAnswers(const Undisturbed& /*plain*/) {
  Disturbance how = Named("bytes of an open port in front of answers");
  how.isOwnPort = true;
  return {how};
}

std::vector<Disturbance> RefusedOpens(const Undisturbed& /*plain*/) {
  std::vector<Disturbance> all;
  for (const uint16_t status : {kStatusNoPort, kStatusOpenFailed}) {
    all.push_back(Named("the first open answered with status " + std::to_string(status)));
    all.back().refusal = status;
  }
  return all;
}

std::vector<Disturbance> RefusedClose(const Undisturbed& /*plain*/) {
  Disturbance how = Named("the first close answered with status 5");
  how.isStuckOpen = true;
  return {how};
}

std::vector<Disturbance> Unanswered(const Undisturbed& /*plain*/) {
  Disturbance how = Named("the first open not answered");
  how.isMute = true;
  return {how};
}

std::vector<Disturbance> Flood(const Undisturbed& plain) {
  Disturbance how = WithStranger("2 MiB of notifications", StrangersPacket(plain, kFloodPacket));
  how.flood = kFlood;
  return {how};
}

std::vector<Disturbance> Timed(const Undisturbed& plain) {
  Disturbance how = WithStranger("pairs of notifications", StrangersPacket(plain, kSmall));
  how.isTimed = true;
  return {how};
}

std::vector<Disturbance> EndsAnywhere(const Undisturbed& plain) {
  return Breaks(plain, Disturbance::Ending::kOrderly);
}

std::vector<Disturbance> ResetsAnywhere(const Undisturbed& plain) {
  return Breaks(plain, Disturbance::Ending::kReset);
}

std::vector<Disturbance> Deaf(const Undisturbed& /*plain*/) {
  Disturbance how = Named("each link reset before a byte, for a second");
  how.isDeaf = true;
  return {how};
}

std::vector<Disturbance> Alone(const Undisturbed& /*plain*/) {
  Disturbance how = Named("nobody listens");
  how.isAlone = true;
  return {how};
}

std::vector<Disturbance> DeafAndAlone(const Undisturbed& plain) {
  return {Deaf(plain).front(), Alone(plain).front()};
}

constexpr CheckCase kGenericCases[] = {
    {"connects", "`SerialPortHandler` listens, the relay service connects.", nullptr, nullptr,
     JudgeConnects},
    {"one-byte-at-a-time", kPiecesMayCome, nullptr, Bytewise, JudgeSame},
    {"unexpected-port", "one from a port can come after the reply to its close is under way",
     nullptr, UnexpectedPort, JudgeSame},
    {"several-at-once", kPiecesMayCome, "unexpected-port", Together, JudgeSame},
    {"largest-notification", "Be ready for 65535 anyway.", "several-at-once", Largest, JudgeSame},
    {"numbered-port", "read it, even if it does not come today", "several-at-once", Numbered,
     JudgeSame},
    {"before-an-answer", "notifications of open ports come while a relay service waits for a reply",
     "several-at-once", BeforeAnswers, JudgeBeforeAnswers},
    {"keeps-reading", "Keep reading, always, in a thread or an event loop of its own.",
     "several-at-once", Flood, JudgeReading},
    {"reads-while-it-sends", "Never stop reading while you send.", nullptr, nullptr,
     JudgeReadingWhileSending},
    {"refused-open", "Treat any other value than 0 as a failure.", nullptr, RefusedOpens,
     JudgeRefusedOpen},
    {"refused-close", "the port could not be closed, and stays open", nullptr, RefusedClose,
     JudgeRefusedClose},
    {"unanswered-open",
     "Wait for the reply to an open with a time limit of your own, as a refused packet has none.",
     nullptr, Unanswered, JudgeUnanswered},
    {"back-after-an-end", kTryAgain, nullptr, EndsAnywhere, JudgeComesBack},
    {"back-after-a-reset", kTryAgain, nullptr, ResetsAnywhere, JudgeComesBack},
    {"reset-before-a-byte", "Treat that like a refused connection and try again.", nullptr, Deaf,
     JudgeDeaf},
    {"pauses-between-tries", "Pause between two tries to connect", nullptr, DeafAndAlone,
     JudgePauses},
    {"not-to-itself", "Do not connect to yourself.", nullptr, Alone, JudgeAlone},
    {"quick-acknowledgement", "Set `TCP_QUICKACK` again after each receive", "several-at-once",
     Timed, JudgeAcknowledgements},
    // Of all trials, of these and of the recordings.
    {"well-formed", "A packet that does not have exactly the form above is refused as a whole",
     nullptr, nullptr, JudgeForm},
    {"no-broken-length", "takes it for a broken stream: the link ends, all ports are closed",
     nullptr, nullptr, JudgeLength},
    {"by-name", "A relay service has no use for the numbered form: close by name.", nullptr,
     nullptr, JudgeByName},
};

}  // namespace

const std::vector<CheckCase>& GenericCases() {
  static const std::vector<CheckCase> cases(std::begin(kGenericCases), std::end(kGenericCases));
  return cases;
}
