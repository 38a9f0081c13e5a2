// SPDX-License-Identifier: MIT
#include "simulation/Scripts.h"

namespace simulation {
namespace {

void AnOrdinaryDay(Machine& machine, Relay& relay) {
  const auto line = machine.Plug(kUartNode);
  Open(machine, relay, kUart);
  line->DeviceSends("from the device");
  relay.AwaitData(15);
  relay.Send(DataCommand(kUart, {{1, "to the device"}}));
  Close(machine, relay, kUart);
  EndService(machine);
}

void FirstBytesAgainstReply(Machine& machine, Relay& relay) {
  Kernel& kernel = machine.kernel;
  const auto line = machine.Plug(kUartNode);
  kernel.Spawn("device", false, [&kernel, line] {
    (void)kernel.Wait([line] { return line->flushes > 0; }, kForever, Waits::kThrough);
    for (int i = 0; i < 3; ++i) {
      line->DeviceSends("x");
      kernel.Point();
    }
  });
  relay.Send(OpenCommand(kUart));
  Expect(kernel, Reply("open", kUart, 0), relay.Next());
  relay.AwaitData(3);
  EndService(machine);
}

void UnplugAgainstWrite(Machine& machine, Relay& relay) {
  Kernel& kernel = machine.kernel;
  const auto line = machine.Plug(kUartNode);
  Open(machine, relay, kUart);
  relay.Send(DataCommand(kUart, {{1, std::string(5000, 'w')}}));
  machine.Unplug(kUartNode, *line);
  kernel.Sleep(kMillisecond / 2);  // the write is offered again all the time
  machine.Plug(kUartNode)->room = 100000;
  kernel.Sleep(2 * kSecond);
  Close(machine, relay, kUart);
  EndService(machine);
}

// Also an open that was under way has come to its end by then.
void ExpectLetGo(Machine& machine, const Line& line) {
  machine.kernel.Sleep(10 * kSecond);
  if (line.opens != 0) {
    machine.kernel.Defect("a closed port holds its line");
  }
}

void CloseAgainstReopen(Machine& machine, Relay& relay) {
  Kernel& kernel = machine.kernel;
  const auto line = machine.Plug(kUartNode);
  Open(machine, relay, kUart);
  machine.Unplug(kUartNode, *line);
  kernel.Sleep(kSecond);
  const auto next = machine.Plug(kUartNode);
  next->openTakes = static_cast<Time>(kernel.Choice().Draw(700)) * kMillisecond;
  kernel.Sleep(static_cast<Time>(kernel.Choice().Draw(700)) * kMillisecond);
  Close(machine, relay, kUart);
  ExpectLetGo(machine, *next);
  EndService(machine);
}

void CloseAgainstSlowOpen(Machine& machine, Relay& relay) {
  Kernel& kernel = machine.kernel;
  const auto line = machine.Plug(kUartNode);
  Open(machine, relay, kUart);
  machine.Unplug(kUartNode, *line);
  const auto next = machine.Plug(kUartNode);
  next->openTakes = 4 * kSecond;
  kernel.Sleep(kSecond);
  Close(machine, relay, kUart);
  ExpectLetGo(machine, *next);
  EndService(machine);
}

void TwoPortsWithTraffic(Machine& machine, Relay& relay) {
  const auto uart = machine.Plug(kUartNode);
  const auto usb = machine.Plug(kUsbNode);
  machine.Place(0, kUsbNode);
  Open(machine, relay, kUart);
  Stream(machine, uart, 20);
  Stream(machine, usb, 20);
  for (int i = 0; i < 3; ++i) {
    Open(machine, relay, kUsb);
    Close(machine, relay, kUsb);
  }
  Close(machine, relay, kUart);
  EndService(machine);
}

void ManyOpensLeaveNothingBehind(Machine& machine, Relay& relay) {
  machine.Plug(kUartNode);
  machine.Plug(kUsbNode);
  machine.Place(0, kUsbNode);
  const Holdings before = HeldBy(machine);
  for (int i = 0; i < 8; ++i) {
    Open(machine, relay, kUart);
    Open(machine, relay, kUsb);
    Close(machine, relay, kUart);
    Close(machine, relay, kUsb);
  }
  ExpectHeld(machine, before);
  EndService(machine);
}

void CommandsAtOnce(Machine& machine, Relay& relay) {
  Kernel& kernel = machine.kernel;
  const auto line = machine.Plug(kUartNode);
  Stream(machine, line, 3);
  relay.Send(OpenCommand(kUart) + DataCommand(kUart, {{1, "to the device"}}) + CloseCommand(kUart) +
             OpenCommand(kUart) + CloseCommand(kUart));
  for (const char* const verb : {"open", "close", "open", "close"}) {
    Expect(kernel, Reply(verb, kUart, 0), relay.Answer(""));
  }
  EndService(machine);
}

}  // namespace

std::vector<Scenario> PortScenarios() {
  return {
      Script("an-ordinary-day", {"exit 0"}, AnOrdinaryDay),
      Script("first-bytes-against-reply", {"exit 0"}, FirstBytesAgainstReply),
      Script("unplug-against-write", {"exit 0"}, UnplugAgainstWrite),
      Script("close-against-reopen", {"exit 0"}, CloseAgainstReopen),
      Script("close-against-slow-open", {"exit 0"}, CloseAgainstSlowOpen),
      LongScript("commands-at-once", {"exit 0"}, CommandsAtOnce),
      LongScript("two-ports-with-traffic", {"exit 0"}, TwoPortsWithTraffic),
      LongScript("many-opens-leave-nothing-behind", {"exit 0"}, ManyOpensLeaveNothingBehind),
  };
}

}  // namespace simulation
