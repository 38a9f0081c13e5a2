// SPDX-License-Identifier: MIT
#include "check/Trial.h"

#include <algorithm>
#include <csignal>
#include <utility>

#include "Duration.h"
#include "link/Loop.h"
#include "relay/Error.h"
#include "relay/Text.h"

namespace {

using relay::Clock;
using relay::Millis;

constexpr const char* kUsualIds = "0403:6001";

// A refusal comes late, so that data sent ahead of it are there before.
constexpr Millis kBeforeRefusal{150};

constexpr const char* kOwnBytes = "\r\n";

}  // namespace

bool HasOpening(const std::vector<RecordedStep>& steps) {
  return std::any_of(steps.begin(), steps.end(), [](const RecordedStep& step) {
    return step.kind == RecordedStep::Kind::kOpened;
  });
}

Trial::Trial(Loop& loop, const TrialPlan& trialPlan)
    : plan(trialPlan), link(loop, plan.port, plan.how, [this] { Work(); }) {
  for (const std::string& port : PlayedService::Ports()) {
    partners.emplace(port, MakePartner(port));
  }
  try {
    program.emplace(loop, plan.command, link.Port(), plan.how.isAlone);
  } catch (const relay::Error& error) {
    if (!plan.how.isAlone) {
      throw;
    }
    selfLook.Fail(error.what());
    phase = Phase::kEnding;
    return;
  }
  if (plan.how.isAlone) {
    selfLook.Start(program->Pid());
  }
}

bool Trial::HasDevice(const std::string& port) const {
  if (!plan.sides) {
    return true;
  }
  const auto found = plan.sides->find(port);
  return found != plan.sides->end() && HasOpening(found->second);
}

Partner Trial::MakePartner(const std::string& port) {
  std::optional<std::vector<RecordedStep>> steps;
  if (plan.sides) {
    const auto found = plan.sides->find(port);
    steps = found != plan.sides->end() ? found->second : std::vector<RecordedStep>();
  }
  return {std::move(steps), [this, port](const std::string& bytes) { Give(port, bytes); },
          [this, port](uint16_t status) { service.Answer(port, status); }};
}

// As the service does, it remembers nothing of the link before.
void Trial::BeginNewLink() {
  if (link.Links() == seen.asked.size()) {
    return;
  }
  lastEvent = Clock::now();
  seen.asked.emplace_back();
  service = PlayedService();
  for (auto& [port, partner] : partners) {
    if (HasDevice(port)) {
      service.Plug(port, kUsualIds);
    }
    partner.LinkBegins();
  }
}

void Trial::Work() {
  if (phase == Phase::kOver) {
    return;
  }
  workedAt = Clock::now();
  if (phase == Phase::kRunning) {
    Look();
    meter.Work();
    selfLook.Work();
    const Clock::duration silence = Clock::now() - lastEvent;
    if (isAnswered && !hasExtras && silence >= (IsAtGoal() ? TrialPlan::kSettle : plan.quiet)) {
      BeginExtras();
    }
    EndIfOver();
  }
  if (phase == Phase::kEnding && (!program || program->Status() || Clock::now() >= killAt)) {
    phase = Phase::kOver;
  }
}

void Trial::Look() {
  link.Work();
  if (const size_t left = link.Left(); left != std::exchange(lastLeft, left)) {
    lastProgress = Clock::now();
  }
  BeginNewLink();
  if (isRefused && !isLoose && link.IsClear()) {
    isLoose = true;
    ahead = link.Waiting();
  }
  TakeCommands();
  if (link.Leaves() > seen.leaves) {
    seen.leaves = link.Leaves();
    lastEvent = Clock::now();
    if (unansweredSince && seen.leftAfter == 0) {
      seen.leftAfter = ToSeconds(Clock::now() - *unansweredSince);
    }
  }
  if (!seen.status && program->Status()) {
    seen.status = program->Status();
    lastEvent = Clock::now();
    link.Work();  // its last bytes
    TakeCommands();
  }
}

void Trial::TakeCommands() {
  try {
    while (!meter.IsBusy()) {
      const auto packet = link.Next();
      if (!packet) {
        return;
      }
      lastEvent = Clock::now();
      Take(*packet);
      link.Work();
      BeginNewLink();
    }
  } catch (const relay::Error& error) {
    if (error.Kind() != relay::ErrorKind::kNonsense) {
      throw;
    }
    seen.badLength = error.what();
    link.End(Disturbance::Ending::kOrderly);
  }
}

