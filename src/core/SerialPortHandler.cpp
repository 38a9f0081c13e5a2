// SPDX-License-Identifier: MIT
#include "core/SerialPortHandler.h"

#include <cstdlib>
#include <memory>
#include <optional>
#include <utility>

#include "Linux/Command.h"
#include "Linux/LinuxThread.h"
#include "Linux/LockGuard.h"
#include "Linux/LogSource.h"
#include "Linux/Sleep.h"
#include "protocol/PacketBuilder.h"
#include "serial/SerialPort.h"

namespace {

// Handed to every relay connection and port for their own log lines.
const std::string logModule = "SerialPortHandler";
const std::string logTag = "4";

constexpr const char* kLogFile = "SerialPortHandler.cpp";

constexpr unsigned kSupervisionMilliseconds = 250;
constexpr unsigned kThreadsEndMilliseconds = 5000;
constexpr unsigned kCommandsLookMilliseconds = 100;

// The process's exit statuses, for a way out that does not lead through main.
constexpr int kExitStopped = 0;
constexpr int kExitNoLink = 255;

void LogLine(LogLevel level, const char* message, int line = __builtin_LINE()) {
  WriteLog(logModule.c_str(), kLogFile, line, logTag.c_str(), level, message);
}

// A result that no port gives counts as done.
Status StatusOf(int openResult) {
  switch (openResult) {
    case kNoDevice:
      return kStatusNoPort;
    case kOpenFailed:
      return kStatusOpenFailed;
    case kAlreadyOpen:
      return kStatusUnavailable;
    default:
      return kStatusDone;
  }
}

// A thread that waits for a command goes on when that has ended, perhaps to the next one.
bool AllThreadsEnd() {
  for (unsigned waited = 0; waited < kThreadsEndMilliseconds; waited += kCommandsLookMilliseconds) {
    EndCommand();
    if (CLinuxThread::WaitUntilNoneRuns(kCommandsLookMilliseconds)) {
      return true;
    }
  }
  return false;
}

SerialPortHandler& HandlerOf(void* context) { return *static_cast<SerialPortHandler*>(context); }

}  // namespace

SerialPortHandler* SerialPortHandler::GetInstance() {
  static SerialPortHandler instance;
  return &instance;
}

SerialPortHandler::SerialPortHandler(const Makers& makers) : make(makers) {}

SerialPortHandler::~SerialPortHandler() {
  ports.Clear();
  if (CCommSocketExport* const link = OwnRelay()) {
    (void)link->Close();
  }
  // A thread that a bounded stop gave up on still uses this object until its cancellation has
  // taken effect. One that the kernel does not let go cannot be waited for, nor destroyed under.
  if (!AllThreadsEnd()) {
    std::_Exit(stoppedOrderly ? kExitStopped : kExitNoLink);
  }
}

bool SerialPortHandler::Run() {
  LogLine(LogLevel::kProgress, "Serial Port Handler start running.");
  if (!OpenRelayConnection()) {
    return false;
  }
  // Deliberate: a stop that was requested before this point is forgotten.
  // Pinned by StopTest.AStopRequestedBeforeTheFirstLinkIsForgotten.
  stopRequested = false;
  while (!stopRequested) {
    (void)SleepMilliseconds(kSupervisionMilliseconds);
    if (reconnectRequested && !ReopenRelayConnection()) {
      return false;
    }
  }
  LogLine(LogLevel::kProgress, "Serial Port Handler stop.");
  stoppedOrderly = true;
  return true;
}

void SerialPortHandler::RequestStop() {
  stopRequested = true;
  LogLine(LogLevel::kProgress, "request stop.");
  if (CCommSocketExport* const link = OwnRelay()) {
    (void)link->Close();
  }
}

bool SerialPortHandler::OpenRelayConnection() {
  const uint32_t port = MachineSettings::RelayPort();
  SetRelay(CStopSignalsHeld(), make.relay(logModule, logTag));
  // Cleared before Listen, not after: a peer that leaves at once is reported before Listen returns.
  const bool requestedBefore = reconnectRequested.exchange(false);
  const CommCallbacks callbacks = {OnRelayPacket, OnRelayError, this};
  if (OwnRelay()->Listen(port, &callbacks) != 0) {
    reconnectRequested = requestedBefore;
    return false;
  }
  return true;
}

// A stop that is requested meanwhile ends the rebuild behind the port at hand, which may take two
// seconds to stop; the others are left to the way out. One that comes when the ports are gone is
// held back until the new connection accepts, and ends that.
bool SerialPortHandler::ReopenRelayConnection() {
  while (!stopRequested && DropOnePort()) {
  }
  const CStopSignalsHeld held;
  if (stopRequested) {
    return true;
  }
  // A receive thread that the bounded stop gave up on may hold the connection a little longer. Its
  // listening end must be gone before the next one is bound to the same port.
  (void)OwnRelay()->Close();
  SetRelay(held, nullptr);
  return OpenRelayConnection();
}

// Stops are held back here, as in the rebuild above: see SignalMask.h.
bool SerialPortHandler::DropOnePort() {
  const CStopSignalsHeld held;
  return ports.RemoveFirst();
}

void SerialPortHandler::SetRelay(const CStopSignalsHeld& /*held*/,
                                 std::shared_ptr<CCommSocketExport> connection) {
  const CLockGuard guard(relayLock);
  relay.swap(connection);  // the earlier one is released last, with the argument
}

// The result of Send is ignored: a packet that cannot be sent is lost with its link.
void SerialPortHandler::SendToRelay(const std::vector<uint8_t>& packet) {
  std::shared_ptr<CCommSocketExport> current;
  {
    const CLockGuard guard(relayLock);
    current = relay;
  }
  if (current != nullptr) {
    (void)current->Send(packet.data(), static_cast<int>(packet.size()));
  }
}

