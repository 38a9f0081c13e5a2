// SPDX-License-Identifier: MIT
#include "simulation/Scripts.h"

namespace simulation {
namespace {

void RelinkAgainstNotification(Machine& machine, Relay& relay) {
  Kernel& kernel = machine.kernel;
  const auto line = machine.Plug(kUartNode);
  Open(machine, relay, kUart);
  line->DeviceSends("of the first link");
  relay.Reset();
  relay.data.clear();
  std::string answer;
  do {  // the old listening socket takes peers until it is closed
    kernel.Sleep(100 * kMillisecond);
    relay.Connect();
    answer = relay.Answer(OpenCommand(kUart));
  } while (answer == "reset" || answer == "end");
  Expect(kernel, Reply("open", kUart, 0), answer);
  Expect(kernel, "", relay.data);
  EndService(machine);
}

void TwoUnpluggedWhileTheLinkBreaks(Machine& machine, Relay& relay) {
  Kernel& kernel = machine.kernel;
  const auto line = machine.Plug(kUartNode);
  const auto usb = machine.Plug(kUsbNode);
  machine.Place(0, kUsbNode);
  Open(machine, relay, kUart);
  Open(machine, relay, kUsb);
  machine.Unplug(kUartNode, *line);
  relay.Reset();
  machine.Unplug(kUsbNode, *usb);
  (void)machine.Plug(kUsbNode);
  Expect(kernel, Reply("open", kUsb, 0), AnswerOfNextLink(kernel, relay, OpenCommand(kUsb)));
  Expect(kernel, Reply("open", kUart, 4), relay.Answer(OpenCommand(kUart)));
  EndService(machine);
}

void ASlowOpenOutlivesItsLink(Machine& machine, Relay& relay) {
  Kernel& kernel = machine.kernel;
  const auto line = machine.Plug(kUartNode);
  const auto usb = machine.Plug(kUsbNode);
  machine.Place(0, kUsbNode);
  line->openTakes = static_cast<Time>(kernel.Choice().Draw(5000)) * kMillisecond;
  relay.Send(OpenCommand(kUart));
  relay.Send(OpenCommand(kUsb));
  kernel.Sleep(static_cast<Time>(kernel.Choice().Draw(300)) * kMillisecond);
  relay.Reset();
  line->openTakes = 0;
  Stream(machine, usb, 5);
  (void)AnswerOfNextLink(kernel, relay, OpenCommand(kUsb));
  (void)relay.Answer(OpenCommand(kUart));
  (void)relay.Answer(CloseCommand(kUart));
  EndService(machine);
}

void ManyRelaysLeaveNothingBehind(Machine& machine, Relay& relay) {
  Kernel& kernel = machine.kernel;
  const auto relink = [&] {
    if (kernel.Choice().Draw(2) == 0) {
      relay.Finish();
    } else {
      relay.Reset();
    }
    Expect(kernel, Reply("close", kUart, 2), AnswerOfNextLink(kernel, relay, CloseCommand(kUart)));
  };
  relink();
  const Holdings before = HeldBy(machine);
  for (int i = 0; i < 8; ++i) {
    relink();
  }
  ExpectHeld(machine, before);
  EndService(machine);
}

void ARelayThatLeavesAtOnce(Machine& machine, Relay& relay) {
  Kernel& kernel = machine.kernel;
  machine.Plug(kUartNode);
  for (int i = 0; i < 3; ++i) {
    relay.Reset();
    kernel.Sleep(static_cast<Time>(kernel.Choice().Draw(400)) * kMillisecond);
    relay.Connect();
  }
  relay.Reset();
  Expect(kernel, Reply("open", kUart, 0), AnswerOfNextLink(kernel, relay, OpenCommand(kUart)));
  kernel.Sleep(kSecond);
  EndService(machine);
}

// The way out does not lead through main's end then: a thread that an open holds is not let go.
void APeerFromElsewhereAgainstASlowOpen(Machine& machine, Relay& relay) {
  constexpr uint16_t kRelayPort = 60004;
  Kernel& kernel = machine.kernel;
  const auto line = machine.Plug(kUartNode);
  Open(machine, relay, kUart);
  machine.Unplug(kUartNode, *line);
  machine.Plug(kUartNode)->openTakes = 60 * kSecond;
  kernel.Sleep(kSecond);
  relay.Reset();
  machine.oracle->MayFail();
  for (;;) {  // the old listening socket takes peers until it is closed
    kernel.Sleep(100 * kMillisecond);
    (void)machine.network.Connect(kRelayPort, INADDR_LOOPBACK + 1);
  }
}

// The port of the link that has ended is closed before the next one can ask for it.
void ResetAgainstOpen(Machine& machine, Relay& relay) {
  Kernel& kernel = machine.kernel;
  const auto line = machine.Plug(kUartNode);
  relay.Send(OpenCommand(kUart));
  relay.Reset();
  Expect(kernel, Reply("open", kUart, 0), AnswerOfNextLink(kernel, relay, OpenCommand(kUart)));
  EndService(machine);
}

}  // namespace

std::vector<Scenario> LinkScenarios() {
  return {
      Script("relink-against-notification", {"exit 0"}, RelinkAgainstNotification),
      Script("two-unplugged-while-the-link-breaks", {"exit 0"}, TwoUnpluggedWhileTheLinkBreaks),
      Script("a-slow-open-outlives-its-link", {"exit 0"}, ASlowOpenOutlivesItsLink),
      Script("reset-against-open", {"exit 0"}, ResetAgainstOpen),
      Script("a-relay-that-leaves-at-once", {"exit 0"}, ARelayThatLeavesAtOnce),
      LongScript("many-relays-leave-nothing-behind", {"exit 0"}, ManyRelaysLeaveNothingBehind),
      Script("a-peer-from-elsewhere-against-a-slow-open", {"exit 255"},
             APeerFromElsewhereAgainstASlowOpen),
  };
}

}  // namespace simulation
