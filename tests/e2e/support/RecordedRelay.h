// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "e2e/support/Relay.h"

// Has the connected `relay` behave as in a recording: it sends what the recording has to the
// service, and takes what must come before that. Pauses are not kept. As in the recording, it
// leaves where the link ends. Empty when everything came, else the first line that did not.
std::string PlayRecording(Relay& relay, const std::string& recording);
