// SPDX-License-Identifier: MIT
#include "recordings/Player.h"

#include <algorithm>
#include <csignal>
#include <sstream>
#include <stdexcept>

#include "recordings/RealMachine.h"
#include "relay/Text.h"
#include "support/Eventually.h"

namespace {

using relay::Direction;
using relay::RecordedEvent;
using Kind = RecordedEvent::Kind;

constexpr std::string_view kMark = ";; ";  // in front of an instruction

// An answered command that changes nothing. Behind it nothing comes of what was sent before.
const RecordedEvent kFence = *relay::FromLine("0 > the-end close", {});
const RecordedEvent kFenceReply = *relay::FromLine("0 < the-end close 2", {});
constexpr const char* kUsualIds = "0403:6001";
constexpr const char* kFenceLogged = "3 close command proc.\n";

void Check(bool condition, const std::string& otherwise) {
  if (!condition) {
    throw std::runtime_error(otherwise);
  }
}

}  // namespace

const Player::Instruction Player::kInstructions[] = {
    {"plug", &Player::Plug},           {"unplug", &Player::Unplug},
    {"configure", &Player::Configure}, {"sends", &Player::SendUnheard},
    {"bytes", &Player::SendBytes},     {"signal", &Player::Signal},
    {"closed", &Player::ExpectClosed}, {"ends", &Player::ExpectEnd},
    {"log", &Player::ExpectLog},       {"out", &Player::ExpectOutput},
    {"err", &Player::ExpectError},
};

Player::Player() : Player(std::make_unique<RealMachine>()) {}

Player::Words::Words(const std::string& text) : all(text) {
  std::istringstream words(text);
  words >> port >> std::ws;
  std::getline(words, more);
}

std::string Player::Play(const std::string& text, const std::string& name) {
  size_t number = 0;
  std::string line = "the whole";
  try {
    PlugWhatIsOpened(relay::ReadRecording(text, name), text);
    for (std::istringstream lines(text); std::getline(lines, line);) {
      ++number;
      PlayLine(line);
    }
    line = "the end";
    ExpectNothingMore();
  } catch (const std::exception& problem) {
    return name + ":" + std::to_string(number) + ": " + line + ": " + problem.what();
  }
  return "";
}

// So that a recording from elsewhere plays as it is: what could be opened there is plugged in,
// unless the recording tells when it is.
void Player::PlugWhatIsOpened(const std::vector<RecordedEvent>& events, const std::string& text) {
  constexpr uint16_t kOpened = 0;
  constexpr uint16_t kNoNode = 4;
  for (const RecordedEvent& event : events) {
    const std::string& port = event.port.name;
    if (event.kind != Kind::kOpen || event.direction != Direction::kFromService ||
        machine->HasDevice(port) || text.find("plug " + port) != std::string::npos) {
      continue;
    }
    if (event.number == kOpened) {
      machine->Plug(port, kUsualIds);
    } else if (event.number == kNoNode && port.starts_with("#USB")) {
      machine->PlugWithoutNode(port);
    }
  }
}

void Player::PlayLine(const std::string& line) {
  if (line.starts_with(kMark)) {
    Follow(line.substr(kMark.size()));
  } else if (const auto event = relay::FromLine(line, time)) {
    time = event->time;
    PlayEvent(*event);
  }
}

void Player::Follow(const std::string& instruction) {
  const Words words(instruction);
  const auto* const row =
      std::find_if(std::begin(kInstructions), std::end(kInstructions),
                   [&words](const Instruction& candidate) { return words.port == candidate.word; });
  Check(row != std::end(kInstructions), "there is no such instruction");
  (this->*row->follow)(Words(words.more));
}

void Player::PlayEvent(const RecordedEvent& event) {
  if (event.kind == Kind::kLinkDown) {
    relay->Leaves();
    opens.clear();
    return;
  }
  if (event.kind == Kind::kLinkUp || links == 0) {
    Link();
  }
  if (event.IsPacket() && event.direction == Direction::kToService) {
    SendToService(event.ToPacket());
  } else if (event.IsPacket()) {
    TakeFromService(event);
  }
}

void Player::Settle() {
  Check(Eventually([this] { return machine->IsIdle(); }), "the service is not idle");
}

