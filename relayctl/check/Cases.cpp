// SPDX-License-Identifier: MIT
#include "check/Cases.h"

#include <algorithm>

namespace {

using relay::Direction;

constexpr const char* kStrangersPort = "#USBSerialPort9";  // which leads to no device
constexpr const char* kStrangersIds = "1234:5678";

std::string EndText(const Seen& seen) {
  return "it ended with status " + std::to_string(seen.status.value_or(0)) +
         (seen.lastWords.empty() ? "" : " (" + seen.lastWords + ")");
}

std::string Times(size_t count, const std::string& what) {
  return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

}  // namespace

Judgement Passed(const std::string& text) { return {Verdict::kPassed, text}; }
Judgement Failed(const std::string& text) { return {Verdict::kFailed, text}; }
Judgement Skipped(const std::string& text) { return {Verdict::kSkipped, text}; }

std::string Undisturbed::Problem() const {
  if (seen.status.value_or(0) != 0) {
    return EndText(seen);
  }
  if (seen.asked.empty()) {
    return seen.status ? "it ended, and never connected" : "it did not connect";
  }
  if (seen.isForeign) {
    return "it came from another address than 127.0.0.1";
  }
  return "";
}

std::string Undisturbed::Obstacle() const {
  const std::string problem = Problem();
  return problem.empty() && seen.isStuck ? "it stops for good" : problem;
}

std::string DifferenceOf(const Undisturbed& plain, const Seen& seen) {
  if (seen.status && (!plain.runsOnce || *seen.status != 0)) {
    return EndText(seen);
  }
  if (seen.asked.empty()) {
    return "it did not connect";
  }
  const Asked& wanted = plain.seen.asked.front();
  const Asked& asked = seen.asked.back();
  if (!plain.runsOnce && seen.leaves > plain.seen.leaves) {
    return "it ended the link";
  }
  if (seen.isStuck) {
    return "it did not take all that was sent to it";
  }
  if (plain.isSteady && asked != wanted) {
    return asked.DifferenceTo(wanted);
  }
  if (!asked.HasOpened(wanted)) {
    return "it did not open all ports that it opens undisturbed";
  }
  return plain.runsOnce && !seen.status ? "it did not end" : "";
}

std::string FailureToComeBack(const Undisturbed& plain, const Seen& seen) {
  if (plain.runsOnce) {
    return seen.status ? "" : "it neither came back nor ended";
  }
  if (seen.status) {
    return EndText(seen) + ", and did not come back";
  }
  if (seen.asked.size() < 2) {
    return "it did not come back";
  }
  if (!seen.asked.back().HasOpened(plain.seen.asked.front())) {
    return "it came back, and did not open all its ports again";
  }
  return seen.rest.empty() ? "" : "it came back, and not to the recording's end: " + seen.rest;
}

Judgement JudgeEach(const Undisturbed& plain, const std::vector<Tried>& tried,
                    std::string (*fault)(const Undisturbed& plain, const Seen& seen),
                    const std::string& never) {
  size_t happened = 0;
  size_t failed = 0;
  std::string first;
  for (const Tried& one : tried) {
    // What has gone wrong without it has gone wrong all the same.
    const bool hasHappened = one.seen.disturbed > 0;
    const std::string text = hasHappened || one.seen.isOverdue ? fault(plain, one.seen) : "";
    happened += hasHappened ? 1U : 0U;
    failed += text.empty() ? 0U : 1U;
    if (first.empty() && !text.empty()) {
      first = one.how.name + ": " + text;
    }
  }
  if (failed > 0) {
    return Failed(first + (tried.size() == 1 ? ""
                                             : " (" + std::to_string(failed) + " of " +
                                                   Times(tried.size(), "variant") + ")"));
  }
  if (happened == 0) {
    return Skipped(never);
  }
  return Passed(tried.size() == 1 ? tried.front().how.name : Times(happened, "variant"));
}

Judgement JudgeSame(const Undisturbed& plain, const std::vector<Tried>& tried) {
  Judgement judgement =
      JudgeEach(plain, tried, DifferenceOf, "there was nothing that it could happen to");
  if (judgement.verdict == Verdict::kPassed) {
    judgement.text += plain.isSteady
                          ? ", the same " + Times(plain.seen.asked.front().Count(), "command")
                          : ", the same ports opened (its commands differ from run to run)";
  }
  return judgement;
}

Judgement JudgeComesBack(const Undisturbed& plain, const std::vector<Tried>& tried) {
  Judgement judgement =
      JudgeEach(plain, tried, FailureToComeBack, "nothing was sent to it in which to break off");
  if (judgement.verdict == Verdict::kPassed && plain.runsOnce) {
    const auto back = std::count_if(tried.begin(), tried.end(),
                                    [](const Tried& one) { return one.seen.asked.size() > 1; });
    judgement.text += ", of which it came back in " + std::to_string(back) +
                      " and ended in the others, as it runs once";
  }
  return judgement;
}

std::string StrangersPacket(const Undisturbed& plain, size_t size) {
  const std::set<relay::Port> opened = plain.seen.asked.front().Opened();
  std::string name = kStrangersPort;
  for (const std::string& port : PlayedService::Ports()) {
    name = opened.contains(relay::Port::FromText(port)) ? name : port;
  }
  relay::Packet packet;
  packet.command = kCommandData;
  packet.port = relay::Port::FromText(name);
  const size_t head =
      relay::BuildPacket({kCommandData, packet.port, {}, {{kReceivedDataBlock, ""}}}).size();
  packet.blocks = {{kReceivedDataBlock, std::string(size - std::min(size, head), '.')}};
  return relay::BuildPacket(packet);
}

std::string NumberedPacket() { return PlayedService::NumberedNotification(kStrangersIds, "Hi"); }

std::string PlaceText(const Undisturbed& plain, size_t packet) {
  const std::string& bytes = plain.seen.sent.at(packet);
  return "packet " + std::to_string(packet + 1) + " (" +
         Describe(relay::ParsePacket(bytes, Direction::kFromService).packet,
                  Direction::kFromService)
             .substr(0, 60) +
         ")";
}

std::vector<Disturbance> Breaks(const Undisturbed& plain, Disturbance::Ending ending) {
  std::vector<Disturbance> all;
  for (size_t packet = 0; packet < plain.seen.sent.size(); ++packet) {
    for (size_t behind = 0; behind <= plain.seen.sent[packet].size(); ++behind) {
      Disturbance how;
      how.name = std::string(ending == Disturbance::Ending::kReset ? "a reset" : "an end") +
                 " behind byte " + std::to_string(behind) + " of " + PlaceText(plain, packet);
      how.broken = Disturbance::Place{packet, behind};
      how.ending = ending;
      all.push_back(how);
    }
  }
  return all;
}
