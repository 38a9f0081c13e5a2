// SPDX-License-Identifier: MIT
#include "simulation/Scripts.h"

#include <csignal>
#include <utility>

namespace simulation {

void Expect(Kernel& kernel, const std::string& expected, const std::string& found) {
  if (expected != found) {
    kernel.Defect("expected \"" + expected + "\", found \"" + found + "\"");
  }
}

std::string Reply(const char* verb, const relay::Port& port, int status) {
  return std::string(verb) + " " + port.Text() + " " + std::to_string(status);
}

void Open(Machine& machine, Relay& relay, const relay::Port& port) {
  Expect(machine.kernel, Reply("open", port, 0), relay.Answer(OpenCommand(port)));
}

void Close(Machine& machine, Relay& relay, const relay::Port& port) {
  Expect(machine.kernel, Reply("close", port, 0), relay.Answer(CloseCommand(port)));
}

void EndService(Machine& machine) { machine.kernel.SendToProcess(SIGTERM); }

Holdings HeldBy(Machine& machine) {
  return {machine.descriptors.Open().size(), machine.kernel.LivingThreads()};
}

void ExpectHeld(Machine& machine, const Holdings& limit) {
  Kernel& kernel = machine.kernel;
  (void)kernel.Wait([&] { return HeldBy(machine).IsWithin(limit); }, kernel.Now() + 30 * kSecond,
                    Waits::kThrough);
  const Holdings held = HeldBy(machine);
  if (!held.IsWithin(limit)) {
    kernel.Defect(std::to_string(held.descriptors) + " descriptors and " +
                  std::to_string(held.threads) + " threads, in the place of " +
                  std::to_string(limit.descriptors) + " and " + std::to_string(limit.threads));
  }
}

std::string AnswerOfNextLink(Kernel& kernel, Relay& relay, std::string_view command) {
  std::string answer;
  do {
    kernel.Sleep(100 * kMillisecond);
    relay.Connect();
    answer = relay.Answer(command);
  } while (answer == "reset" || answer == "end");
  return answer;
}

void Stream(Machine& machine, const std::shared_ptr<Line>& line, size_t pieces) {
  Kernel& kernel = machine.kernel;
  (void)kernel.Spawn("device", false, [&kernel, line, pieces] {
    for (size_t i = 0; i < pieces; ++i) {
      line->DeviceSends(kStreamed);
      kernel.Sleep(static_cast<Time>(kernel.Choice().Draw(100)) * kMillisecond);
    }
  });
}

Scenario Script(std::string name, std::vector<std::string> endings,
                std::function<void(Machine&, Relay&)> play) {
  return {std::move(name),
          [play = std::move(play)](Machine& machine) {
            (void)machine.kernel.Spawn("relay", false, [&machine, play] {
              Relay relay(machine);
              relay.Connect();
              machine.kernel.Sleep(kSecond / 2);  // so that it has begun
              play(machine, relay);
              machine.kernel.Wait([] { return false; }, kForever, Waits::kThrough);
            });
          },
          std::move(endings), true};
}

Scenario LongScript(std::string name, std::vector<std::string> endings,
                    std::function<void(Machine&, Relay&)> play) {
  Scenario scenario = Script(std::move(name), std::move(endings), std::move(play));
  scenario.isShort = false;
  return scenario;
}

}  // namespace simulation
