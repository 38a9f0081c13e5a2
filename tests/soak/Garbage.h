// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "soak/Plan.h"

// Bytes that the service cuts as one packet, and refuses.
std::string Garbage(Plan& plan);
