// SPDX-License-Identifier: MIT
// The C interface's functions: no exception leaves them.
#include "relayclient.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <exception>
#include <new>
#include <optional>
#include <string_view>

#include "c/CClient.h"
#include "c/Translation.h"

namespace {

constexpr relayclient_options kDefaults = {};
constexpr relayclient_events kNoEvents = {};

// What `action` gives, or an errno value for what it throws.
template <typename Action>
int Guarded(relayclient* client, const Action& action) noexcept {
  try {
    return action();
  } catch (const relay::Error& error) {
    return client->Fail(relay::ErrnoOf(error), error.what());
  } catch (const std::bad_alloc&) {
    return client->Fail(ENOMEM, "no memory");
  } catch (const std::exception& error) {
    return client->Fail(ENOTRECOVERABLE, error.what());
  } catch (...) {
    return client->Fail(ENOTRECOVERABLE, "an event function threw");
  }
}

// The same for an action on one port.
template <typename Action>
int OnPort(relayclient* client, const char* name, const Action& action) noexcept {
  if (client == nullptr) {
    return EINVAL;
  }
  return Guarded(client, [&] {
    return name != nullptr ? action(relay::Port::FromText(name))
                           : client->Fail(EINVAL, "no port is named");
  });
}

// What `look` gives, or nothing where there is no such port.
template <typename Result, typename Look>
Result LookAtPort(const relayclient* client, const char* name, const Look& look) noexcept {
  try {
    return client != nullptr && name != nullptr ? look(relay::Port::FromText(name)) : Result();
  } catch (...) {
    return Result();
  }
}

bool IsData(const void* data, size_t size) { return data != nullptr || size == 0; }

std::string_view ViewOf(const void* data, size_t size) {
  return {static_cast<const char*>(data), size};
}

}  // namespace

int relayclient_new(relayclient** client, const relayclient_options* options,
                    const relayclient_events* events) {
  if (client == nullptr) {
    return EINVAL;
  }
  *client = nullptr;
  try {
    *client = new relayclient(options != nullptr ? *options : kDefaults,
                              events != nullptr ? *events : kNoEvents);
    return 0;
  } catch (const relay::Error& error) {
    return relay::ErrnoOf(error);
  } catch (...) {
    return ENOMEM;
  }
}

void relayclient_free(relayclient* client) { delete client; }

const char* relayclient_error_text(const relayclient* client) {
  return client != nullptr ? client->ErrorText() : "there is no client";
}

int relayclient_start(relayclient* client) {
  return client != nullptr ? Guarded(client, [&] { return client->Start(); }) : EINVAL;
}

void relayclient_stop(relayclient* client) {
  if (client != nullptr) {
    (void)Guarded(client, [&] {
      client->Stop();
      return 0;
    });
  }
}

int relayclient_is_connected(const relayclient* client) {
  return client != nullptr && client->Link().IsConnected() ? 1 : 0;
}

int relayclient_run_for(relayclient* client, int time_ms) {
  return client != nullptr ? Guarded(client, [&] { return client->RunFor(time_ms); }) : EINVAL;
}

int relayclient_descriptor(const relayclient* client) {
  return client != nullptr ? client->Link().Descriptor() : -1;
}

short relayclient_poll_events(const relayclient* client) {
  return client != nullptr ? client->Link().PollEvents() : short{0};
}

int relayclient_timeout_ms(const relayclient* client) {
  const auto due = client != nullptr ? client->Link().TimeUntilDue() : std::nullopt;
  return due ? static_cast<int>(std::min<relay::Millis::rep>(due->count(), INT_MAX)) : -1;
}

int relayclient_process(relayclient* client) {
  return client != nullptr ? Guarded(client, [&] { return client->Process(); }) : EINVAL;
}

int relayclient_open(relayclient* client, const char* port, int limit_ms) {
  return OnPort(client, port,
                [&](const relay::Port& named) { return client->Open(named, limit_ms); });
}

int relayclient_close(relayclient* client, const char* port, int limit_ms) {
  return OnPort(client, port,
                [&](const relay::Port& named) { return client->Close(named, limit_ms); });
}

int relayclient_is_open(const relayclient* client, const char* port) {
  return LookAtPort<int>(
      client, port, [&](const relay::Port& named) { return client->Link().IsOpen(named) ? 1 : 0; });
}

int relayclient_send(relayclient* client, const char* port, const void* data, size_t size) {
  return OnPort(client, port, [&](const relay::Port& named) {
    return IsData(data, size) ? client->Send(named, ViewOf(data, size))
                              : client->Fail(EINVAL, "there are no data to send");
  });
}

size_t relayclient_unsent(const relayclient* client, const char* port) {
  return LookAtPort<size_t>(client, port,
                            [&](const relay::Port& named) { return client->Unsent(named); });
}

int relayclient_write(relayclient* client, const char* port, const void* data, size_t size,
                      int limit_ms) {
  return OnPort(client, port, [&](const relay::Port& named) {
    return IsData(data, size) ? client->Write(named, ViewOf(data, size), limit_ms)
                              : client->Fail(EINVAL, "there are no data to write");
  });
}

int relayclient_read_line(relayclient* client, const char* port, char* line, size_t size,
                          size_t* length, int limit_ms) {
  return OnPort(client, port, [&](const relay::Port& named) {
    return line != nullptr ? client->ReadLine(named, line, size, length, limit_ms)
                           : client->Fail(EINVAL, "there is no room for a line");
  });
}
