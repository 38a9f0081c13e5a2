// SPDX-License-Identifier: MIT
#pragma once

#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "relay/ByteQueue.h"
#include "serve/PlayedService.h"
#include "serve/Provocation.h"
#include "serve/ServedDevice.h"
#include "serve/ServedLink.h"

// The played service at work: joins the link, the model of the service, and the devices.
//
// As the service does, it carries out one command at a time, and waits with the others, and with
// what comes, while a device takes nothing or the relay service reads nothing. So at most one
// command's data wait for a device, and of each port at most one notification for the link.
class Desk {
 public:
  // All devices are plugged in. Throws what these and ServedLink throw.
  Desk(Loop& ownLoop, uint16_t tcpPort, std::vector<DeviceChoice> deviceChoices);
  ~Desk();
  Desk(const Desk&) = delete;
  Desk& operator=(const Desk&) = delete;

  // To be called once all is there that somebody may use who has waited for this.
  void TellWhereItListens() const;

  // Throws kUsage for what is no provocation or names a port that is not served.
  void Provoke(const std::string& text);

  // Of the ports, the next one is meant by provocations that name none.
  void ChooseNext();

  // The played service has ended as the real one would: with this signal.
  std::optional<int> Died() const { return died; }

 private:
  void MustBeServed(const std::string& port) const;
  ServedDevice* At(const std::string& port) const;
  ServedDevice::Line LineOf(const std::string& port);
  bool MayReceive(const std::string& port) const;
  short WantedOf(const std::string& port) const;
  std::optional<relay::Clock::time_point> Due() const;
  void Plug(const std::string& port, const std::string& ids);
  void Unplug(const std::string& port);
  void Carry(const std::string& text);
  void CarryAll();
  void ChangeLine(const Provocation& what, const std::string& port);
  void ChangeAnswer(const Provocation& what, const std::string& port);
  void ChangeLink(const Provocation& what);
  void Answer(const PlayedService::Effect& effect);
  void AnswerLate();
  void Work();
  void Take(const std::string& packet);
  void GiveToDevice();
  void TakeFromDevices();
  void CloseAll();

  Loop& loop;
  const std::vector<DeviceChoice> choices;
  size_t chosen = 0;
  PlayedService service;
  std::map<std::string, std::unique_ptr<ServedDevice>> devices;
  std::string busyPort;                   // whose device is to take
  relay::ByteQueue toDevice;              // this
  std::deque<std::string> provoked;       // by devices, which may not go while they are asked
  std::optional<Provocation> nextAnswer;  // late or never
  std::string held;                       // a late answer: all commands wait behind it,
  std::string heldPort;                   // and what this port receives, too
  std::optional<relay::Clock::time_point> heldUntil;
  std::optional<int> died;
  std::unique_ptr<ServedLink> link;
};
