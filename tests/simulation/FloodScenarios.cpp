// SPDX-License-Identifier: MIT
// More comes from the devices than the relay takes.
#include <array>

#include "simulation/Scripts.h"

namespace simulation {
namespace {

constexpr size_t kPieces = 10;

// Two devices send at once, and the relay has room for less than a packet.
void FloodSlowRelay(Machine& machine, Relay& relay) {
  const auto uart = machine.Plug(kUartNode);
  const auto usb = machine.Plug(kUsbNode);
  machine.Place(0, kUsbNode);
  Open(machine, relay, kUart);
  Open(machine, relay, kUsb);
  relay.TakesAtOnce(50);
  Stream(machine, uart, kPieces);
  Stream(machine, usb, kPieces);
}

void ARelayThatReadsSlowly(Machine& machine, Relay& relay) {
  FloodSlowRelay(machine, relay);
  relay.AwaitData(2 * kPieces * kStreamed.size());
  EndService(machine);
}

void ARelayThatDoesNotRead(Machine& machine, Relay& relay) {
  Kernel& kernel = machine.kernel;
  FloodSlowRelay(machine, relay);
  kernel.Sleep(kSecond);
  relay.Send(CloseCommand(kUart));
  kernel.Sleep(static_cast<Time>(kernel.Choice().Draw(4000)) * kMillisecond);
  if (kernel.Choice().Draw(2) == 0) {
    relay.Reset();
    (void)AnswerOfNextLink(kernel, relay, OpenCommand(kUart));
  }
  EndService(machine);
}

struct Sender {
  relay::Port port;
  const char* node;
  std::string bytes = {};  // all that it is going to send
};

// No two senders have a byte in common, and no two that follow each other are the same.
std::array<Sender, 3> Senders() {
  std::array<Sender, 3> senders = {{{kUart, kUartNode},
                                    {kUsb, kUsbNode},
                                    {relay::Port::FromText("#USBSerialPort1"), "/dev/ttyUSB1"}}};
  for (size_t i = 0; i < senders.size(); ++i) {
    for (size_t n = 0; n < 1000; ++n) {
      senders[i].bytes += static_cast<char>(i * 64 + n % 61);
    }
  }
  return senders;
}

void Feed(Kernel& kernel, const std::shared_ptr<Line>& line, const std::string& bytes) {
  (void)kernel.Spawn("device", false, [&kernel, line, bytes] {
    for (size_t at = 0; at < bytes.size();) {
      const size_t count = 1 + kernel.Choice().Draw(100);
      line->DeviceSends(std::string_view(bytes).substr(at, count));
      at += count;
      kernel.Sleep(static_cast<Time>(kernel.Choice().Draw(50)) * kMillisecond);
    }
  });
}

// Nothing is lost and nothing changes its order, however long all the senders are held up.
void ARelayThatReadsNothingForAWhile(Machine& machine, Relay& relay) {
  Kernel& kernel = machine.kernel;
  const std::array<Sender, 3> senders = Senders();
  machine.Place(0, senders[1].node);
  machine.Place(1, senders[2].node);
  std::array<std::shared_ptr<Line>, senders.size()> lines;
  for (size_t i = 0; i < senders.size(); ++i) {
    lines[i] = machine.Plug(senders[i].node);
    Open(machine, relay, senders[i].port);
  }
  relay.TakesAtOnce(150);
  for (size_t i = 0; i < senders.size(); ++i) {
    Feed(kernel, lines[i], senders[i].bytes);
  }
  kernel.Sleep(30 * kSecond);
  relay.AwaitData(senders.size() * senders[0].bytes.size());
  for (const Sender& sender : senders) {
    std::string came = relay.data;
    std::erase_if(came, [&](char byte) { return sender.bytes.find(byte) == std::string::npos; });
    if (came != sender.bytes) {
      kernel.Defect("of " + sender.port.Text() + " other bytes came than were sent");
    }
  }
  EndService(machine);
}

// The relay sends no more and reads nothing, but its end stays open: a notification waits in send,
// and whoever else has received something waits behind it. The next link has all it needs.
void HalfCloseUnderFlood(Machine& machine, Relay& first, bool isSecondPortOpen) {
  Kernel& kernel = machine.kernel;
  const auto uart = machine.Plug(kUartNode);
  const auto usb = machine.Plug(kUsbNode);
  machine.Place(0, kUsbNode);
  Open(machine, first, kUart);
  std::array<Relay, 2> next = {Relay(machine), Relay(machine)};
  Relay* relay = &first;
  for (Relay& later : next) {
    if (isSecondPortOpen) {
      Open(machine, *relay, kUsb);
      Stream(machine, usb, kPieces);
    }
    relay->TakesAtOnce(50);
    Stream(machine, uart, kPieces);
    kernel.Sleep(kSecond);
    relay->Finish();
    Expect(kernel, Reply("open", kUart, 0), AnswerOfNextLink(kernel, later, OpenCommand(kUart)));
    uart->DeviceSends("for the next link");
    later.AwaitData(1);
    relay = &later;
  }
  EndService(machine);
}

void HalfCloseUnderAFlood(Machine& machine, Relay& relay) {
  HalfCloseUnderFlood(machine, relay, false);
}

void HalfCloseUnderTwoFloods(Machine& machine, Relay& relay) {
  HalfCloseUnderFlood(machine, relay, true);
}

}  // namespace

std::vector<Scenario> FloodScenarios() {
  return {
      LongScript("a-relay-that-reads-slowly", {"exit 0"}, ARelayThatReadsSlowly),
      Script("a-relay-that-does-not-read", {"exit 0", "exit 255"}, ARelayThatDoesNotRead),
      LongScript("a-relay-that-reads-nothing-for-a-while", {"exit 0"},
                 ARelayThatReadsNothingForAWhile),
      LongScript("half-close-under-a-flood", {"exit 0"}, HalfCloseUnderAFlood),
      LongScript("half-close-under-two-floods", {"exit 0"}, HalfCloseUnderTwoFloods),
  };
}

}  // namespace simulation
