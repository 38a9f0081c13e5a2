// SPDX-License-Identifier: MIT
// Scenarios in which one relay does one thing after the other, and what they have in common.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "simulation/Relay.h"
#include "simulation/Scenario.h"

namespace simulation {

inline const relay::Port kUart = relay::Port::FromText("#PhysicalPort0");
inline const relay::Port kUsb = relay::Port::FromText("#USBSerialPort0");
constexpr const char* kUartNode = "/dev/ttyS2";
constexpr const char* kUsbNode = "/dev/ttyUSB0";

void Expect(Kernel& kernel, const std::string& expected, const std::string& found);

// As Relay::Answer tells it.
std::string Reply(const char* verb, const relay::Port& port, int status);

// What has to be answered with 0.
void Open(Machine& machine, Relay& relay, const relay::Port& port);
void Close(Machine& machine, Relay& relay, const relay::Port& port);

void EndService(Machine& machine);

// What the service has for as long as it runs.
struct Holdings {
  size_t descriptors = 0;
  size_t threads = 0;
  bool IsWithin(const Holdings& limit) const {
    return descriptors <= limit.descriptors && threads <= limit.threads;
  }
};
Holdings HeldBy(Machine& machine);
// No more, and that in a while: a thread that was given up on takes its time, also where the limit
// was taken, and may stall for seven seconds more than once.
void ExpectHeld(Machine& machine, const Holdings& limit);

// Who connects before the service has noticed the end of the earlier link, waits for an accept that
// does not come, and is reset: it tries until there is an answer.
std::string AnswerOfNextLink(Kernel& kernel, Relay& relay, std::string_view command);

// A device that sends so many times, beside all else.
constexpr std::string_view kStreamed = "what a device sends all the time";
void Stream(Machine& machine, const std::shared_ptr<Line>& line, size_t pieces);

// `play` begins when the service has a link and has settled.
Scenario Script(std::string name, std::vector<std::string> endings,
                std::function<void(Machine&, Relay&)> play);

// The same of one that goes on so long that not every schedule of it can be played.
Scenario LongScript(std::string name, std::vector<std::string> endings,
                    std::function<void(Machine&, Relay&)> play);

}  // namespace simulation
