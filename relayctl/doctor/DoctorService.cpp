// SPDX-License-Identifier: MIT
#include <arpa/inet.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <iterator>
#include <map>
#include <optional>

#include "doctor/Doctor.h"
#include "doctor/DoctorHang.h"
#include "doctor/DoctorProcess.h"
#include "doctor/OpenPorts.h"

namespace {

constexpr uint32_t kLoopback = INADDR_LOOPBACK;

// Where the service's searches dump the udev database.
constexpr const char* kDumpFile = "/tmp/deviceinfo.txt";
constexpr const char* kLogVariable = "KXLOGGER_FILE";
constexpr const char* kPeerFact = "peer";

void ExamineConfiguration(const MachineConfiguration& configuration, Report& report) {
  report.Fact("configuration", configuration.path);
  if (!configuration.exists) {
    report.Fault("there is no configuration: every open is answered with status 2",
                 "write " + configuration.path + " with a section for each port");
  } else if (!configuration.problem.empty() && configuration.ports.empty()) {
    report.Fault("the configuration counts as empty: " + configuration.problem,
                 "mend " + configuration.path);
  } else if (!configuration.problem.empty()) {
    report.Warning("libvost complains: " + configuration.problem, "mend " + configuration.path);
  } else if (configuration.ports.empty()) {
    report.Warning("the configuration has no port",
                   "add a section for each port to " + configuration.path);
  }
}

// What was looked at where, as the service may see other files than the calling user.
void ExamineView(const RunningService& service, Report& report) {
  if (service.mayBeHidden) {
    report.Warning(
        "what the service does, and whether it runs, is not known: this user sees only "
        "processes of its own (hidepid of /proc)",
        "run this as root");
  }
  if (!service.process) {
    return;
  }
  const std::string name = NameOf(*service.process);
  if (!service.mayLookInto) {
    report.Note("the environment and the files of " + name +
                    " may not be looked at by this user: the configuration is what this user's "
                    "environment leads to, and the service may have another",
                "run this as root to see what the service sees");
  }
  const auto log = service.environment.find(kLogVariable);
  if (log != service.environment.end()) {
    report.Fact("log file", log->second);
  }
  for (const Process& other : service.others) {
    report.Note("there is another service, " + NameOf(other), "choose by its port: -p N");
  }
}

void ExamineListener(const Machine& machine, const TcpSocket& listener, Report& report) {
  const ProcessSearch owners = machine.processes.OwnersOf(listener.inode);
  report.Fact("process", NamesOf(owners));
  const bool isOther =
      !owners.found.empty() && std::none_of(owners.found.begin(), owners.found.end(), IsService);
  const std::string where = "127.0.0.1:" + std::to_string(listener.localPort);
  if (isOther) {
    report.Warning(
        NamesOf(owners) + " listens on " + where + ", which is not the service by its name",
        "if it is another program, end it, or configure another relay port");
  } else {
    report.Good("the service listens on " + where);
  }
}

// One that a process has is served; those that nobody has wait in the kernel's queue.
void ExaminePeers(const Machine& machine, const std::vector<TcpSocket>& sockets, uint16_t relayPort,
                  Report& report) {
  std::vector<TcpSocket> links;
  std::copy_if(sockets.begin(), sockets.end(), std::back_inserter(links),
               [relayPort](const TcpSocket& socket) {
                 return socket.localPort == relayPort && socket.state == kTcpEstablished;
               });
  const auto served = std::stable_partition(links.begin(), links.end(),
                                            [](const TcpSocket& link) { return link.inode != 0; });
  for (auto link = links.begin(); link != served; ++link) {
    report.Fact(kPeerFact, machine.processes.NamesOfPeer(*link, sockets));
  }
  std::map<std::string, unsigned> waiting;
  for (auto link = served; link != links.end() && served != links.begin(); ++link) {
    ++waiting[machine.processes.NamesOfPeer(*link, sockets)];
  }
  for (const auto& [names, count] : waiting) {
    report.Warning(names + " is connected as well, " +
                       (count > 1 ? std::to_string(count) + " times, " : "") +
                       "and waits for ever in the queue",
                   "end it; the queue is reset when the service listens anew");
  }
}

// The kernel gives local ports to connections from a range that may hold the relay port.
void ExamineBorrowers(const Machine& machine, const std::vector<TcpSocket>& sockets,
                      uint16_t relayPort, Report& report) {
  const auto borrower =
      std::find_if(sockets.begin(), sockets.end(), [relayPort](const TcpSocket& one) {
        return one.localPort == relayPort && one.localAddress == kLoopback && one.inode != 0;
      });
  if (borrower != sockets.end()) {
    const std::string text = std::to_string(relayPort);
    report.Fault("the service cannot listen: the kernel has given port " + text +
                     " to a connection of " + NamesOf(machine.processes.OwnersOf(borrower->inode)),
                 "end that, and reserve the port: sysctl net.ipv4.ip_local_reserved_ports=" + text);
  }
}

// The service runs as another user, in a folder where nobody may replace the file of somebody else.
// Nothing is said of a /tmp that need not be the service's.
void ExamineDumpFile(const RunningService& service, Report& report) {
  if (service.process && !service.mayLookInto) {
    return;
  }
  const std::string name = service.process ? service.PathOf(kDumpFile) : kDumpFile;
  struct stat file {};
  if (lstat(name.c_str(), &file) != 0) {
    return;
  }
  if (!S_ISREG(file.st_mode)) {
    report.Fault(name + " is no plain file: no USB port can be found", "remove it: rm -r " + name);
  } else {
    report.Note(
        name + " is there: a search is running, or somebody has left it",
        "if it stays, remove it: another user's file there keeps USB ports from being found");
  }
}

}  // namespace

Report ExamineService(const Machine& machine, uint16_t relayPort) {
  Report report{"service"};
  ExamineConfiguration(machine.configuration, report);
  report.Fact("relay port", relayPort);
  ExamineView(machine.service, report);
  const std::vector<TcpSocket> sockets = machine.processes.TcpSockets();
  const auto listener = std::find_if(sockets.begin(), sockets.end(), [&](const TcpSocket& socket) {
    return socket.state == kTcpListening && socket.localPort == relayPort &&
           (socket.localAddress == kLoopback || socket.localAddress == INADDR_ANY);
  });
  if (listener != sockets.end()) {
    ExamineListener(machine, *listener, report);
    ExaminePeers(machine, sockets, relayPort, report);
  } else {
    report.Fault("nothing listens on 127.0.0.1:" + std::to_string(relayPort),
                 "start the service: systemctl start serial-port-handler");
    ExamineBorrowers(machine, sockets, relayPort, report);
  }
  // In front of what it brings about: that the service hangs.
  ExamineDumpFile(machine.service, report);
  ExamineActivity(machine, report);
  ExamineOpenPorts(machine, report);
  ExamineProcess(machine, report);
  if (!machine.udevProblem.empty()) {
    report.Fault("no USB port can be found: " + machine.udevProblem,
                 "install udev; the service runs \"udevadm info --export-db\"");
  }
  return report;
}

void NotePeers(Report& service) {
  const auto facts = service.facts;
  for (const auto& [key, value] : facts) {
    if (key == kPeerFact) {
      service.Note("the relay port is taken by " + std::get<std::string>(value) +
                       ": the service has one peer at a time",
                   "end it before you use another relay; relayctl's commands would wait");
    }
  }
}
