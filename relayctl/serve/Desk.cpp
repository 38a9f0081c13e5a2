// SPDX-License-Identifier: MIT
#include "serve/Desk.h"

#include <poll.h>

#include <algorithm>
#include <csignal>
#include <utility>

#include "Duration.h"
#include "link/Loop.h"
#include "relay/Error.h"
#include "relay/Text.h"
#include "show/Output.h"

namespace {

constexpr const char* kUsualIds = "0403:6001";  // of an adapter of which nothing else is said

}  // namespace

Desk::Desk(Loop& ownLoop, uint16_t tcpPort, std::vector<DeviceChoice> deviceChoices)
    : loop(ownLoop), choices(std::move(deviceChoices)) {
  link = std::make_unique<ServedLink>(
      loop, tcpPort, ServedLink::Owner{[this] { Work(); }, [this] { CloseAll(); }, PrintNotice});
  for (const DeviceChoice& choice : choices) {
    Plug(choice.port, kUsualIds);
  }
  loop.When([this] { return Due(); }, [this] { Work(); });
  loop.When([this] { return heldUntil; }, [this] { AnswerLate(); });
  CarryAll();
}

Desk::~Desk() = default;

void Desk::TellWhereItListens() const { link->TellWhere(); }

ServedDevice* Desk::At(const std::string& port) const {
  const auto found = devices.find(port);
  return found != devices.end() ? found->second.get() : nullptr;
}

// Behind the answer to its open.
bool Desk::MayReceive(const std::string& port) const {
  return service.IsOpen(port) && link->IsClear() && !(heldUntil && port == heldPort);
}

short Desk::WantedOf(const std::string& port) const {
  return static_cast<short>((MayReceive(port) ? POLLIN : 0) |
                            (port == busyPort && !toDevice.IsEmpty() ? POLLOUT : 0));
}

ServedDevice::Line Desk::LineOf(const std::string& port) {
  return {port,
          loop,
          [this, port] { return WantedOf(port); },
          [this] { Work(); },
          PrintNotice,
          [this](const std::string& text) { provoked.push_back(text); }};
}

std::optional<relay::Clock::time_point> Desk::Due() const {
  std::optional<relay::Clock::time_point> first;
  for (const auto& [port, device] : devices) {
    const auto due = (WantedOf(port) & POLLIN) != 0 ? device->Due() : std::nullopt;
    first = first && due ? std::min(*first, *due) : first ? first : due;
  }
  return first;
}

void Desk::Plug(const std::string& port, const std::string& ids) {
  const auto choice = std::find_if(choices.begin(), choices.end(),
                                   [&](const DeviceChoice& one) { return one.port == port; });
  devices.erase(port);
  devices[port] = choice->make(LineOf(port));
  service.Plug(port, ids);
  if (service.IsOpen(port)) {
    devices[port]->OpenAgain();
  }
}

// An open port stays open; what waits for its device is lost.
void Desk::Unplug(const std::string& port) {
  service.Unplug(port);
  devices.erase(port);
  if (port == busyPort) {
    toDevice.Clear();
  }
}

void Desk::Work() {
  CarryAll();
  GiveToDevice();
  while (toDevice.IsEmpty() && link->IsClear() && !heldUntil && !died) {
    const auto packet = link->Next();
    if (!packet) {
      break;
    }
    Take(*packet);
    GiveToDevice();
    CarryAll();
  }
  TakeFromDevices();
  CarryAll();
}

void Desk::Take(const std::string& packet) {
  using Kind = PlayedService::Effect::Kind;
  const PlayedService::Effect effect = service.Take(packet);
  ServedDevice* const device = At(effect.port);
  if (effect.kind == Kind::kOpened) {
    device->Open();
  } else if (effect.kind == Kind::kClosed && device != nullptr) {
    device->Close();
  } else if (effect.kind == Kind::kData) {
    busyPort = effect.port;
    toDevice.Add(effect.data);
  } else if (effect.kind == Kind::kRefused) {
    PrintNotice("a malformed packet was refused, and is not answered: " +
                relay::ToHex(packet.substr(0, 32), " ") + (packet.size() > 32 ? " ..." : ""));
  } else if (effect.kind == Kind::kDies) {
    PrintNotice("a close or data for " + effect.port +
                ", which no adapter is, end the service (signal 6)");
    died = SIGABRT;
  }
  Answer(effect);
}

void Desk::GiveToDevice() {
  ServedDevice* const device = At(busyPort);
  if (!toDevice.IsEmpty() && device != nullptr) {
    toDevice.Take(device->Take(toDevice.View()));
  }
}

