// SPDX-License-Identifier: MIT
// What the C interface says for what the library says.
#pragma once

#include <cstdint>
#include <string>

#include "relay/Client.h"
#include "relayclient.h"

namespace relay {

// An errno value.
int ErrnoOf(const Error& error);

// The same for the answer to an open; 0: the port is open.
int ErrnoOfOpen(uint16_t status);

ClientOptions OptionsOf(const relayclient_options& given);

// As the program named it, without escapes: it may compare.
std::string NameOf(const Port& port);

}  // namespace relay