void Player::Link() {
  if (!machine->HasStarted()) {
    machine->Start();
  }
  ++links;
  Check(machine->Listens(links), "the service does not listen");
  relay = std::make_unique<Relay>();
  Check(relay->IsConnected(), "no connection");
  Check(machine->Accepts(links), "the service does not accept");
}

// What goes to an open port comes to its device.
void Player::SendToService(const std::string& packet) {
  relay->SendsBytes(packet);
  const relay::ParsedPacket parsed = relay::ParsePacket(packet, Direction::kToService);
  const std::string& port = parsed.packet.port.name;
  if (parsed.problem.empty() && parsed.packet.command == kCommandData && machine->HasDevice(port) &&
      opens.contains(port)) {
    const std::string wanted = parsed.packet.Data();
    const std::string came = machine->Reads(port, wanted.size());
    Check(came == wanted, "to the device came " + relay::Quote(came));
  }
}

void Player::TakeFromService(const RecordedEvent& event) {
  const std::string& port = event.port.name;
  if (event.kind == Kind::kData) {
    SendFromDevice(port, event.bytes);
  }
  const std::string instead = arrivals.Take(*relay, event);
  Check(instead.empty(), "came " + instead);
  if (event.kind == Kind::kOpen && event.number == 0) {
    opens[port] = machine->OpensOf(port);
  } else if (event.kind == Kind::kClose) {
    opens.erase(port);
  }
}

// Once the port has opened the device, which throws away what came before.
void Player::SendFromDevice(const std::string& port, const std::string& bytes) {
  Check(machine->HasDevice(port) && opens.contains(port),
        "that port is not open, or has no device");
  Check(Eventually([&] { return machine->OpensOf(port) >= opens[port]; }),
        "it is not opened again");
  Check(machine->Sends(port, bytes), "the line takes nothing");
}

// Neither for the relay service, nor for a device, nor in a place where lines were wanted.
void Player::ExpectNothingMore() {
  std::string logged;
  if (!hasEnded) {
    if (relay->IsConnected()) {
      Settle();  // what a port has received is on its way through a thread of its own
      PlayEvent(kFence);
      PlayEvent(kFenceReply);
      logged = kFenceLogged;
    }
    Check(machine->Program().State() == "still running", "the service has ended");
  }
  for (const std::string& port : machine->Plugged()) {
    Check(machine->ReadsWaiting(port).empty(), "there is more for the device of " + port);
  }
  Check(arrivals.Rest().empty(), "there is more:" + arrivals.Rest());
  Check(!log.AreWanted() || log.Rest() == logged, "there is more in the log: " + log.Rest());
  Check(!output.AreWanted() || output.Rest().empty(), "there is more output: " + output.Rest());
  Check(!errors.AreWanted() || errors.Rest().empty(), "there are more errors: " + errors.Rest());
}

// A port that is open opens the new device by itself.
void Player::Plug(const Words& words) {
  const size_t before = machine->OpensOf(words.port);
  machine->Plug(words.port, words.more.empty() ? kUsualIds : words.more);
  if (opens.contains(words.port)) {
    opens[words.port] = before + 1;
  }
}

void Player::Unplug(const Words& words) {
  Check(machine->Unplug(words.port, opens.contains(words.port)), "the port does not notice");
  Settle();  // its look for the device is over: a write that meets it in the middle is dropped
}

void Player::SendUnheard(const Words& words) {
  Check(machine->Sends(words.port, relay::FromHex(words.more)), "the line takes nothing");
}

void Player::SendBytes(const Words& words) { relay->SendsBytes(relay::FromHex(words.all)); }

void Player::Signal(const Words& words) {
  constexpr std::pair<const char*, int> kSignals[] = {
      {"INT", SIGINT}, {"HUP", SIGHUP}, {"TERM", SIGTERM}};
  Settle();
  for (const auto& [name, number] : kSignals) {
    if (words.all == name) {
      machine->Program().Signal(number);
    }
  }
}

void Player::ExpectClosed(const Words& /*words*/) {
  const std::string came = relay->NextPacket();
  Check(came == "closed", "came " + came);
  relay->Leaves();
  opens.clear();
}

void Player::ExpectEnd(const Words& words) {
  const std::string end = machine->WaitForEnd();
  Check(end == words.all, end);
  hasEnded = true;
}

void Player::Expect(Lines& lines, const std::string& wanted) const {
  if (!machine->HasConsole()) {
    return;
  }
  const std::string came = lines.Next();
  Check(came == wanted, "came " + came);
}