// From each at most once, so that one that never ends holds up nobody.
void Desk::TakeFromDevices() {
  for (const auto& [port, device] : devices) {
    if (MayReceive(port)) {
      const std::string bytes = device->Give(PlayedService::kMostReceived);
      if (!bytes.empty()) {
        link->Send(PlayedService::Notification(port, bytes));
      }
    }
  }
}

void Desk::CloseAll() {
  for (const auto& [port, device] : devices) {
    if (service.IsOpen(port)) {
      device->Close();
    }
  }
  service.CloseAll();
  toDevice.Clear();
  heldUntil.reset();
}

void Desk::ChooseNext() {
  chosen = (chosen + 1) % choices.size();
  PrintNotice("chosen is " + choices[chosen].port);
}

void Desk::MustBeServed(const std::string& port) const {
  if (std::none_of(choices.begin(), choices.end(),
                   [&](const DeviceChoice& choice) { return choice.port == port; })) {
    throw relay::Error(relay::ErrorKind::kUsage, relay::Escape(port) + " is not served");
  }
}

void Desk::CarryAll() {
  while (!provoked.empty()) {
    const std::string text = provoked.front();
    provoked.pop_front();
    Carry(text);
  }
}

void Desk::Provoke(const std::string& text) {
  Carry(text);
  Work();
}

void Desk::Carry(const std::string& text) {
  using Kind = Provocation::Kind;
  const Provocation what = Provocation::FromText(text);
  const std::string port = what.port.empty() ? choices[chosen].port : what.port;
  MustBeServed(port);
  switch (what.kind) {
    case Kind::kUnplug:
    case Kind::kPlug:
    case Kind::kCable:
      ChangeLine(what, port);
      break;
    case Kind::kStatus:
    case Kind::kLate:
    case Kind::kNever:
      ChangeAnswer(what, port);
      break;
    case Kind::kNumbered:
    case Kind::kBreak:
    case Kind::kEnd:
    case Kind::kReset:
    case Kind::kAway:
      ChangeLink(what);
      break;
  }
}

void Desk::ChangeLine(const Provocation& what, const std::string& port) {
  using Kind = Provocation::Kind;
  if (what.kind == Kind::kPlug || (what.kind == Kind::kCable && !service.IsPlugged(port))) {
    Plug(port, what.ids.empty() ? kUsualIds : what.ids);
    PrintNotice(port + ": plugged in");
  } else {
    Unplug(port);
    PrintNotice(port + ": unplugged");
  }
}

void Desk::ChangeAnswer(const Provocation& what, const std::string& port) {
  if (what.kind == Provocation::Kind::kStatus) {
    service.Answer(port, what.status);
    PrintNotice(port + ": the next " + (what.status == kStatusCloseFailed ? "close" : "open") +
                " is answered with status " + std::to_string(what.status));
  } else {
    nextAnswer = what;
    PrintNotice(what.kind == Provocation::Kind::kLate ? "the next answer comes late"
                                                      : "the next answer never comes");
  }
}

void Desk::ChangeLink(const Provocation& what) {
  using Kind = Provocation::Kind;
  if (what.kind == Kind::kAway) {
    link->GoAway(FromSeconds(what.seconds));
  } else if (what.kind == Kind::kBreak) {
    link->CutNext(what.behind);
    PrintNotice("the link breaks in the next packet");
  } else if (!link->IsUp()) {
    PrintNotice("no relay service is there");
  } else if (what.kind == Kind::kNumbered) {
    link->Send(PlayedService::NumberedNotification(what.ids, what.bytes));
    PrintNotice("sent by ids: " + what.ids);
  } else {
    link->End(what.kind == Kind::kReset ? ServedLink::Ending::kReset
                                        : ServedLink::Ending::kOrderly);
  }
}

void Desk::Answer(const PlayedService::Effect& effect) {
  const auto how = effect.reply.empty() ? std::nullopt : std::exchange(nextAnswer, std::nullopt);
  if (!how) {
    link->Send(effect.reply);
  } else if (how->kind == Provocation::Kind::kLate) {
    held = effect.reply;
    heldPort = effect.port;
    heldUntil = relay::Clock::now() + FromSeconds(how->seconds);
  } else {
    PrintNotice(relay::Escape(effect.port) + ": its command is not answered");
  }
}

void Desk::AnswerLate() {
  heldUntil.reset();
  link->Send(held);
  Work();
}
