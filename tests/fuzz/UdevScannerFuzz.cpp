// SPDX-License-Identifier: MIT
// Both searches, on any text: what is found stands in the text, is no raw USB node, and fits.
#include <cstring>
#include <string>

#include "Check.h"
#include "DatabaseInMemory.h"
#include "serial/UdevScanner.h"

namespace {

bool Stands(const std::string& text, const char* value) {
  return std::memchr(value, '\0', kUdevTextSize) != nullptr &&
         text.find(value) != std::string::npos;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(data, data + size);
  SetDatabase(data, size);
  for (int index = -1; index <= 6; ++index) {
    char devName[kDevNameSize];
    std::memset(devName, '?', sizeof devName);
    const int found = FindDeviceByPortIndex(index, devName);
    Check((found == kDeviceSearchInvalid) == (index < 0 || index > 5), "range of the topology");
    if (found == kDeviceFound) {
      Check(std::memchr(devName, '\0', sizeof devName) != nullptr, "terminated");
      Check(text.find(devName) != std::string::npos, "the node stands in the text");
      Check(std::strncmp(devName, "/dev/bus", 8) != 0, "no raw USB node");
    }
  }
  UdevRecord record;
  if (FindDeviceByIds(0x0403, 0x6001, &record) == kDeviceFound) {
    Check(std::string(record.vendorId) == "0403" && std::string(record.modelId) == "6001",
          "the ids that were asked for");
    Check(Stands(text, record.devName) && Stands(text, record.bus) && Stands(text, record.vendor) &&
              Stands(text, record.model),
          "each field stands in the text");
  }
  return 0;
}
