// SPDX-License-Identifier: MIT
#include "e2e/support/DeviceByRecording.h"

#include "relay/Recording.h"
#include "relay/Text.h"

namespace {

std::string Play(const Device& device, const std::string& port, const std::string& recording) {
  for (const relay::RecordedEvent& event : relay::ReadRecordingFile(recording)) {
    if (event.kind != relay::RecordedEvent::Kind::kData || event.port.name != port) {
      continue;
    }
    if (event.direction == relay::Direction::kFromService) {
      if (!device.Sends(event.bytes)) {
        return "the line takes nothing";
      }
      continue;
    }
    const std::string came = device.Reads(event.bytes.size());
    if (came != event.bytes) {
      return relay::ToLine(event) + ": came " + relay::Quote(came);
    }
  }
  return "";
}

}  // namespace

DeviceByRecording::DeviceByRecording(const Device& device, const std::string& port,
                                     const std::string& recording)
    : result(std::async(std::launch::async, Play, std::cref(device), port, recording)) {}
