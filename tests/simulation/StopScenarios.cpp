// SPDX-License-Identifier: MIT
#include <csignal>

#include "simulation/Scripts.h"

namespace simulation {
namespace {

void StopAgainstOpen(Machine& machine, Relay& relay) {
  machine.Plug(kUartNode);
  Expect(machine.kernel, Reply("close", kUart, 2), relay.Answer(CloseCommand(kUart)));
  relay.Send(OpenCommand(kUart));
  machine.kernel.SendToProcess(SIGTERM);
}

void TwoStopsAgainstData(Machine& machine, Relay& relay) {
  const auto line = machine.Plug(kUartNode);
  Open(machine, relay, kUart);
  line->DeviceSends("from the device");
  machine.kernel.SendToProcess(SIGTERM);
  machine.kernel.SendToProcess(SIGINT);
  relay.Send(DataCommand(kUart, {{1, "to the device"}}));
}

void StopAgainstRelink(Machine& machine, Relay& relay) {
  Kernel& kernel = machine.kernel;
  machine.Plug(kUartNode);
  Open(machine, relay, kUart);
  relay.Finish();
  kernel.Sleep(static_cast<Time>(kernel.Choice().Draw(2600)) * kMillisecond);
  machine.kernel.SendToProcess(SIGTERM);
}

void StopWhenTheNextLinkBegins(Machine& machine, Relay& relay) {
  Kernel& kernel = machine.kernel;
  relay.Reset();
  kernel.Sleep(kSecond);
  relay.Connect();
  for (uint64_t points = kernel.Choice().Draw(40); points > 0; --points) {
    kernel.Point();
  }
  kernel.SendToProcess(SIGTERM);
}

void ASecondSignalInsideTheFirst(Machine& machine, Relay& relay) {
  Kernel& kernel = machine.kernel;
  machine.Plug(kUartNode);
  Open(machine, relay, kUart);
  EndService(machine);
  for (const int signal : {SIGHUP, SIGINT, SIGTERM}) {
    kernel.Point();
    kernel.SendToProcess(signal);
  }
}

// Also when the objects go that the handler uses.
void SignalsUntilTheEnd(Machine& machine, Relay& relay) {
  Kernel& kernel = machine.kernel;
  machine.Plug(kUartNode);
  Open(machine, relay, kUart);
  for (;;) {
    kernel.SendToProcess(kernel.Choice().Draw(2) == 0 ? SIGTERM : SIGHUP);
    kernel.Sleep(static_cast<Time>(kernel.Choice().Draw(1000)) * kMicrosecond);
  }
}

void StopAgainstSearch(Machine& machine, Relay& relay) {
  Kernel& kernel = machine.kernel;
  (void)machine.Plug(kUsbNode);
  machine.Place(0, kUsbNode);
  relay.Send(OpenCommand(kUsb));
  kernel.Sleep(static_cast<Time>(kernel.Choice().Draw(40)) * kMillisecond);
  kernel.SendToProcess(SIGTERM);
}

void StopAgainstClose(Machine& machine, Relay& relay) {
  (void)machine.Plug(kUartNode);
  Open(machine, relay, kUart);
  relay.Send(CloseCommand(kUart));
  EndService(machine);
}

void StopAgainstNotification(Machine& machine, Relay& relay) {
  const auto line = machine.Plug(kUartNode);
  Open(machine, relay, kUart);
  line->DeviceSends("from the device");
  EndService(machine);
}

void StopAgainstReopen(Machine& machine, Relay& relay) {
  Kernel& kernel = machine.kernel;
  const auto line = machine.Plug(kUartNode);
  Open(machine, relay, kUart);
  machine.Unplug(kUartNode, *line);
  machine.Plug(kUartNode)->openTakes = kSecond / 2;
  kernel.Sleep(static_cast<Time>(kernel.Choice().Draw(1600)) * kMillisecond);
  EndService(machine);
}

}  // namespace

std::vector<Scenario> StopScenarios() {
  return {
      Script("stop-against-open", {"exit 0"}, StopAgainstOpen),
      Script("two-stops-against-data", {"exit 0"}, TwoStopsAgainstData),
      Script("stop-against-relink", {"exit 0", "exit 255"}, StopAgainstRelink),
      Script("stop-when-the-next-link-begins", {"exit 0", "exit 255"}, StopWhenTheNextLinkBegins),
      Script("a-second-signal-inside-the-first", {"exit 0"}, ASecondSignalInsideTheFirst),
      Script("stop-against-close", {"exit 0"}, StopAgainstClose),
      Script("stop-against-notification", {"exit 0"}, StopAgainstNotification),
      Script("stop-against-reopen", {"exit 0"}, StopAgainstReopen),
      Script("signals-until-the-end", {"exit 0"}, SignalsUntilTheEnd),
      Script("stop-against-search", {"exit 0"}, StopAgainstSearch),
  };
}

}  // namespace simulation
