// SPDX-License-Identifier: MIT
#include "machine/ServiceLog.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "Tool.h"
#include "log/KnownLines.h"
#include "log/LogRecord.h"

namespace {

constexpr const char* kFileVariable = "KXLOGGER_FILE";
constexpr std::string_view kLost = "device-lost";
constexpr std::streamoff kMostOfLog = std::streamoff{256} * 1024;  // of a file, from its end

// A line without a time is one of the console's, or what anybody else has written there.
std::optional<ServiceLogLine> LineFrom(const std::string& text) {
  const LogRecord record = RecordOf(text);
  if (!record.time) {
    return std::nullopt;
  }
  ServiceLogLine line;
  line.time = std::chrono::duration<double>(record.time->time_since_epoch()).count();
  line.isError = record.severity && *record.severity <= LogSeverity::kError;
  line.tellsOfLoss = record.known != nullptr && record.known->event == kLost;
  line.device = record.device;
  line.message = record.what;
  return line;
}

std::string EndOf(const std::string& path) {
  std::ifstream file(path);
  file.seekg(0, std::ios::end);
  const std::streamoff size = file.tellg();
  file.seekg(std::max<std::streamoff>(size - kMostOfLog, 0));
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

void ReadFile(const std::string& path, ServiceLog& log) {
  log.from = path;
  std::error_code error;
  if (!std::filesystem::is_regular_file(path, error)) {
    log.problem = error ? error.message() : "not a plain file";
    return;
  }
  if (!std::ifstream(path)) {
    log.problem = "this user may not read it";
    return;
  }
  log.lines = LogLinesIn(EndOf(path));
}

void ReadJournal(const std::string& unit, ServiceLog& log) {
  log.from = "the journal";
  const ToolOutput journal = RunTool(
      {"journalctl", "--quiet", "--no-pager", "--output=cat", "--lines=2000", "--unit=" + unit});
  log.problem = journal.problem.empty() && journal.text.empty()
                    ? "nothing of it is shown to this user"
                    : journal.problem;
  log.lines = LogLinesIn(journal.text);
}

}  // namespace

const ServiceLogLine* ServiceLog::LastError(double since, const std::string& device) const {
  const auto found = std::find_if(lines.rbegin(), lines.rend(), [&](const ServiceLogLine& line) {
    return line.isError && line.time >= since && (device.empty() || line.device == device);
  });
  return found != lines.rend() ? &*found : nullptr;
}

std::optional<double> ServiceLog::LostAt(const std::string& device, double since) const {
  std::optional<double> time;
  for (const ServiceLogLine& line : lines) {
    if (line.time >= since && line.tellsOfLoss && line.device == device) {
      time = line.time;
    }
  }
  return time;
}

std::vector<std::string> ServiceLog::Lost(double since) const {
  std::vector<std::string> devices;
  for (const ServiceLogLine& line : lines) {
    if (line.time >= since && line.tellsOfLoss &&
        std::find(devices.begin(), devices.end(), line.device) == devices.end()) {
      devices.push_back(line.device);
    }
  }
  return devices;
}

std::vector<ServiceLogLine> LogLinesIn(const std::string& text) {
  std::vector<ServiceLogLine> lines;
  std::istringstream all(text);
  for (std::string one; std::getline(all, one);) {
    if (auto line = LineFrom(one)) {
      lines.push_back(std::move(*line));
    }
  }
  return lines;
}

ServiceLog ReadServiceLog(const RunningService& service, const ServiceUnit& unit) {
  ServiceLog log;
  const auto file = service.environment.find(kFileVariable);
  if (file != service.environment.end() && !file->second.empty()) {
    ReadFile(service.PathOf(file->second), log);
  } else if (!unit.name.empty()) {
    ReadJournal(unit.name, log);
  } else {
    log.problem = !service.process && !service.mayBeHidden
                      ? "no service runs that would tell where it is"
                  : service.mayLookInto ? "the service writes it to its standard error"
                                        : "this user may not see where the service writes it";
  }
  return log;
}
