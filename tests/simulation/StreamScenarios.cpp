// SPDX-License-Identifier: MIT
// Standard streams that are not read, or slowly.
#include <sstream>

#include "simulation/Scripts.h"

namespace simulation {

// Before the service starts: the log goes to standard error, of which nobody reads anything.
void LeaveTheLogUnread(Machine& machine) {
  machine.environment.erase("KXLOGGER_FILE");
  machine.errors->takesAll = false;
  machine.errors->limit = 1;
  machine.losesErrors = true;
}

// A text is lost here only by a thread that is held up itself.
void ReadErrorsSlowly(Machine& machine) {
  machine.losesErrors = true;
  machine.errors->takesAll = false;
  machine.errors->limit = 1;
  Kernel& kernel = machine.kernel;
  (void)kernel.Spawn("reader", false, [&machine, &kernel] {
    for (;;) {
      const size_t waiting = machine.errors->Waiting();
      (void)machine.errors->Take(waiting == 0 ? 0 : 1 + kernel.Choice().Draw(waiting));
      kernel.Sleep(20 * kMillisecond);
    }
  });
}

namespace {

void ALogThatNobodyReads(Machine& machine, Relay& relay) {
  const auto line = machine.Plug(kUartNode);
  Open(machine, relay, kUart);
  for (int i = 0; i < 3; ++i) {
    line->DeviceSends(std::string(800, 'd'));
    relay.AwaitData(relay.data.size() + 800);
    Expect(machine.kernel, Reply("open", kUart, 3), relay.Answer(OpenCommand(kUart)));
  }
  Close(machine, relay, kUart);
  EndService(machine);
}

// The same, but its reader takes a byte now and then: nobody gives up because nobody reads.
void ReadTheLogByteByByte(Machine& machine) {
  LeaveTheLogUnread(machine);
  (void)machine.errors->Put(std::string(Pipe::kPage, '.'), true);
  Kernel& kernel = machine.kernel;
  (void)kernel.Spawn("reader", false, [&machine, &kernel] {
    for (;;) {
      kernel.Sleep(300 * kMillisecond);
      (void)machine.errors->Take(1);
    }
  });
}

// A line waits five seconds. Whoever is held up meanwhile may take it for a while in which nobody
// has read, or come back later; but neither a tenth nor ten times of it.
void ALogThatIsReadByteByByte(Machine& machine, Relay& relay) {
  Kernel& kernel = machine.kernel;
  const Time before = kernel.Now();
  Expect(kernel, Reply("close", kUart, 2), relay.Answer(CloseCommand(kUart)));
  const Time waited = kernel.Now() - before;
  if (waited < kSecond || waited > 40 * kSecond) {
    kernel.Defect("a line waited for " + std::to_string(waited / kMillisecond) + " ms");
  }
  EndService(machine);
  kernel.Sleep(60 * kSecond);
  EndService(machine);  // one that comes before the service's first look is forgotten
}

// The dumps of two ports' data on a full pipe.
void LinesOfTwoPortsOnAFullStream(Machine& machine, Relay& relay) {
  constexpr size_t kDumps = 8;
  constexpr size_t kBytes = 600;
  Kernel& kernel = machine.kernel;
  const auto uart = machine.Plug(kUartNode);
  const auto usb = machine.Plug(kUsbNode);
  machine.Place(0, kUsbNode);
  Open(machine, relay, kUart);
  Open(machine, relay, kUsb);
  for (size_t i = 0; i < kDumps; ++i) {
    uart->DeviceSends(std::string(kBytes, 'a'));
    usb->DeviceSends(std::string(kBytes, 'b'));
    kernel.Sleep(static_cast<Time>(kernel.Choice().Draw(30)) * kMillisecond);
  }
  relay.AwaitData(2 * kDumps * kBytes);
  std::istringstream lines(machine.errors->text);
  for (std::string line; std::getline(lines, line);) {
    if (line.find("61 ") != std::string::npos && line.find("62 ") != std::string::npos) {
      kernel.Defect("two ports' lines are mixed");
    }
  }
  EndService(machine);
}

Scenario Behind(void (*before)(Machine&), Scenario scenario) {
  scenario.prepare = [before, prepare = std::move(scenario.prepare)](Machine& machine) {
    before(machine);
    prepare(machine);
  };
  return scenario;
}

}  // namespace

std::vector<Scenario> StreamScenarios() {
  return {
      Behind(LeaveTheLogUnread, Script("a-log-that-nobody-reads", {"exit 0"}, ALogThatNobodyReads)),
      Behind(ReadTheLogByteByByte,
             Script("a-log-that-is-read-byte-by-byte", {"exit 0"}, ALogThatIsReadByteByByte)),
      Behind(ReadErrorsSlowly, LongScript("lines-of-two-ports-on-a-full-stream", {"exit 0"},
                                          LinesOfTwoPortsOnAFullStream)),
  };
}

}  // namespace simulation
