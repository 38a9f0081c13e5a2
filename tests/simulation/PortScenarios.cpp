// SPDX-License-Identifier: MIT
#include "simulation/Scripts.h"

namespace simulation {
namespace {

void AnOrdinaryDay(Machine& machine, Relay& relay) {
  Kernel& kernel = machine.kernel;
  const auto line = machine.Plug(kUartNode);
  Expect(kernel, Reply("open", kUart, 0), relay.Answer(OpenCommand(kUart)));
  line->DeviceSends("from the device");
  relay.AwaitData(15);
  relay.Send(DataCommand(kUart, {{1, "to the device"}}));
  Expect(kernel, Reply("close", kUart, 0), relay.Answer(CloseCommand(kUart)));
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
  Expect(kernel, Reply("open", kUart, 0), relay.Answer(OpenCommand(kUart)));
  relay.Send(DataCommand(kUart, {{1, std::string(5000, 'w')}}));
  machine.Unplug(kUartNode, *line);
  kernel.Sleep(kMillisecond / 2);  // the write is offered again all the time
  machine.Plug(kUartNode)->room = 100000;
  kernel.Sleep(2 * kSecond);
  Expect(kernel, Reply("close", kUart, 0), relay.Answer(CloseCommand(kUart)));
  EndService(machine);
}

void CloseAgainstReopen(Machine& machine, Relay& relay) {
  Kernel& kernel = machine.kernel;
  const auto line = machine.Plug(kUartNode);
  Expect(kernel, Reply("open", kUart, 0), relay.Answer(OpenCommand(kUart)));
  machine.Unplug(kUartNode, *line);
  kernel.Sleep(kSecond);
  const auto next = machine.Plug(kUartNode);
  next->openTakes = static_cast<Time>(kernel.Choice().Draw(700)) * kMillisecond;
  kernel.Sleep(static_cast<Time>(kernel.Choice().Draw(700)) * kMillisecond);
  Expect(kernel, Reply("close", kUart, 0), relay.Answer(CloseCommand(kUart)));
  kernel.Sleep(5 * kSecond);
  if (next->opens != 0) {
    kernel.Defect("a closed port holds its line");
  }
  EndService(machine);
}

void CloseAgainstSlowOpen(Machine& machine, Relay& relay) {
  Kernel& kernel = machine.kernel;
  const auto line = machine.Plug(kUartNode);
  Expect(kernel, Reply("open", kUart, 0), relay.Answer(OpenCommand(kUart)));
  machine.Unplug(kUartNode, *line);
  const auto next = machine.Plug(kUartNode);
  next->openTakes = 4 * kSecond;
  kernel.Sleep(kSecond);
  Expect(kernel, Reply("close", kUart, 0), relay.Answer(CloseCommand(kUart)));
  kernel.Sleep(10 * kSecond);
  if (next->opens != 0) {
    kernel.Defect("a closed port holds its line");
  }
  EndService(machine);
}

void TwoPortsWithTraffic(Machine& machine, Relay& relay) {
  Kernel& kernel = machine.kernel;
  const auto uart = machine.Plug(kUartNode);
  const auto usb = machine.Plug(kUsbNode);
  machine.Place(0, kUsbNode);
  Expect(kernel, Reply("open", kUart, 0), relay.Answer(OpenCommand(kUart)));
  Stream(machine, uart, 20);
  Stream(machine, usb, 20);
  for (int i = 0; i < 3; ++i) {
    Expect(kernel, Reply("open", kUsb, 0), relay.Answer(OpenCommand(kUsb)));
    Expect(kernel, Reply("close", kUsb, 0), relay.Answer(CloseCommand(kUsb)));
  }
  Expect(kernel, Reply("close", kUart, 0), relay.Answer(CloseCommand(kUart)));
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
      Script("two-ports-with-traffic", {"exit 0"}, TwoPortsWithTraffic),
  };
}

}  // namespace simulation
