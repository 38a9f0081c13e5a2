// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "e2e/support/Device.h"
#include "soak/CheckedStream.h"
#include "soak/Plan.h"

// A line's speed: what may pass now, and never more than a moment's worth at once.
class Pace {
 public:
  using Clock = std::chrono::steady_clock;

  size_t Allowed();
  void Spends(size_t bytes) { spent += bytes; }

 private:
  Clock::time_point begin = Clock::now();
  size_t spent = 0;
};

// One port: its device, and what relay and device know of its state.
class SoakPort {
 public:
  using Clock = std::chrono::steady_clock;

  enum class Door { kClosed, kOpening, kOpen, kClosing };  // as the relay's commands left it

  static constexpr size_t kMaxBlockFrames = 8;

  SoakPort(std::string name, const std::string& path, uint8_t number, Plan& plan);

  const std::string& Name() const { return name; }
  const std::string& Path() const { return device.Path(); }

  Door State() const { return door; }
  bool IsPlugged() const { return device.FarEnd() != -1; }
  bool IsUp() const { return door == Door::kOpen && isLineOpen && IsPlugged(); }
  bool MayOpen() const { return door == Door::kClosed && IsPlugged() && Clock::now() >= openAt; }

  // What the service tells: that it has opened the device, and has answered the command.
  void LineOpens();
  void Opens();
  void Closes(Clock::duration openAfter);

  // What is done to it.
  void AsksToOpen() { door = Door::kOpening; }
  void AsksToClose();
  void LosesLink(Clock::duration openAfter);
  void Unplugs(Clock::duration plugAfter);

  // The device reads, sends, and comes back when its time is there.
  void Tick(bool sends);

  // What the relay has received from the port.
  void FromDeviceArrives(const std::string& bytes) { fromDevice.Arrives(bytes); }

  // True once when the port has not been up for so long.
  bool IsDownFor(Clock::duration time);

  // The next data command's bytes at the pace of the line; empty when it is too early.
  std::string NextCommand();

  // How often the device had to wait as its line took no more.
  uint64_t Waits() const { return waits; }

  const CheckedStream& FromDevice() const { return fromDevice; }
  const CheckedStream& ToDevice() const { return toDevice; }

 private:
  void BorderBegins(size_t repeatable);
  void BorderMayEnd();
  void Send(bool more);

  const std::string name;
  Plan& plan;
  Device device;
  CheckedStream fromDevice;
  CheckedStream toDevice;
  Door door = Door::kClosed;
  bool isLineOpen = false;  // since the last border
  Clock::time_point lastUp = Clock::now();
  Clock::time_point plugAt;
  Clock::time_point openAt;
  Pace devicePace;
  Pace relayPace;
  size_t deviceChunk = 1;
  std::string unsent;  // the device's
  uint64_t waits = 0;
};
