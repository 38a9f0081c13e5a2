// SPDX-License-Identifier: MIT
#include <algorithm>
#include <array>
#include <string>
#include <vector>

#include "serial/UsbPlaces.h"
#include "simulation/Races.h"
#include "simulation/Scripts.h"

namespace simulation {
namespace {

constexpr int kSitePorts = 1 + kUsbPortCount;
constexpr Time kHour = 3600 * kSecond;
constexpr int kBurstsOfADay = 8;
constexpr size_t kPieceSize = 200;     // bytes
constexpr size_t kPiecesOfABurst = 5;  // of a burst, each way
constexpr size_t kSlack = 4096;        // bytes of memory

class OrdinarySite {
 public:
  OrdinarySite(Machine& wanted, Relay& peer) : machine(wanted), kernel(wanted.kernel), relay(peer) {
    for (int i = 0; i < kSitePorts; ++i) {
      const std::string usb = std::to_string(i - 1);
      Place& place = places[static_cast<size_t>(i)];
      place.port = i == 0 ? kUart : relay::Port::FromText("#USBSerialPort" + usb);
      place.node = i == 0 ? kUartNode : "/dev/ttyUSB" + usb;
      place.line = machine.Plug(place.node);
      if (i > 0) {
        machine.Place(i - 1, place.node);
      }
    }
    OpenAll();
  }

  // The service holds the same in each week. Memory comes and goes with what is under way at the
  // week's end: the least of many weeks is compared.
  void LiveFor(int days) {
    constexpr int kWeek = 7;
    LiveThroughWeek(std::min(days, kWeek));
    const Holdings held = HeldBy(machine);
    std::vector<size_t> memory;
    for (int left = days - kWeek; left > 0; left -= kWeek) {
      LiveThroughWeek(std::min(left, kWeek));
      ExpectHeld(machine, held);
      memory.push_back(MemoryInUse());
    }
    if (memory.empty()) {
      return;
    }
    const auto weeks = static_cast<std::ptrdiff_t>(memory.size() / 4);
    const size_t first = *std::min_element(memory.begin(), memory.begin() + weeks + 1);
    const size_t last = *std::min_element(memory.end() - weeks - 1, memory.end());
    if (last > first + kSlack) {
      kernel.Defect("memory grows: it was " + std::to_string(first) + " bytes, and is " +
                    std::to_string(last));
    }
  }

 private:
  struct Place {
    relay::Port port;
    std::string node;
    std::shared_ptr<Line> line;
  };

  void LiveThroughWeek(int days) {
    for (int day = 0; day < days; ++day) {
      LiveThroughDay();
    }
    RestartRelay();
    ForgetTexts();
  }

  void LiveThroughDay() {
    const uint64_t unplugged = Draw(kBurstsOfADay);
    for (uint64_t burst = 0; burst < kBurstsOfADay; ++burst) {
      kernel.Sleep(static_cast<Time>(Draw(2 * 24 * 3600 / kBurstsOfADay)) * kSecond);
      Talk();
      if (burst == unplugged) {
        Unplug(places[1 + Draw(kUsbPortCount)]);
      }
    }
  }

  // Each device and the relay send to each other, and all of it arrives.
  void Talk() {
    relay.data.clear();
    for (size_t piece = 0; piece < kPiecesOfABurst; ++piece) {
      for (const Place& place : places) {
        place.line->DeviceSends(std::string(kPieceSize, 'd'));
        relay.Send(DataCommand(place.port, {{1, std::string(kPieceSize, 'r')}}));
      }
      kernel.Sleep(static_cast<Time>(Draw(500)) * kMillisecond);
    }
    relay.AwaitData(kSitePorts * kPiecesOfABurst * kPieceSize);
    for (const Place& place : places) {
      ExpectWritten(*place.line);
    }
  }

  void ExpectWritten(Line& line) {
    (void)kernel.Wait([&line] { return line.output.size() >= kPiecesOfABurst * kPieceSize; },
                      kernel.Now() + 10 * kSecond, Waits::kThrough);
    Expect(kernel, std::string(kPiecesOfABurst * kPieceSize, 'r'), line.DeviceTakes());
  }

  void Unplug(Place& place) {
    machine.Unplug(place.node, *place.line);
    kernel.Sleep(static_cast<Time>(1 + Draw(7200)) * kSecond);
    place.line = machine.Plug(place.node);
    (void)kernel.Wait([&place] { return place.line->opens == 1; }, kernel.Now() + kHour,
                      Waits::kThrough);
    kernel.Sleep(kSecond);  // it is set up as well
  }

  void RestartRelay() {
    relay.Finish();
    Expect(kernel, Reply("open", kUart, 0), AnswerOfNextLink(kernel, relay, OpenCommand(kUart)));
    Close(machine, relay, kUart);
    OpenAll();
  }

  void OpenAll() {
    for (const Place& place : places) {
      Open(machine, relay, place.port);
    }
    kernel.Sleep(kSecond);  // the last one's thread has begun
  }

  // As logrotate and a console's reader do.
  void ForgetTexts() {
    machine.ForgetLog();
    for (Pipe* const pipe : {machine.output.get(), machine.errors.get()}) {
      pipe->Forget();
    }
  }

  uint64_t Draw(uint64_t count) { return kernel.Choice().Draw(count); }

  Machine& machine;
  Kernel& kernel;
  Relay& relay;
  std::array<Place, kSitePorts> places;
};

}  // namespace

Scenario DaysOfASite(int days) {
  Scenario scenario =
      LongScript("days-of-a-site", {"exit 0"}, [days](Machine& machine, Relay& relay) {
        OrdinarySite(machine, relay).LiveFor(days);
        EndService(machine);
      });
  scenario.isCalm = true;
  return scenario;
}

}  // namespace simulation
