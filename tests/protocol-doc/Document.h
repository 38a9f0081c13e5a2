// SPDX-License-Identifier: MIT
// The examples of docs/protocol.md. They stand in fenced blocks, "```KIND Name":
//
//   packets       packets in either direction, each correct by itself
//   refused       packets that the service refuses
//   conversation  what happens one thing after the other, from a fresh link on
//
// Each line of such a block is one step:
//
//   > HEX  # words               the relay sends a packet
//   < HEX  # words               the service sends a packet
//   /dev/ttyS2 > HEX  # "text"   the service writes to the line
//   /dev/ttyS2 < HEX  # "text"   the device at the other end sends
//   = words                      how the machine is set up
//   ! words                      how it ends
//
// A "```text" block holds no example.
#pragma once

#include <cstdint>
#include <istream>
#include <string>
#include <vector>

enum class Mark { kToService, kFromService, kToLine, kFromLine, kSetUp, kEnd };

struct Step {
  Mark mark;
  std::string device;          // the node, for what happens on a line
  std::vector<uint8_t> bytes;  // of a packet or on a line
  std::string words;
  size_t line;  // in the document
};

struct Example {
  std::string kind;
  std::string name;
  std::vector<Step> steps;
  size_t line;  // in the document
};

struct Document {
  std::vector<Example> examples;

  // Whatever looks like an example and is none that could be executed.
  std::vector<std::string> problems;

  std::vector<Example> OfKind(const std::string& kind) const;
};

Document ReadDocument(std::istream& text);

// docs/protocol.md; one problem and no example when it cannot be read.
Document ReadProtocolDocument();
