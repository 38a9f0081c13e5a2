// SPDX-License-Identifier: MIT
#include "soak/SoakPort.h"

#include <unistd.h>

#include <algorithm>
#include <utility>
#include <vector>

#include "relay/Packet.h"

namespace {

constexpr size_t kBytesPerSecond = 11520;  // 115200 baud, ten bits each
constexpr size_t kMaxBurst = 4096;
constexpr size_t kMaxChunk = 400;

}  // namespace

size_t Pace::Allowed() {
  const auto passed = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - begin);
  const size_t due = static_cast<size_t>(passed.count()) * kBytesPerSecond / 1000;
  if (due > spent + kMaxBurst) {
    spent = due - kMaxBurst;
  }
  return due > spent ? due - spent : 0;
}

SoakPort::SoakPort(std::string portName, const std::string& path, uint8_t number, Plan& soakPlan)
    : name(std::move(portName)),
      plan(soakPlan),
      device(path),
      fromDevice(name + " from device", static_cast<uint8_t>(number * 2)),
      toDevice(name + " to device", static_cast<uint8_t>(number * 2 + 1)) {}

void SoakPort::BorderBegins(size_t repeatable) {
  isLineOpen = false;
  fromDevice.BorderBegins();
  toDevice.BorderBegins(repeatable);
}

// The service names a device on its standard output once it is open and flushed: what the device
// sends from then on has to arrive. For the relay the port is up when the answer has come, too.
void SoakPort::LineOpens() {
  if (!IsPlugged() || isLineOpen || (door != Door::kOpening && door != Door::kOpen)) {
    return;
  }
  isLineOpen = true;
  fromDevice.BorderEnds();
  if (door == Door::kOpen) {
    toDevice.BorderEnds();
  }
}

void SoakPort::Opens() {
  door = Door::kOpen;
  if (isLineOpen) {
    toDevice.BorderEnds();
  }
}

void SoakPort::Closes(Clock::duration openAfter) {
  door = Door::kClosed;
  openAt = Clock::now() + openAfter;
}

void SoakPort::AsksToClose() {
  BorderBegins(0);
  door = Door::kClosing;
}

void SoakPort::LosesLink(Clock::duration openAfter) {
  BorderBegins(0);
  Closes(openAfter);
}

void SoakPort::Unplugs(Clock::duration plugAfter) {
  BorderBegins(kMaxBlockFrames);
  unsent.clear();
  device.Unplug();
  plugAt = Clock::now() + plugAfter;
}

void SoakPort::Tick(bool sends) {
  if (!IsPlugged()) {
    if (Clock::now() < plugAt) {
      return;
    }
    device.Plug();
  }
  for (std::string bytes; !(bytes = device.ReadsWaiting()).empty();) {
    toDevice.Arrives(bytes);
  }
  Send(sends);
  fromDevice.Looks();
  toDevice.Looks();
}

// In pieces of any size, so that frames are cut anywhere.
void SoakPort::Send(bool more) {
  const size_t allowed = devicePace.Allowed();
  if (more && allowed >= deviceChunk && unsent.size() < allowed) {
    unsent += fromDevice.Frames((allowed - unsent.size() + kFrameBytes - 1) / kFrameBytes);
  }
  const size_t count = std::min(allowed, unsent.size());
  if (count == 0 || (more && allowed < deviceChunk)) {
    return;
  }
  const ssize_t written = write(device.FarEnd(), unsent.data(), count);
  if (written < 1) {
    ++waits;
    return;
  }
  devicePace.Spends(static_cast<size_t>(written));
  unsent.erase(0, static_cast<size_t>(written));
  deviceChunk = plan.Between(1, kMaxChunk);
}

std::string SoakPort::NextCommand() {
  const size_t frames = relayPace.Allowed() / kFrameBytes;
  if (frames < kMaxBlockFrames) {
    return "";
  }
  std::vector<relay::Block> blocks;
  for (size_t left = kMaxBlockFrames; left > 0;) {
    const size_t count = plan.Between(1, left);
    blocks.push_back({1, toDevice.Frames(count)});
    left -= count;
  }
  relayPace.Spends(kMaxBlockFrames * kFrameBytes);
  return relay::DataCommand({name}, blocks);
}

bool SoakPort::IsDownFor(Clock::duration time) {
  const bool isLong = !IsUp() && Clock::now() - lastUp > time;
  if (IsUp() || isLong) {
    lastUp = Clock::now();
  }
  return isLong;
}
