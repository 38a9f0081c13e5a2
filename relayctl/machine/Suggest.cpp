// SPDX-License-Identifier: MIT
#include "machine/Suggest.h"

#include <algorithm>

#include "machine/MachineConfiguration.h"
#include "serial/UdevScanner.h"
#include "show/Output.h"

namespace {

const SerialAdapter* FindNode(const std::vector<SerialAdapter>& adapters, const std::string& node) {
  const auto found =
      std::find_if(adapters.begin(), adapters.end(),
                   [&](const SerialAdapter& adapter) { return adapter.node == node; });
  return found != adapters.end() ? &*found : nullptr;
}

std::string Model(const SerialAdapter& adapter) {
  std::string text = adapter.vendor;
  text += (text.empty() || adapter.model.empty() ? "" : " ") + adapter.model;
  text += adapter.serialNumber.empty() ? "" : ", serial number " + adapter.serialNumber;
  return Harmless(text);
}

std::string NameLine(const SerialAdapter& adapter, const MachineConfiguration* configuration) {
  if (!adapter.portName.empty()) {
    std::string line = "  name:  " + adapter.portName;
    const bool known = configuration == nullptr || configuration->Find(adapter.portName) != nullptr;
    if (!known) {
      line += "\n  but:   " + configuration->path + " has no section [" + adapter.portName +
              "] yet: an open is answered with status 2";
    }
    return line;
  }
  if (!adapter.hiddenBy.empty()) {
    return "  name:  none: the name of this connector leads to " + adapter.hiddenBy +
           ", which stands before it in the udev database";
  }
  return "  name:  none: this is not one of the places that have names (relayctl suggest --places)";
}

}  // namespace

std::vector<AdapterChange> AdapterWatch::Look(const UdevSnapshot& snapshot) {
  using Kind = AdapterChange::Kind;
  const std::vector<SerialAdapter> now = snapshot.Adapters();
  std::vector<AdapterChange> changes;
  for (const SerialAdapter& before : known) {
    const SerialAdapter* const same = FindNode(now, before.node);
    // The same node at another place, or with other ids, is another adapter.
    if (same == nullptr || same->devicePath != before.devicePath ||
        same->vendorId != before.vendorId || same->productId != before.productId ||
        same->serialNumber != before.serialNumber) {
      changes.push_back({Kind::kUnplugged, before});
    }
  }
  for (const SerialAdapter& adapter : now) {
    const SerialAdapter* const before = FindNode(known, adapter.node);
    const bool gone = std::any_of(changes.begin(), changes.end(), [&](const AdapterChange& change) {
      return change.kind == Kind::kUnplugged && change.adapter.node == adapter.node;
    });
    if (first) {
      changes.push_back({Kind::kPresent, adapter});
    } else if (before == nullptr || gone) {
      changes.push_back({Kind::kPlugged, adapter});
    }
  }
  known = now;
  first = false;
  return changes;
}

std::string Explain(const SerialAdapter& adapter, const MachineConfiguration* configuration) {
  const std::string model = Model(adapter);
  return Harmless(adapter.node) + "  " + Harmless(adapter.vendorId) + ":" +
         Harmless(adapter.productId) + (model.empty() ? "" : "  " + model) +
         "\n  place: " + Harmless(adapter.place.empty() ? adapter.devicePath : adapter.place) +
         "\n" + NameLine(adapter, configuration);
}

std::vector<NamedPlace> NamedPlaces() {
  std::vector<NamedPlace> places;
  places.reserve(kUsbPortCount);
  for (int index = 0; index < kUsbPortCount; ++index) {
    places.push_back({"#USBSerialPort" + std::to_string(index), UsbPortPlace(index)});
  }
  return places;
}
