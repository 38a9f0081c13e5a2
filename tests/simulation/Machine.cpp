// SPDX-License-Identifier: MIT
#include "simulation/Machine.h"

#include <csignal>

#include "serial/UsbPlaces.h"

namespace simulation {
namespace {

constexpr const char* kConfiguration = "/etc/vost.conf";
constexpr const char* kDump = "/tmp/deviceinfo.txt";
constexpr const char* kLog = "/var/log/service";

Machine* ofThisRun = nullptr;

class NullNode : public Node {
 public:
  Result Open(int /*flags*/, std::shared_ptr<File>& opened) override {
    opened = std::make_shared<Null>();
    return 0;
  }
  struct stat Status() const override {
    return StatusOf(S_IFCHR | 0666);
  }
};

// Whoever has opened it reads this one, also when another one is in its place.
class ConfigurationNode : public TextNode {
 public:
  using TextNode::TextNode;
  Result Open(int flags, std::shared_ptr<File>& opened) override {
    Machine::Running()->oracle->Configures(text);
    return TextNode::Open(flags, opened);
  }
};

std::string RecordOf(int index, const std::string& node) {
  return "P: " + std::string(kUsbPlaces[static_cast<size_t>(index)]) +
         "/1:1.0/tty\nN: " + node.substr(sizeof "/dev/" - 1) + "\nE: DEVNAME=" + node +
         "\nE: ID_BUS=usb\nE: ID_VENDOR_ID=0403\nE: ID_MODEL_ID=" + std::to_string(6001 + index) +
         "\n\n";
}

}  // namespace

Machine::Machine(Kernel& threads, const Watched& watched)
    : kernel(threads), oracle(watched(*this)) {
  ofThisRun = this;
  nodes["/dev/null"] = std::make_shared<NullNode>();
  Configure({"#PhysicalPort0", "#USBSerialPort0", "#USBSerialPort1", "#USBSerialPort2",
             "#USBSerialPort3", "#USBSerialPort4", "#USBSerialPort5"});
  nodes[kLog] = std::make_shared<TextNode>();
  environment["KXLOGGER_FILE"] = kLog;
  (void)descriptors.Add(std::make_shared<Null>());
  (void)descriptors.Add(std::make_shared<PipeEnd>(output));
  (void)descriptors.Add(std::make_shared<PipeEnd>(errors));
  nodes["/proc/self/fd/1"] = std::make_shared<PipeNode>(output);
  nodes["/proc/self/fd/2"] = std::make_shared<PipeNode>(errors);
}

Machine* Machine::Running() { return ofThisRun; }

std::shared_ptr<Line> Machine::Plug(const std::string& node) {
  auto line = std::make_shared<Line>(node);
  nodes[node] = std::make_shared<LineNode>(line);
  return line;
}

void Machine::Unplug(const std::string& node, Line& line) {
  kernel.Note("unplugs " + node);
  line.Unplug();
  nodes.erase(node);
}

void Machine::Place(int index, const std::string& node) { placed[index] = node; }

void Machine::Configure(const std::vector<std::string>& ports) {
  std::string text;
  for (const std::string& name : ports) {
    text += "[" + name + "]\nbaud = 115200\ndata = 8\nparity = none\nstop = 1\nflow = none\n";
  }
  nodes[kConfiguration] = std::make_shared<ConfigurationNode>(text);
}

std::string Machine::Log() const { return static_cast<const TextNode&>(*nodes.at(kLog)).text; }

void Machine::ForgetLog() {
  std::string& text = static_cast<TextNode&>(*nodes.at(kLog)).text;
  text.clear();
  text.shrink_to_fit();
}

std::string Machine::Database() const {
  std::string text = "P: /devices/virtual/tty/tty0\nN: tty0\nE: DEVNAME=/dev/tty0\nE: MAJOR=4\n\n";
  for (const auto& [index, node] : placed) {
    text += RecordOf(index, node);
  }
  return text;
}

// A record that is not whole counts as none.
std::map<int, std::string> Machine::PlacesIn(const std::string& database) const {
  std::map<int, std::string> found = placed;
  std::erase_if(found, [&database](const auto& place) {
    return database.find(RecordOf(place.first, place.second)) == std::string::npos;
  });
  return found;
}

// What the service asks of the shell. The first ends with the file that udevadm writes.
int Machine::RunShell(const std::string& command) {
  if (command == std::string("udevadm info --export-db > ") + kDump) {
    auto file = std::make_shared<TextNode>();
    nodes[kDump] = file;
    const bool isSlow = faults.Strike(Fault::kSearchIsSlow);
    kernel.Sleep(isSlow ? static_cast<Time>(kernel.Choice().Draw(10)) * kSecond : dumpTakes);
    file->text = Database();
    const bool fails = faults.Strike(Fault::kSearchFails);
    if (fails) {
      file->text.resize(kernel.Choice().Draw(file->text.size()));
    }
    oracle->Searches(PlacesIn(file->text));
    return fails ? SIGKILL : 0;
  }
  if (command != std::string("rm ") + kDump) {
    kernel.Defect("an unknown command: " + command);
  }
  kernel.Sleep(kMillisecond);
  return nodes.erase(kDump) == 1 ? 0 : 1;
}

}  // namespace simulation
