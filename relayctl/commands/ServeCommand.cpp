// SPDX-License-Identifier: MIT
#include <csignal>
#include <memory>
#include <string>
#include <vector>

#include "CommandLine.h"
#include "ExitStatus.h"
#include "link/Loop.h"
#include "relay/Text.h"
#include "serve/Controls.h"
#include "serve/Desk.h"
#include "serve/PlayedService.h"
#include "serve/Provocation.h"
#include "serve/ServedDevice.h"

namespace {

struct Options {
  std::vector<std::string> ports;
  unsigned listen = 0;
  bool isFast = false;
  std::string onUsr1 = "break";
  std::string onUsr2 = "cable";
};

std::vector<DeviceChoice> Choices(const Options& options) {
  std::vector<DeviceChoice> choices;
  for (const std::string& text : options.ports) {
    choices.push_back(ChooseDevice(text, options.isFast));
    for (size_t i = 0; i + 1 < choices.size(); ++i) {
      if (choices[i].port == choices.back().port) {
        throw relay::Error(relay::ErrorKind::kUsage, "--port: two devices at " + choices[i].port);
      }
    }
  }
  for (const std::string& port :
       options.ports.empty() ? PlayedService::Ports() : std::vector<std::string>()) {
    choices.push_back(ChooseDevice(port + "=echo"));
  }
  return choices;
}

// What a signal will provoke is looked at before it does.
int Serve(const CommonOptions& common, const Options& options) {
  common.RefuseJson("serve");
  (void)Provocation::FromText(options.onUsr1);
  (void)Provocation::FromText(options.onUsr2);
  const std::vector<DeviceChoice> choices = Choices(options);
  Loop loop;
  loop.OnSignal(SIGCHLD, [] {});
  Desk desk(loop, options.listen != 0 ? static_cast<uint16_t>(options.listen) : common.RelayPort(),
            choices);
  Controls controls(loop, desk, options.onUsr1, options.onUsr2);
  desk.TellWhereItListens();
  (void)loop.Run([&] { return desk.Died() || controls.IsOver(); });
  return desk.Died() ? kExitSignal + *desk.Died() : kExitDone;
}

void Add(SubCommand& command, const CommonOptions& common) {
  const auto options = std::make_shared<Options>();
  command.Option("--port", options->ports, "LINE",
                 "A port and its device: '#USBSerialPort0=echo', =pty, =pty:PATH, =exec:COMMAND, "
                 "=recording:FILE; again for each. All ports echo if none is given");
  command.Option("--listen", options->listen, "N",
                 "TCP port to listen on; by the service's configuration if not given", 1);
  command.Flag("--fast", options->isFast, "Play recordings without their pauses");
  command.Option("--usr1", options->onUsr1, "TEXT", "What SIGUSR1 provokes");
  command.Option("--usr2", options->onUsr2, "TEXT", "What SIGUSR2 provokes");
  command.Runs([&common, options] { return Serve(common, *options); });
}

const Registration kRegistration("serve", "Play the service, on a desk without devices", Add);

}  // namespace
