// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "log/LogRecord.h"

// What the service has written, from where it stands, as records.
class LogStream {
 public:
  using Taker = std::function<void(const LogRecord&)>;

  virtual ~LogStream() = default;

  // Has something to be read, or has ended, when poll says so.
  virtual int Descriptor() const = 0;

  // Blocks until there is something, and gives the records of what there is. False at the end,
  // behind which there is nothing more.
  virtual bool Read(const Taker& taker) = 0;
};

// All of these throw relay::Error when it cannot be read. `follow`: the end never comes; a file is
// followed by its name, also where another one takes its place or it is emptied. Only of a plain
// file or the journal.

// "-" is standard input.
std::unique_ptr<LogStream> LogOfFile(const std::string& path, bool follow);

// What systemd's journal has of a unit, and of this user's right to see.
std::unique_ptr<LogStream> LogOfUnit(const std::string& unit, bool follow);

constexpr const char* kServiceUnit = "serial-port-handler";