int SerialPortHandler::OnRelayPacket(const uint8_t* packet, uint32_t length, void* context) {
  SerialPortHandler& handler = HandlerOf(context);
  const CLockGuard guard(handler.relayCallbackLock);
  handler.DispatchCommand(packet, length);
  return 0;
}

int SerialPortHandler::OnRelayError(const std::string& text, int /*result*/, void* context) {
  SerialPortHandler& handler = HandlerOf(context);
  const CLockGuard guard(handler.relayCallbackLock);
  if (text == kConnectError) {
    handler.reconnectRequested = true;
  }
  return 0;
}

void SerialPortHandler::OnSerialData(const std::string& portName, const uint8_t* data, int length,
                                     void* context) {
  SerialPortHandler& handler = HandlerOf(context);
  const CLockGuard guard(handler.serialCallbackLock);
  handler.ForwardSerialData(portName, data, length);
}

void SerialPortHandler::OnSerialEvent(void* context) {
  const CLockGuard guard(HandlerOf(context).serialCallbackLock);
}

void SerialPortHandler::DispatchCommand(const uint8_t* bytes, uint32_t count) {
  const CommandPacket command(bytes, count);
  if (!command.parsedOk) {
    LogLine(LogLevel::kError, "Command parse failed.");
    return;
  }
  switch (command.command) {
    case kCommandOpen:
      return HandleOpenCommand(command);
    case kCommandClose:
      return HandleCloseCommand(command);
    case kCommandData:
      return HandleDataCommand(command);
    default:
      // Not reached: a packet with another command does not parse.
      LogLine(LogLevel::kError, "Illegal command was received from relay service.");
  }
}

void SerialPortHandler::HandleOpenCommand(const CommandPacket& command) {
  LogLine(LogLevel::kProgress, "open command proc.");
  // Deliberate: only names can be opened, although close and data take ids too.
  // Pinned by tests/recordings/open/by-ids.rec.
  Status status = kStatusNoPort;
  if (command.portForm == kNamedPort) {
    status = OpenPort(command.portName, {OnSerialData, OnSerialEvent, this});
  }
  Reply(command, status);
  // Only now: a relay service makes its record of a port when its open is answered.
  if (const auto opened = status == kStatusDone ? ports.Find(command.portName) : nullptr) {
    opened->BeginReceiving();
  }
}

Status SerialPortHandler::OpenPort(const std::string& name, const ReceiveCallback& callback) {
  if (ports.Find(name) != nullptr) {
    return kStatusUnavailable;
  }
  const std::shared_ptr<CSerialPortExport> port = make.port(logModule, logTag);
  const std::optional<SerialSettings> settings = machine.SettingsOf(name);
  if (!settings) {
    return kStatusNoPort;
  }
  port->DeferReceiving();
  const int result = port->Open(name, callback, *settings);
  if (result == kOpened) {
    ports.Store(port);
  }
  return StatusOf(result);
}

void SerialPortHandler::HandleCloseCommand(const CommandPacket& command) {
  LogLine(LogLevel::kProgress, "close command proc.");
  Status status = kStatusNoPort;
  if (command.portForm == kNumberedPort) {
    status = ClosePortById(command.portId1, command.portId2);
  } else if (command.portForm == kNamedPort) {
    status = ClosePort(command.portName);
  }
  Reply(command, status);
}

// Ports are kept under their symbolic names, and ids lead to a device path: this never finds one.
Status SerialPortHandler::ClosePortById(uint16_t portId1, uint16_t portId2) {
  std::string path;
  CSerialPort::LookupUsbDevicePath(portId1, portId2, path);
  return ClosePort(path);
}

Status SerialPortHandler::ClosePort(const std::string& name) {
  const std::shared_ptr<CSerialPortExport> port = ports.Find(name);
  if (port == nullptr) {
    return kStatusNoPort;
  }
  if (port->Close() == kCloseFailed) {
    return kStatusCloseFailed;
  }
  ports.Remove(name);
  return kStatusDone;
}

void SerialPortHandler::HandleDataCommand(const CommandPacket& command) {
  LogLine(LogLevel::kProgress, "data command proc.");
  std::string path;
  if (command.portForm == kNumberedPort) {
    CSerialPort::LookupUsbDevicePath(command.portId1, command.portId2, path);
  }
  const std::string& name = command.portForm == kNumberedPort ? path : command.portName;
  DataBlock block;
  for (uint8_t i = 0; i < command.blockCount; ++i) {
    const std::shared_ptr<CSerialPortExport> port = ports.Find(name);
    if (port == nullptr) {
      return;
    }
    command.GetBlock(i, block);
    if (port->Send(block.data, block.length) < 0) {
      LogLine(LogLevel::kError, "Serial Device Send Error.");
      return;
    }
  }
}

void SerialPortHandler::Reply(const CommandPacket& command, uint16_t status) {
  CPacketBuilder reply(command);
  (void)reply.SetStatus(status);  // open and close take one
  SendToRelay(reply.Bytes());
}

void SerialPortHandler::ForwardSerialData(const std::string& portName, const uint8_t* bytes,
                                          int count) {
  const std::optional<PortIdentity> port = ports.IdentityOf(portName);
  if (!port) {
    return;
  }
  const auto notification =
      port->isNamed
          ? std::make_shared<CPacketBuilder>(kCommandData, port->name)
          : std::make_shared<CPacketBuilder>(kCommandData, port->vendorId, port->productId);
  // A refused block leaves the header, which is sent all the same.
  (void)notification->AddBlock(bytes, kReceivedDataBlock, static_cast<uint16_t>(count));
  SendToRelay(notification->Bytes());
}
