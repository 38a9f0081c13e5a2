// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "relay/ByteQueue.h"
#include "serve/DeviceSide.h"
#include "serve/ServedDevice.h"

// How far a recording has been played at a port. It outlives the device, which the recording may
// unplug and plug in. At the end it waits for the next open, and begins anew.
class RecordedSide {
 public:
  RecordedSide(std::vector<RecordedStep> recordedSteps, bool isPlayedFast);

  void PlugIn(const ServedDevice::Line& portLine);
  void Happens(RecordedStep::Kind what);  // kOpened or kClosed
  size_t Take(std::string_view bytes);
  std::string Give(size_t most);
  std::optional<relay::Clock::time_point> Due() const;

 private:
  size_t NextToDo() const;
  void Advance();
  void Done();
  bool HasTaken();

  const std::vector<RecordedStep> steps;
  const bool isFast;
  std::optional<ServedDevice::Line> line;  // from the first PlugIn on
  size_t next = 0;
  relay::Clock::time_point since = relay::Clock::now();  // the step before was done
  size_t given = 0;                                      // of the bytes of the step
  relay::ByteQueue taken;                                // not compared yet
  bool isAway = false;                                   // the recording has unplugged the device
  bool isDifferent = false;
};

// A device out of a recording: sends what it sent there, when what it got there has come.
class RecordedDevice : public ServedDevice {
 public:
  RecordedDevice(const Line& line, std::shared_ptr<RecordedSide> recordedSide);

  void Open() override { side->Happens(RecordedStep::Kind::kOpened); }
  void OpenAgain() override {}
  void Close() override { side->Happens(RecordedStep::Kind::kClosed); }
  size_t Take(std::string_view bytes) override { return side->Take(bytes); }
  std::string Give(size_t most) override { return side->Give(most); }
  std::optional<relay::Clock::time_point> Due() const override { return side->Due(); }

 private:
  const std::shared_ptr<RecordedSide> side;
};
