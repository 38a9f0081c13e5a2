// SPDX-License-Identifier: MIT
// libvost, the machine's platform-information library, as the service calls it.
#pragma once

// Bytes of one text field of a record, its terminating zero included.
constexpr int KX_TEXT_SIZE = 64;

using KX_TEXT = char[KX_TEXT_SIZE];

// Where the system's services meet. Only `port` matters to this service.
struct KX_CONNECT_INFO {
  KX_TEXT systemId;
  KX_TEXT systemName;
  KX_TEXT hostName;
  KX_TEXT address;
  KX_TEXT port;  // TCP port of the relay link, decimal text
};

// One serial port's configuration. Only the five setting words matter to this service.
struct KX_SERIAL {
  KX_TEXT portId;
  KX_TEXT portName;
  KX_TEXT kind;
  KX_TEXT location;
  KX_TEXT vendor;
  KX_TEXT product;
  KX_TEXT description;
  KX_TEXT owner;
  KX_TEXT baud;    // "9600"
  KX_TEXT data;    // "7", "8"
  KX_TEXT parity;  // "none", "odd", "even", "mark", "space"
  KX_TEXT stop;    // "1", "1.5", "2"
  KX_TEXT flow;    // "none", "hardware", "XOnXOff"
};

// Reads the machine's configuration. The object has no state: every call looks the answer up
// afresh, so that a changed configuration counts from the next call on.
// Threads: any number may call at the same time.
class __attribute__((visibility("default"))) Libvost {
 public:
  // Both return non-zero and fill the record, or return 0 when there is no such entry; the
  // record's contents then mean nothing.
  int getSystemConnectInfo(KX_CONNECT_INFO& info);

  // `portId`: the port's name, zero-terminated; it is not written to.
  int getSerialByPortID(KX_SERIAL& serial, char* portId);
};