// What the disturbance wants of this command's answer.
void Trial::Prepare(const relay::Packet& command) {
  const std::string& port = command.port.name;
  if (command.command == kCommandOpen && plan.how.refusal && !isRefused) {
    isRefused = true;
    service.Answer(port, *plan.how.refusal);
  }
  if (command.command == kCommandClose && plan.how.isStuckOpen && service.IsOpen(port) &&
      seen.disturbed == 0) {
    ++seen.disturbed;
    service.Answer(port, kStatusCloseFailed);
  }
}

// Any; empty: there is none.
std::string Trial::OpenPort() const {
  for (const auto& entry : partners) {
    if (service.IsOpen(entry.first)) {
      return entry.first;
    }
  }
  return "";
}

void Trial::Take(const std::string& packet) {
  using Kind = PlayedService::Effect::Kind;
  const relay::ParsedPacket parsed = relay::ParsePacket(packet, relay::Direction::kToService);
  Prepare(parsed.packet);
  const bool isAhead = !isLoose || ahead > 0;
  ahead -= std::min(ahead, packet.size());
  const std::string open = plan.how.isOwnPort ? OpenPort() : "";
  const PlayedService::Effect effect = service.Take(packet);
  if (effect.kind == Kind::kRefused) {
    seen.refused.push_back(relay::ToHex(packet.substr(0, 32), " "));
    return;
  }
  seen.asked.back().Take(parsed.packet);
  if (effect.kind == Kind::kDies) {
    seen.absentIds = effect.port;
  } else if (effect.kind == Kind::kDropped && !service.IsOpen(effect.port)) {
    seen.dataToClosed += isAhead ? 0U : 1U;
    seen.isAhead = seen.isAhead || (isRefused && isAhead);
  }
  if (!open.empty() && !effect.reply.empty()) {
    ++seen.disturbed;
    link.Insert(PlayedService::Notification(open, kOwnBytes));
  }
  Answer(effect, parsed.packet);
  const auto partner = partners.find(effect.port);
  if (effect.kind == Kind::kOpened) {
    partner->second.Opened();
  } else if (effect.kind == Kind::kData) {
    partner->second.Take(effect.data);
  }
}

void Trial::Answer(const PlayedService::Effect& effect, const relay::Packet& command) {
  if (effect.reply.empty()) {
    return;
  }
  if (plan.how.isMute && command.command == kCommandOpen && !unansweredSince) {
    unansweredSince = Clock::now();
    ++seen.disturbed;
    return;
  }
  if (isRefused && seen.disturbed == 0) {
    ++seen.disturbed;
    link.Insert(effect.reply, kBeforeRefusal);
    return;
  }
  (void)link.Send(effect.reply);
  isAnswered = true;
  if (!hasExtras && (plan.how.flood == 0 || plan.runsOnce)) {
    BeginExtras();
  }
}

// Behind the first answer: whoever does not take these does not get the next one. A flood comes
// later to one that stays, when it waits for nothing.
void Trial::BeginExtras() {
  hasExtras = true;
  lastEvent = Clock::now();
  for (size_t size = 0; size < plan.how.flood; size += plan.how.stranger.size()) {
    link.Insert(plan.how.stranger);
    seen.disturbed = 1;
  }
  if (plan.how.isTimed) {
    meter.Start(link.Peer(), plan.how.stranger);
  }
}

// The disturbance may want one notification to be two.
size_t Trial::SizeOfNext(size_t most) {
  const auto& split = plan.how.split;
  if (split && link.Links() == 1 && link.Sent().size() == split->packet && split->behind < most) {
    ++seen.disturbed;
    return split->behind;
  }
  return std::min(most, PlayedService::kMostReceived);
}

void Trial::Give(const std::string& port, const std::string& bytes) {
  for (size_t at = 0; at < bytes.size();) {
    const size_t size = SizeOfNext(bytes.size() - at);
    if (!link.Send(PlayedService::Notification(port, bytes.substr(at, size)))) {
      partners.at(port).LoseLast();
    }
    at += size;
  }
}

std::optional<Clock::time_point> Trial::Due() const {
  std::optional<Clock::time_point> due = phase == Phase::kEnding ? killAt : Limit();
  const auto add = [&due](std::optional<Clock::time_point> when) {
    due = when ? std::min(*due, *when) : due;
  };
  if (phase == Phase::kRunning) {
    add(link.Due());
    add(meter.Due());
    add(selfLook.Due());
    for (const Clock::duration silence : {Clock::duration(TrialPlan::kSettle), plan.quiet}) {
      add(lastEvent + silence > workedAt ? std::optional(lastEvent + silence) : std::nullopt);
    }
  }
  return due;
}
