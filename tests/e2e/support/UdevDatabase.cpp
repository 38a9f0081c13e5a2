// SPDX-License-Identifier: MIT
#include "e2e/support/UdevDatabase.h"

#include <algorithm>
#include <filesystem>

#include "e2e/support/Workplace.h"
#include "serial/UsbPlaces.h"

namespace {

constexpr const char* kDatabase = "/tmp/e2e/udev-database";
constexpr const char* kRuns = "/tmp/e2e/udevadm-runs";

constexpr const char* kRootHub =
    "P: /devices/pci0000:00/0000:00:1d.0/usb2\n"
    "N: bus/usb/002/001\n"
    "E: DEVNAME=/dev/bus/usb/002/001\n"
    "E: ID_BUS=usb\n"
    "E: ID_VENDOR_ID=1d6b\n"
    "E: ID_MODEL_ID=0001\n"
    "\n";

void WriteTool(const std::string& firstStep) {
  const std::string tool = std::string(workplace::kPrograms) + "/udevadm";
  const std::string fresh = tool + ".made";
  workplace::WriteWhole(fresh,
                        "#!/bin/sh\n"
                        "echo \"$*\" >>" +
                            std::string(kRuns) + "\n" + firstStep +
                            "[ \"$*\" = 'info --export-db' ] && cat " + kDatabase + "\n");
  std::filesystem::permissions(fresh, std::filesystem::perms::owner_all);
  std::filesystem::rename(fresh, tool);
}

}  // namespace

UdevDatabase::UdevDatabase() {
  Clear();
  WriteTool("");
}

void UdevDatabase::AddAdapter(const std::string& place, const std::string& vendorId,
                              const std::string& productId, const std::string& node) {
  const std::string ids = "E: ID_BUS=usb\nE: ID_MODEL=USB_SERIAL\nE: ID_MODEL_ID=" + productId +
                          "\nE: ID_VENDOR=MAKER\nE: ID_VENDOR_ID=" + vendorId + "\n\n";
  const std::string name = std::filesystem::path(node).filename();
  Text(text + "P: " + place + "\nN: bus/usb/002/002\nE: DEVNAME=/dev/bus/usb/002/002\n" + ids +
       "P: " + place + "/1:1.0/" + name + "/tty/" + name + "\nN: " + name + "\nE: DEVNAME=" + node +
       "\n" + ids);
}

void UdevDatabase::AddAdapterAtPort(unsigned port, const std::string& node,
                                    const std::string& vendorId, const std::string& productId) {
  AddAdapter(kUsbPlaces.at(port), vendorId, productId, node);
}

void UdevDatabase::Clear() { Text(kRootHub); }

void UdevDatabase::Text(const std::string& replacement) {
  text = replacement;
  workplace::WriteWhole(kDatabase, text);
}

void UdevDatabase::WaitsFor(const std::string& path) {
  Does("while [ ! -e " + path + " ]; do sleep 0.01; done");
}

void UdevDatabase::Does(const std::string& commands) { WriteTool(commands + "\n"); }

size_t UdevDatabase::Runs() {
  const std::string runs = workplace::ReadWhole(kRuns);
  return static_cast<size_t>(std::count(runs.begin(), runs.end(), '\n'));
}
