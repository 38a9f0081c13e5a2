// SPDX-License-Identifier: MIT
// The far end of a connection on this machine, and port numbers for it.
#pragma once

#include <cstdint>
#include <string>

// A port number of this machine that nobody else is given while the object lives. It is bound but
// not listened on: code that sets SO_REUSEADDR can listen there, and connecting is refused.
class ReservedPort {
 public:
  ReservedPort();
  ~ReservedPort();
  ReservedPort(const ReservedPort&) = delete;
  ReservedPort& operator=(const ReservedPort&) = delete;

  uint32_t Number() const { return number; }

  // From here on not even code that sets SO_REUSEADDR can bind it.
  void KeepForItself() const;
  void Share() const;  // as it was at first

 private:
  int descriptor;
  uint32_t number = 0;
};

// A plain TCP stream. Each wait ends after 20 seconds at the latest.
class LoopbackPeer {
 public:
  LoopbackPeer() = default;
  ~LoopbackPeer() { Close(); }
  LoopbackPeer(const LoopbackPeer&) = delete;
  LoopbackPeer& operator=(const LoopbackPeer&) = delete;

  // 0, or errno.
  int ConnectTo(uint32_t port, const char* ownAddress = "127.0.0.1");

  // Listens on `port`; Accept then takes one peer.
  void ListenOn(uint32_t port);
  void Accept();

  void Sends(const std::string& hexText) const;  // in one segment when it is short

  // As many bytes as the hex text has, as hex text without blanks; fewer when no more come.
  std::string Receives(size_t count) const;

  // True when the other side has closed the stream and all it sent has been received.
  bool SeesEnd() const;

  void Close();

 private:
  void LimitWaits() const;

  int descriptor = -1;
  int listening = -1;
};
