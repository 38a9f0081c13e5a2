// SPDX-License-Identifier: MIT
// A device's own libvost, as far as the service can tell: it knows one relay port and one line.
#include <string>

#include "platform/Libvost.h"

namespace {

void Fill(KX_TEXT& field, const std::string& text) {
  field[text.copy(field, KX_TEXT_SIZE - 1)] = 0;
}

}  // namespace

int Libvost::getSystemConnectInfo(KX_CONNECT_INFO& info) {
  Fill(info.port, "60123");
  return 1;
}

int Libvost::getSerialByPortID(KX_SERIAL& serial, char* portId) {
  Fill(serial.baud, "19200");
  Fill(serial.data, "8");
  Fill(serial.parity, "none");
  Fill(serial.stop, "1");
  Fill(serial.flow, "none");
  return std::string(portId) == "#PhysicalPort0";
}
