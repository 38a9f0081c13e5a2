// SPDX-License-Identifier: MIT
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

#include "machine/ProcessTable.h"

// Which lines a look may open for a moment. Opening one that nobody has open raises its DTR.
enum class LineAccess { kNone, kOpenOnes, kAll };

// What the file system tells about a device node. Nothing here opens it.
struct TerminalNode {
  bool exists = false;
  bool isCharacterDevice = false;
  bool mayBeOpened = false;  // by the user who asks: for reading and writing
  std::string target;        // where the path leads, when it is a symbolic link
  dev_t number = 0;
  uid_t owner = 0;
  gid_t group = 0;
  mode_t mode = 0;

  std::string Owner() const;  // the user's name, else the number
  std::string Group() const;
  std::string Permissions() const;  // "root:dialout 0660"
};

TerminalNode InspectNode(const std::string& path);

// Whether the node's permissions let `process` read and write it.
bool MayOpen(const TerminalNode& node, const Process& process);

// The user's name, else the number.
std::string UserName(uid_t user);
std::string CurrentUser();

// What sysfs tells about the terminal with this number. `sys`: the folder, "/sys" but for tests.
struct TerminalHardware {
  std::string name;                  // the kernel's: "ttyUSB0"; empty: sysfs does not know it
  std::string driver;                // "ftdi_sio", "serial8250"
  std::optional<int> latencyMillis;  // the adapter's latency timer
  std::optional<int> uartType;       // of an on-board UART; 0: no chip answers there
};
TerminalHardware InspectHardware(dev_t number, const std::string& sys = "/sys");

// How often each has happened since the driver has had the device.
struct LineCounters {
  int received = 0;
  int sent = 0;
  int framing = 0;
  int parity = 0;
  int breaks = 0;
  int overrun = 0;        // the chip lost bytes that nobody fetched in time
  int bufferOverrun = 0;  // the kernel lost bytes that nobody read in time
};

// How far the line has come. Two different ones: it has sent something.
struct LineProgress {
  int waiting = 0;      // bytes in the driver
  int sent = 0;         // 0 when the driver does not count
  bool isTold = false;  // false of a pseudo-terminal, whose buffer never seems to have any

  bool operator==(const LineProgress&) const = default;
};

// Opens the node for a moment, without waiting; for a node that somebody has open.
std::optional<LineProgress> ReadProgress(const std::string& path);

// Opens the node for a moment, without waiting, which raises DTR and RTS when nobody else has it
// open. Nothing when it cannot be opened or the driver does not count.
std::optional<LineCounters> ReadCounters(const std::string& path);
