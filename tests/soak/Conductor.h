// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <deque>
#include <functional>
#include <string>
#include <vector>

#include "soak/Plan.h"
#include "soak/RelayLink.h"
#include "soak/Report.h"
#include "soak/World.h"

// Plays the relay, the devices and the faults, all on one thread, a few milliseconds at a time.
class Conductor {
 public:
  using Clock = std::chrono::steady_clock;

  Conductor(World& world, Plan& plan, Report& report);

  // Goes on until `condition` holds: true; or until `limit` has passed, or the service has ended.
  bool RunUntil(const std::function<bool()>& condition, Clock::duration limit);
  void RunFor(Clock::duration time);

  bool AllUp() const;
  bool AllDrained() const;

  bool makesFaults = false;
  bool sendsData = true;
  bool stops = false;  // the service has been told to end: its link may go

  // What was not as it should be, besides the streams' own defects.
  const std::vector<std::string>& Defects() const { return defects; }

  // How many garbage packets the service must have refused at least: those whose fence came back.
  uint64_t GarbageFenced() const { return garbageFenced; }

 private:
  void Tick();
  void ReadOutput();
  void PlayRelay();
  void Connect();
  void Receive();
  void Take(const Packet& packet);
  void TakeReply(const std::string& reply);
  void LinkEnds();
  void SendData();
  void OpenPorts();
  void MakeFault();
  bool Make(Fault fault);
  bool MakeAtPort(Fault fault);
  bool MakeAtLink(Fault fault);
  void Command(const std::string& packet, const std::string& reply);

  World& world;
  Plan& plan;
  Report& report;
  RelayLink link;
  bool isListening = false;  // the service, for a relay
  bool isLeaving = false;
  Clock::time_point connectAt;
  Clock::time_point stallUntil;
  Clock::time_point nextFault;
  std::deque<std::string> awaitedReplies;
  uint64_t garbageFenced = 0;
  std::vector<std::string> defects;
};
