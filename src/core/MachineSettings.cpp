// SPDX-License-Identifier: MIT
#include "core/MachineSettings.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "Linux/CancellationShield.h"
#include "platform/Libvost.h"

namespace {

constexpr long kLastReservedPort = 1024;

// The platform library's texts are fixed buffers; one without a terminating zero ends at its end.
std::string TextOf(const KX_TEXT& field) { return {field, strnlen(field, sizeof field)}; }

}  // namespace

// A long has 32 bits on the device; a larger number counts as the largest one there, everywhere.
uint32_t RelayPortOf(const std::string& text) {
  const long port = std::strtol(text.c_str(), nullptr, 10);
  if (port <= kLastReservedPort) {
    return kDefaultRelayPort;
  }
  return static_cast<uint32_t>(std::min<long>(port, std::numeric_limits<int32_t>::max()));
}

uint32_t MachineSettings::RelayPort() {
  KX_CONNECT_INFO info{};
  return Libvost().getSystemConnectInfo(info) == 0 ? kDefaultRelayPort
                                                   : RelayPortOf(TextOf(info.port));
}

std::optional<SerialSettings> MachineSettings::SettingsOf(const std::string& portName) {
  KX_SERIAL words{};
  std::string portId = portName;
  {
    const CCancellationShield shield;
    if (Libvost().getSerialByPortID(words, portId.data()) == 0) {
      return std::nullopt;
    }
  }
  return SerialSettings{.baudRate = baudRates[TextOf(words.baud)],
                        .dataBits = dataBitsWords[TextOf(words.data)],
                        .parity = parityWords[TextOf(words.parity)],
                        .stopBits = stopBitsWords[TextOf(words.stop)],
                        .flowControl = flowControlWords[TextOf(words.flow)]};
}
