// SPDX-License-Identifier: MIT
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "check/AckMeter.h"
#include "check/Asked.h"
#include "check/Disturbance.h"
#include "check/Partner.h"
#include "check/SelfLook.h"
#include "check/TestedProgram.h"
#include "check/TrialLink.h"
#include "serve/DeviceSide.h"
#include "serve/PlayedService.h"

class Loop;

// One port's device in a recording, and all of them.
using DeviceSides = std::map<std::string, std::vector<RecordedStep>>;

// Whether the port is opened in it, with success.
bool HasOpening(const std::vector<RecordedStep>& steps);

struct TrialPlan {
  // What a program does beyond its usual commands, it does soon.
  static constexpr relay::Millis kSettle{50};

  std::vector<std::string> command;
  uint16_t port = 0;  // to listen on; 0: any free one
  Disturbance how;
  std::shared_ptr<const DeviceSides> sides;  // nothing: all ports echo
  std::optional<Asked> goal;       // what the program asks for undisturbed, if that is known
  bool isSteady = false;           // it always asks for just that, not only for these ports
  bool runsOnce = false;           // it ends by itself, undisturbed
  relay::Clock::duration quiet{};  // nothing happens for so long: that was all
  relay::Clock::duration limit{};  // without any progress; three times as long at all
};

// What was seen in a trial.
struct Seen {
  std::vector<Asked> asked;                    // on each link
  std::vector<std::string> sent;               // packets to the program on the first link
  size_t tries = 0;                            // links, and those that were reset at once
  size_t leaves = 0;                           // links that the program ended
  size_t disturbed = 0;                        // how often the disturbance has happened
  std::optional<int> status;                   // the program has ended by itself
  std::string lastWords;                       // on its standard error
  std::string badLength;                       // of what it sent
  std::vector<std::string> refused;            // malformed packets that it sent, in hex
  std::string absentIds;                       // a close or data for them would end the service
  size_t dataToClosed = 0;                     // data behind a refusal that it could know of
  bool isAhead = false;                        // it sends data before an open is answered
  bool isForeign = false;                      // it came from another address
  bool isStuck = false;                        // in the end it had not taken what was sent to it
  bool isOverdue = false;                      // the limit passed
  std::string rest;                            // of the recording's end, which was not reached
  std::optional<relay::Clock::duration> wait;  // for an acknowledgement
  SelfLook::Result alone;
  double leftAfter = 0;  // seconds from the open that was not answered to the end of the link
};

// One start of the program, with the service played to it. Nothing blocks.
class Trial {
 public:
  // Throws relay::Error when the program cannot be started, or the port cannot be had.
  Trial(Loop& loop, const TrialPlan& trialPlan);

  void Work();
  std::optional<relay::Clock::time_point> Due() const;
  bool IsOver() const { return phase == Phase::kOver; }
  const Seen& Result() const { return seen; }

 private:
  enum class Phase { kRunning, kEnding, kOver };

  Partner MakePartner(const std::string& port);
  bool HasDevice(const std::string& port) const;
  void BeginNewLink();
  void Look();
  void TakeCommands();
  std::string OpenPort() const;
  void Take(const std::string& packet);
  void Prepare(const relay::Packet& command);
  void Answer(const PlayedService::Effect& effect, const relay::Packet& command);
  void BeginExtras();
  void Give(const std::string& port, const std::string& bytes);
  size_t SizeOfNext(size_t most);
  bool IsAtGoal() const;
  bool IsCompared() const;
  bool IsAwaited() const;
  bool HasComeBack() const;
  relay::Clock::time_point Limit() const;
  bool MayEnd() const;
  void EndIfOver();
  void Finish();

  const TrialPlan plan;
  Seen seen;
  Phase phase = Phase::kRunning;
  TrialLink link;
  PlayedService service;
  std::map<std::string, Partner> partners;
  AckMeter meter;
  std::optional<TestedProgram> program;
  SelfLook selfLook;
  const relay::Clock::time_point began = relay::Clock::now();
  relay::Clock::time_point lastEvent = began;
  relay::Clock::time_point workedAt = began;
  relay::Clock::time_point lastProgress = began;  // an event, or bytes that were taken
  size_t lastLeft = 0;
  std::optional<relay::Clock::time_point> unansweredSince;
  relay::Clock::time_point killAt{};
  bool isRefused = false;   // the one open that is to be refused has come
  bool isLoose = false;     // the refusal has gone out,
  size_t ahead = 0;         // and these bytes of commands were there before
  bool isAnswered = false;  // one command at least
  bool hasExtras = false;   // what comes behind the usual has begun
};
