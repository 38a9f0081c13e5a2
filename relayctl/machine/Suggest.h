// SPDX-License-Identifier: MIT
// Which port name reaches which USB serial adapter: for the person who has just plugged one in.
#pragma once

#include <string>
#include <vector>

#include "machine/UdevSnapshot.h"

struct MachineConfiguration;

// What changed between two looks at the machine, in the order of the second look.
struct AdapterChange {
  enum class Kind { kPresent, kPlugged, kUnplugged };
  Kind kind = Kind::kPresent;
  SerialAdapter adapter;
};

// Remembers the adapters of the last look.
class AdapterWatch {
 public:
  // All adapters count as present at the first call.
  std::vector<AdapterChange> Look(const UdevSnapshot& snapshot);

 private:
  bool first = true;
  std::vector<SerialAdapter> known;
};

// One adapter in two to four lines without the last line's end: what and where it is, which name
// reaches it, and the configuration that is still missing. `configuration`: nullptr when it is
// another machine's adapter.
std::string Explain(const SerialAdapter& adapter, const MachineConfiguration* configuration);

struct NamedPlace {
  std::string port;
  std::string place;
};

// The places of the machine that have port names.
std::vector<NamedPlace> NamedPlaces();
