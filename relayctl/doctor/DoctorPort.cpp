// SPDX-License-Identifier: MIT
#include <sys/sysmacros.h>

#include <algorithm>
#include <optional>

#include "doctor/Doctor.h"
#include "doctor/DoctorLine.h"
#include "machine/TerminalDevice.h"
#include "relay/Packet.h"
#include "serial/PortNameResolver.h"
#include "serial/UdevScanner.h"

namespace {

void ExamineSettings(const MachineConfiguration& configuration, Report& report) {
  const ConfiguredPort* const port = configuration.Find(report.subject);
  if (port == nullptr) {
    report.Fault("not configured: an open is answered with status 2",
                 "add a section [" + report.subject +
                     "] with baud, data, parity, stop and flow to " + configuration.path);
    return;
  }
  report.Fact("line", port->Line());
  for (const SettingProblem& problem : port->problems) {
    report.findings.push_back({problem.isFault ? Severity::kFault : Severity::kWarning,
                               "in the configuration: " + problem.text,
                               "correct it in " + configuration.path});
  }
}

// What to plug in where, with the adapters that are elsewhere.
void ExplainAbsence(const Machine& machine, int index, Report& report) {
  std::string elsewhere;
  for (const SerialAdapter& adapter : machine.udev.Adapters()) {
    elsewhere += (elsewhere.empty() ? "" : ", ") + adapter.node + " (" + adapter.vendorId + ":" +
                 adapter.productId + ", " +
                 (adapter.portName.empty() ? "at " + adapter.place : adapter.portName) + ")";
  }
  report.Fault("no serial adapter at this place: an open is answered with status 2",
               std::string("plug one in at ") + UsbPortPlace(index) +
                   (elsewhere.empty() ? "; there is none elsewhere either"
                                      : "; plugged in elsewhere: " + elsewhere));
}

void DescribeAdapter(const Machine& machine, const std::string& node, Report& report) {
  for (const SerialAdapter& adapter : machine.udev.Adapters()) {
    if (adapter.node == node) {
      report.Fact("ids", adapter.vendorId + ":" + adapter.productId);
      report.Fact("vendor", adapter.vendor);
      report.Fact("model", adapter.model);
      report.Fact("serial", adapter.serialNumber);
    } else if (adapter.hiddenBy == node) {
      report.Warning(adapter.node + " is behind the same connector, and no name leads to it",
                     "plug it in at another place");
    }
  }
}

std::string UsbNames() {
  return "#USBSerialPort0 to #USBSerialPort" + std::to_string(kUsbPortCount - 1);
}

// The node that the name leads to; empty when there is none, which is then reported.
std::string Resolve(const Machine& machine, Report& report) {
  const std::optional<int> index = UsbPortIndexOf(report.subject);
  if (!index) {
    std::string node = ResolvePortName(report.subject);
    if (node.empty()) {
      report.Fault("the name leads to no device: an open is answered with status 2",
                   "names are #PhysicalPort0 and " + UsbNames());
    }
    return node;
  }
  const char* const place = UsbPortPlace(*index);
  if (place == nullptr) {
    report.Fault("there is no such place: an open is answered with status 2",
                 "names are " + UsbNames());
    return "";
  }
  report.Fact("row", *index);
  report.Fact("place", place);
  std::string node = machine.udev.NodeOfPort(*index);
  if (!node.empty()) {
    DescribeAdapter(machine, node, report);
  } else if (!machine.udevProblem.empty()) {
    report.Fault("not looked for: " + machine.udevProblem, "install udev");
  } else {
    ExplainAbsence(machine, *index, report);
  }
  return node;
}

// False when there is nothing to look at any further.
bool ExamineNode(const std::string& path, const TerminalNode& node, Report& report) {
  report.Fact("node", path + (node.target.empty() ? "" : " -> " + node.target));
  if (!node.exists) {
    report.Fault("there is no " + path + ": an open is answered with status 4",
                 UsbPortIndexOf(report.subject)
                     ? "udev knows it but the node is missing: is devtmpfs mounted on /dev?"
                     : "the kernel has found no such UART: see \"dmesg | grep tty\", and whether "
                       "8250.nr_uarts is large enough");
    return false;
  }
  if (!node.isCharacterDevice) {
    report.Fault(path + " is no device: an open is answered with status 4",
                 "remove what stands there, and let udev make the node again");
    return false;
  }
  return true;
}

// Packets may name an adapter by its ids, but no port can be opened so.
void ExamineIds(const Machine& machine, Report& report) {
  std::string names;
  for (const SerialAdapter& adapter : machine.udev.Adapters()) {
    if (adapter.vendorId + ":" + adapter.productId == report.subject) {
      report.Fact("node", adapter.node);
      names += adapter.portName.empty() ? "" : " " + adapter.portName;
    }
  }
  report.Fault("ports are opened by name only: an open by ids is answered with status 2",
               names.empty()
                   ? "no adapter with these ids is at a place that has a name; a close or "
                     "data by ids would end the service when none is plugged in at all"
                   : "use the name of its place:" + names);
}

}  // namespace

Report ExaminePort(const Machine& machine, const std::string& name, LineAccess lines) {
  Report report{name};
  if (relay::Port::FromText(name).IsNumbered()) {
    ExamineIds(machine, report);
    return report;
  }
  ExamineSettings(machine.configuration, report);
  const std::string path = Resolve(machine, report);
  if (!path.empty()) {
    const TerminalNode node = InspectNode(path);
    if (ExamineNode(path, node, report)) {
      ExamineLine(machine, path, node, lines, report);
    }
  }
  if (std::all_of(report.findings.begin(), report.findings.end(), [](const Finding& finding) {
        return finding.severity == Severity::kNote || finding.severity == Severity::kGood;
      })) {
    report.Good("nothing stands in the way of this port");
  }
  return report;
}
