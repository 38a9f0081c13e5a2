// SPDX-License-Identifier: MIT
#include "serial/UdevScanner.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

#include "Linux/CancellationShield.h"
#include "Linux/Command.h"

namespace {

constexpr const char* kDatabaseFile = "/tmp/deviceinfo.txt";
constexpr const char* kDumpCommand = "udevadm info --export-db";
constexpr off_t kSmallestDump = 100;  // bytes; less is an error message, not a database

constexpr std::string_view kRawUsbNode = "/dev/bus";
constexpr std::string_view kUsbBus = "usb";

// Longer lines are read in pieces of this size, each taken for a line.
constexpr size_t kLineSize = 1022;

struct PropertyKey {
  std::string_view key;
  char (UdevRecord::*field)[kUdevTextSize];
};

constexpr PropertyKey kPropertyKeys[] = {
    {"E: ID_VENDOR_ID=", &UdevRecord::vendorId}, {"E: ID_MODEL_ID=", &UdevRecord::modelId},
    {"E: ID_VENDOR=", &UdevRecord::vendor},      {"E: ID_MODEL=", &UdevRecord::model},
    {"E: DEVNAME=", &UdevRecord::devName},       {"E: ID_BUS=", &UdevRecord::bus},
};

enum class ScanState { kPath, kNode, kProperties, kComplete };
enum class Line { kPath, kNode, kEmpty, kOther };

struct Step {
  ScanState state;
  Line line;
  ScanState next;
};

// One udev record, as a state machine over its lines. A pair that is not listed stays in its
// state: noise before the path line is skipped, and only a record with an "N:" line ever reaches
// its properties.
constexpr Step kSteps[] = {
    {ScanState::kPath, Line::kPath, ScanState::kNode},
    {ScanState::kNode, Line::kNode, ScanState::kProperties},
    {ScanState::kNode, Line::kEmpty, ScanState::kComplete},
    {ScanState::kProperties, Line::kEmpty, ScanState::kComplete},
};

ScanState NextState(ScanState state, Line line) {
  for (const Step& step : kSteps) {
    if (step.state == state && step.line == line) {
      return step.next;
    }
  }
  return state;
}

bool EndsText(char character) {
  return character == '\r' || character == '\n' || character == '\0';
}

// `pathPrefix`: only a "P:" line with a path below it counts as a path line.
Line Classify(std::string_view line, std::string_view pathPrefix) {
  if (line.empty() || EndsText(line.front())) {
    return Line::kEmpty;
  }
  if (line.starts_with("P:") &&
      line.substr(std::min<size_t>(3, line.size())).starts_with(pathPrefix)) {
    return Line::kPath;
  }
  return line.starts_with("N:") ? Line::kNode : Line::kOther;
}

void StoreProperties(std::string_view line, UdevRecord& record) {
  for (const PropertyKey& property : kPropertyKeys) {
    if (!line.starts_with(property.key)) {
      continue;
    }
    // As much as a field could hold of the whole line: one zero at least is left behind it.
    std::string_view value = line.substr(property.key.size(), kUdevTextSize - property.key.size());
    value = value.substr(0, value.find_first_of("\r\n"));
    char* const field = record.*property.field;
    std::memcpy(field, value.data(), value.size());
    field[value.size()] = '\0';
  }
}

struct CloseFile {
  void operator()(FILE* file) const {
    const CCancellationShield shield;
    (void)std::fclose(file);  // only read from
  }
};
using File = std::unique_ptr<FILE, CloseFile>;

File OpenDatabase() {
  const CCancellationShield shield;
  return File(std::fopen(kDatabaseFile, "re"));
}

bool DatabaseIsFile(off_t smallest = 0) {
  struct stat file {};
  return stat(kDatabaseFile, &file) == 0 && S_ISREG(file.st_mode) && file.st_size >= smallest;
}

// The next complete record of a device at or below `pathPrefix`. False at the end of the file; a
// last record without an empty line behind it does not count.
bool NextRecord(FILE* file, std::string_view pathPrefix, UdevRecord& record) {
  record = UdevRecord{};
  char buffer[kLineSize];
  ScanState state = ScanState::kPath;
  while (std::fgets(buffer, sizeof buffer, file) != nullptr) {
    const std::string_view line(buffer);
    if (state == ScanState::kProperties) {
      StoreProperties(line, record);
    }
    state = NextState(state, Classify(line, pathPrefix));
    if (state == ScanState::kComplete) {
      return true;
    }
  }
  return false;
}

bool IsRawUsbNode(const UdevRecord& record) {
  return std::string_view(record.devName).starts_with(kRawUsbNode);
}

// A name that does not fit leads nowhere.
int CopyDevName(const UdevRecord& record, char* devName) {
  const size_t length = std::strlen(record.devName);
  if (length >= kDevNameSize) {
    return kDeviceNotFound;
  }
  std::memcpy(devName, record.devName, length + 1);
  return kDeviceFound;
}

std::string FourHexDigits(unsigned id) {
  char text[16] = {};
  (void)std::snprintf(text, sizeof text, "%04x", id);
  return text;
}

}  // namespace

int DumpDeviceDatabase() {
  // The file tells whether it worked.
  (void)RunCommand(std::string(kDumpCommand).append(" > ").append(kDatabaseFile));
  return DatabaseIsFile(kSmallestDump) ? 0 : -1;
}

int RemoveDeviceDatabase() {
  if (!DatabaseIsFile()) {
    return -1;
  }
  (void)RunCommand(std::string("rm ").append(kDatabaseFile));
  return 0;
}

CDeviceDatabase::CDeviceDatabase() { (void)DumpDeviceDatabase(); }

CDeviceDatabase::~CDeviceDatabase() {
  const CCancellationShield shield;
  (void)RemoveDeviceDatabase();
  // The end of the process ends the commands that run, the removal too.
  if (DatabaseIsFile()) {
    (void)unlink(kDatabaseFile);
  }
}

int FindDeviceByPortIndex(int index, char* devName) {
  if (UsbPortPlace(index) == nullptr || devName == nullptr) {
    return kDeviceSearchInvalid;
  }
  const File file = OpenDatabase();
  if (file == nullptr) {
    return kDeviceNotFound;
  }
  return FindDeviceByPortIndex(file.get(), index, devName);
}

int FindDeviceByPortIndex(FILE* database, int index, char* devName) {
  const char* const place = UsbPortPlace(index);
  if (place == nullptr || devName == nullptr) {
    return kDeviceSearchInvalid;
  }
  UdevRecord record;
  while (NextRecord(database, place, record)) {
    if (std::string_view(record.bus).starts_with(kUsbBus) && !IsRawUsbNode(record)) {
      return CopyDevName(record, devName);
    }
  }
  return kDeviceNotFound;
}

const char* UsbPortPlace(int index) {
  return index >= 0 && index < kUsbPortCount ? kUsbPlaces[static_cast<size_t>(index)] : nullptr;
}

int FindDeviceByIds(unsigned vendorId, unsigned productId, UdevRecord* record) {
  if (record == nullptr) {
    return kDeviceSearchInvalid;
  }
  const File file = OpenDatabase();
  if (file == nullptr) {
    return kDeviceNotFound;
  }
  const std::string vendor = FourHexDigits(vendorId);
  const std::string product = FourHexDigits(productId);
  UdevRecord candidate;
  while (NextRecord(file.get(), "", candidate)) {
    if (candidate.vendorId == vendor && candidate.modelId == product && !IsRawUsbNode(candidate)) {
      *record = candidate;
      return kDeviceFound;
    }
  }
  return kDeviceNotFound;
}
