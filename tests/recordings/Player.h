// SPDX-License-Identifier: MIT
// Plays a recording against a service, the real one as a rule: its relay service and its devices.
// What comes must be what was recorded; docs/recording.md tells what is compared, and of the lines
// with ";;".
#pragma once

#include <chrono>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "e2e/support/Relay.h"
#include "recordings/Arrivals.h"
#include "recordings/Lines.h"
#include "recordings/PlayedMachine.h"
#include "relay/Recording.h"

class Player {
 public:
  Player();
  explicit Player(std::unique_ptr<PlayedMachine> playedOn) : machine(std::move(playedOn)) {}

  // Empty when all came as recorded, else "NAME:12: LINE: what came".
  std::string Play(const std::string& text, const std::string& name);

 private:
  // What stands behind the word of an instruction: all of it, and its first word and the others.
  struct Words {
    explicit Words(const std::string& text);
    std::string all;
    std::string port;
    std::string more;
  };
  struct Instruction {
    const char* word;
    void (Player::*follow)(const Words& words);
  };
  static const Instruction kInstructions[];

  void PlugWhatIsOpened(const std::vector<relay::RecordedEvent>& events, const std::string& text);
  void PlayLine(const std::string& line);
  void Follow(const std::string& instruction);
  void PlayEvent(const relay::RecordedEvent& event);
  void Settle();
  void Link();
  void SendToService(const std::string& packet);
  void TakeFromService(const relay::RecordedEvent& event);
  void SendFromDevice(const std::string& port, const std::string& bytes);
  void ExpectNothingMore();

  void Plug(const Words& words);
  void Unplug(const Words& words);
  void Configure(const Words& words) { machine->Configure(words.port, words.more); }
  void SendUnheard(const Words& words);
  void SendBytes(const Words& words);
  void Signal(const Words& words);
  void ExpectClosed(const Words& words);
  void ExpectEnd(const Words& words);
  void ExpectLog(const Words& words) { Expect(log, words.all); }
  void ExpectOutput(const Words& words) { Expect(output, words.all); }
  void ExpectError(const Words& words) { Expect(errors, words.all); }
  void Expect(Lines& lines, const std::string& wanted) const;

  std::unique_ptr<PlayedMachine> machine;
  std::unique_ptr<Relay> relay;
  size_t links = 0;
  bool hasEnded = false;
  std::chrono::microseconds time{0};
  Arrivals arrivals;
  std::map<std::string, size_t> opens;  // of each open port: how often its device has been opened
  Lines log{LogLines};
  Lines output{OutputLines};
  Lines errors{ErrorLines};
};
