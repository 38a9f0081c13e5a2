// SPDX-License-Identifier: MIT
// One direction of one port: makes the frames that go in at one end, and checks byte for byte what
// comes out at the other.
//
// While port and link are up, the bytes that come out are exactly those that went in: nothing lost,
// nothing doubled, nothing out of order, from the first byte after the port came up.
//
// A border begins with a fault and ends when the port is up again; then a new epoch starts. Bytes
// of the old epoch may be lost between the moment the fault begins and the new epoch's first frame,
// and only there. These are the legitimate reasons:
//   - unplugged: a line that hangs up drops what lies in its buffers, both ways; data commands for
//     a port whose device is away are dropped;
//   - closed and opened: both flush the line, both ways; data commands for a closed port are
//     dropped, and nobody reads what its device sends;
//   - link broken: what was under way between service and relay, and all of the above, as the
//     service closes its ports.
// Old frames never come out of order or twice, with one exception towards the device: a block that
// is being written when the device goes away is offered again, whole, to the device that comes
// back, so that its beginning may come twice: once for each unplugging, and no more than one block.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "soak/Frame.h"

class CheckedStream {
 public:
  using Clock = std::chrono::steady_clock;

  struct Totals {
    uint64_t sentBytes = 0;
    uint64_t arrivedBytes = 0;  // whole frames
    uint64_t borderLostFrames = 0;
    uint64_t borderCutBytes = 0;  // parts of frames that a border cut
    uint64_t borderRepeatedFrames = 0;
    Clock::duration longestGap{};  // without a byte while up, with bytes under way
  };

  // `name` stands in messages.
  CheckedStream(std::string name, uint8_t lane);

  // The next frames to send.
  std::string Frames(size_t count);

  // A fault begins. When the first byte comes twice afterwards, no more than `repeatable` frames
  // do.
  void BorderBegins(size_t repeatable = 0);

  // The port is up: from the next frame on everything arrives.
  void BorderEnds();
  bool IsAtBorder() const { return atBorder; }

  void Arrives(std::string_view bytes);

  // To be called often: a gap that lasts is seen too.
  void Looks();

  // Whether everything that was sent since the last border has arrived.
  bool IsDrained() const { return !atBorder && isInStep && rest.empty() && expected == next; }

  const Totals& Result() const { return totals; }
  const std::vector<std::string>& Defects() const { return defects; }
  const std::string& Name() const { return name; }

 private:
  bool CheckInStep();
  bool FindFrame();
  void StepsIn(const FrameId& found);
  void CountLost(const FrameId& found);
  bool MayBeRepeated(const FrameId& found) const;
  bool IsBorderPast() const { return !atBorder && expected.epoch == next.epoch; }
  void Defect(const std::string& text);

  const std::string name;
  const uint8_t lane;
  FrameId next;                              // to be sent
  std::map<uint32_t, uint32_t> sentOfEpoch;  // frames, from the expected epoch on
  bool atBorder = true;
  bool isInStep = false;
  FrameId expected;  // to arrive
  size_t repeatableFrames = 0;
  std::string rest;  // arrived, not yet a frame
  Clock::time_point lastArrival = Clock::now();
  Totals totals;
  std::vector<std::string> defects;
};
