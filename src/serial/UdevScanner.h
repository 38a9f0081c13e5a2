// SPDX-License-Identifier: MIT
// Finds USB serial adapters in a text dump of the udev database. A search is a Find within a
// CDeviceDatabase. All searches use one file, so only one may run at a time; the functions share
// nothing else. Nothing is logged.
#pragma once

#include <cstddef>
#include <cstdio>

#include "serial/UsbPlaces.h"

constexpr int kDeviceFound = 1;
constexpr int kDeviceNotFound = 0;
constexpr int kDeviceSearchInvalid = -1;

constexpr size_t kUdevTextSize = 512;
constexpr size_t kDevNameSize = 256;

// The properties of one device, each zero-terminated, cut to what its field holds.
struct UdevRecord {
  char vendorId[kUdevTextSize] = {};
  char modelId[kUdevTextSize] = {};
  char vendor[kUdevTextSize] = {};
  char model[kUdevTextSize] = {};
  char devName[kUdevTextSize] = {};
  char bus[kUdevTextSize] = {};
};

// Runs udevadm into the file /tmp/deviceinfo.txt: 0 when that is then a regular file of more than
// 99 bytes, else -1. Takes as long as udevadm does.
int DumpDeviceDatabase();

// Deletes the file: 0 when it was a regular file, whatever came of it, else -1.
int RemoveDeviceDatabase();

// Dumps the database for a scope. Neither result is looked at: a failed dump shows as an adapter
// that is not found. A thread that is cancelled in between removes the file, too.
class CDeviceDatabase {
 public:
  CDeviceDatabase();
  ~CDeviceDatabase();
  CDeviceDatabase(const CDeviceDatabase&) = delete;
  CDeviceDatabase& operator=(const CDeviceDatabase&) = delete;
};

// The node of the adapter at the fixed place in the USB topology that is port `index`.
// kDeviceFound and the node in `devName`, which holds kDevNameSize bytes; kDeviceNotFound, also
// when the node's name is too long for that; kDeviceSearchInvalid for an index outside the
// topology or a null `devName`.
int FindDeviceByPortIndex(int index, char* devName);

// The same in a dump that the caller has opened and closes; reads from where `database` stands. For
// tools that look beside the running service, whose file they must not touch.
int FindDeviceByPortIndex(std::FILE* database, int index, char* devName);

// The place of port `index` as a device path ("/devices/..."); nullptr outside the topology.
const char* UsbPortPlace(int index);

// The first adapter with these USB ids. kDeviceFound and its record in `record`; kDeviceNotFound;
// kDeviceSearchInvalid when `record` is null.
int FindDeviceByIds(unsigned vendorId, unsigned productId, UdevRecord* record);
