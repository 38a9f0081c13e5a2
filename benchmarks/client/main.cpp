// SPDX-License-Identifier: MIT
// Starts one bridge, measures over it what it is told to, ends it, and prints the figures as one
// JSON object. Runs inside a sandbox: it makes device nodes, and uses TCP ports from 60004 on.
#include <unistd.h>

#include <algorithm>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "client/Bridge.h"
#include "client/Figures.h"
#include "client/Line.h"
#include "client/Measures.h"
#include "client/OneProcessor.h"
#include "client/Peer.h"

namespace {

constexpr uint16_t kFirstTcpPort = 60004;
constexpr unsigned kTimeLimitSeconds = 60;

constexpr const char* kUsage =
    "usage: bridge-client [OPTION]... -- PROGRAM [ARGUMENT]...\n"
    "  --packets      the bridge speaks packets, on one connection\n"
    "  --each         one process per serial port; its arguments' {device} and {port} are filled\n"
    "                 in; otherwise {all} stands for DEVICE PORT DEVICE PORT...\n"
    "  --ports N      serial ports, 1 to 7: ttyS2, and then those that udevadm finds\n"
    "  --errors FILE  where the bridge's standard error goes\n"
    "  --scale N      per cent of the usual number of messages\n"
    "  --measure WHAT all, messages (of that), idle, open, in, out, ports, commands, unread\n";

struct Options {
  bool packets = false;
  bool each = false;
  size_t ports = 1;
  std::string errors = "/dev/null";
  int scale = 100;
  std::string measure = "all";
  std::vector<std::string> command;
};

Options OptionsOf(const std::vector<std::string>& words) {
  Options options;
  size_t i = 0;
  const auto value = [&]() -> const std::string& { return words.at(++i); };
  for (; i < words.size() && words[i] != "--"; ++i) {
    if (words[i] == "--packets") {
      options.packets = true;
    } else if (words[i] == "--each") {
      options.each = true;
    } else if (words[i] == "--ports") {
      options.ports = std::stoul(value());
    } else if (words[i] == "--errors") {
      options.errors = value();
    } else if (words[i] == "--scale") {
      options.scale = std::stoi(value());
    } else if (words[i] == "--measure") {
      options.measure = value();
    } else {
      throw std::invalid_argument(kUsage);
    }
  }
  if (i + 1 >= words.size()) {
    throw std::invalid_argument(kUsage);
  }
  options.command.assign(words.begin() + static_cast<ptrdiff_t>(i) + 1, words.end());
  return options;
}

std::string DeviceOf(size_t port) {
  return port > 0 ? "/dev/ttyUSB" + std::to_string(port - 1) : "/dev/ttyS2";
}

std::string NameOf(size_t port) {
  return port > 0 ? "#USBSerialPort" + std::to_string(port - 1) : "#PhysicalPort0";
}

std::string PortText(size_t port) { return std::to_string(kFirstTcpPort + port); }

void Replace(std::string& text, const std::string& mark, const std::string& replacement) {
  const size_t at = text.find(mark);
  if (at != std::string::npos) {
    text.replace(at, mark.size(), replacement);
  }
}

void StartBridge(const Options& options, Bridge& bridge) {
  if (options.each) {
    for (size_t port = 0; port < options.ports; ++port) {
      std::vector<std::string> words = options.command;
      for (std::string& word : words) {
        Replace(word, "{device}", DeviceOf(port));
        Replace(word, "{port}", PortText(port));
      }
      bridge.Start(words, options.errors);
    }
    return;
  }
  std::vector<std::string> words;
  for (const std::string& word : options.command) {
    if (word != "{all}") {
      words.push_back(word);
      continue;
    }
    for (size_t port = 0; port < options.ports; ++port) {
      words.push_back(DeviceOf(port));
      words.push_back(PortText(port));
    }
  }
  bridge.Start(words, options.errors);
}

Plan Scaled(int percent) {
  Plan plan;
  for (int* const count :
       {&plan.latencyRounds, &plan.delayedRounds, &plan.duplexMessages, &plan.bulkBlocks,
        &plan.commands, &plan.idleMilliseconds, &plan.opens, &plan.portRounds, &plan.batches}) {
    *count = std::max(1, *count * percent / 100);
  }
  return plan;
}

// A bridge may flush what waited on the line when it opens that: nothing is written there before a
// byte has come the other way. The last port is the first: where there are several, udevadm finds
// it.
void OpenAll(const std::vector<std::unique_ptr<Line>>& lines, Peer& peer, Clock::time_point begin,
             Figures& figures) {
  for (size_t port = lines.size(); port-- > 0;) {
    if (peer.SpeaksPackets()) {
      peer.Open(port);
    }
    uint8_t byte = 'A';
    peer.Send(port, &byte, 1);
    lines[port]->ReadExactly(&byte, 1);
    if (port + 1 == lines.size()) {
      figures["first_byte_us"] = MicrosecondsSince(begin);
    }
  }
}

// Some data each way through every port, so that what they need is there.
void UseEveryPort(const std::vector<std::unique_ptr<Line>>& lines, Peer& peer) {
  std::vector<uint8_t> sent(Peer::kLargestSend, 'U');
  std::vector<uint8_t> received(sent.size());
  for (int round = 0; round < 16; ++round) {
    for (size_t port = 0; port < lines.size(); ++port) {
      lines[port]->Write(sent.data(), sent.size());
      peer.ReceiveExactly(port, received.data(), received.size());
      peer.Send(port, sent.data(), sent.size());
      lines[port]->ReadExactly(received.data(), received.size());
    }
  }
}

// One direction alone, for a tracer that counts.
void OneWay(const std::string& way, const Line& line, Peer& peer, int messages) {
  std::vector<uint8_t> message(16, 'W');
  for (int i = 0; i < messages; ++i) {
    if (way == "in") {
      line.Write(message.data(), message.size());
      peer.ReceiveExactly(0, message.data(), message.size());
    } else {
      peer.Send(0, message.data(), message.size());
      line.ReadExactly(message.data(), message.size());
    }
  }
}

void MeasureOnOneProcessor(const Bridge& bridge, const Line& line, Peer& peer, const Plan& plan,
                           Figures& figures) {
  const OneProcessor one(bridge);
  MeasureLatency(bridge, line, peer, plan, figures);
  MeasureDelayed(line, peer, plan, figures);
  MeasureBulk(bridge, line, peer, plan, figures);
  MeasureCommands(bridge, line, peer, plan, figures);
}

void MeasureEverything(const Bridge& bridge, const Line& line, Peer& peer, const Plan& plan,
                       Figures& figures) {
  MeasureOnOneProcessor(bridge, line, peer, plan, figures);
  MeasureDuplex(line, peer, plan, figures);
  MeasureIdle(bridge, plan, figures);
}

// What is wanted of a bridge that has all its ports open.
void MeasureOpened(const std::string& what, const Bridge& bridge,
                   const std::vector<std::unique_ptr<Line>>& lines, Peer& peer, const Plan& plan,
                   Figures& figures) {
  if (what == "all") {
    MeasureEverything(bridge, *lines[0], peer, plan, figures);
  } else if (what == "messages") {
    MeasureOnOneProcessor(bridge, *lines[0], peer, plan, figures);
  } else if (what == "idle") {
    MeasureIdle(bridge, plan, figures);
  } else if (what == "ports") {
    const OneProcessor one(bridge);
    MeasurePorts(bridge, lines, peer, plan, figures);
  } else if (what == "commands") {
    MeasureManyCommands(bridge, *lines[0], peer, plan, figures);
  } else if (what == "unread") {
    MeasureUnread(bridge, *lines[0], figures);
  }
}

Figures Measured(const Options& options) {
  std::vector<std::unique_ptr<Line>> lines;
  std::vector<uint16_t> tcpPorts;
  std::vector<std::string> names;
  for (size_t port = 0; port < options.ports; ++port) {
    lines.push_back(std::make_unique<Line>(DeviceOf(port)));
    if (port == 0 || !options.packets) {
      tcpPorts.push_back(static_cast<uint16_t>(kFirstTcpPort + port));
    }
    if (options.packets) {
      names.push_back(NameOf(port));
    }
  }
  const Plan plan = Scaled(options.scale);
  Figures figures;
  Bridge bridge;
  const Clock::time_point begin = Clock::now();
  StartBridge(options, bridge);
  Peer peer(tcpPorts, names);
  figures["startup_us"] = MicrosecondsSince(begin);
  if (options.measure == "open") {
    MeasureOpen(options.ports - 1, peer, plan, figures);
    return figures;
  }
  OpenAll(lines, peer, begin, figures);
  if (options.measure == "in" || options.measure == "out") {
    OneWay(options.measure, *lines[0], peer, plan.latencyRounds);
    return figures;
  }
  UseEveryPort(lines, peer);
  MeasureOpened(options.measure, bridge, lines, peer, plan, figures);
  const Usage usage = bridge.Used();
  figures["memory_kib"] = static_cast<double>(usage.peakMemoryKib);
  figures["threads"] = static_cast<double>(usage.threads);
  return figures;
}

}  // namespace

int main(int argc, char** argv) {
  alarm(kTimeLimitSeconds);  // a bridge that loses a byte must not keep the whole run waiting
  try {
    std::cout << JsonOf(Measured(OptionsOf({argv + 1, argv + argc}))) << std::endl;
  } catch (const std::exception& error) {
    std::cerr << "bridge-client: " << error.what() << '\n';
    return 1;
  }
}
