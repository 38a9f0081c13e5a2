// SPDX-License-Identifier: MIT
// What the platform library libvost would write to the machine's log is kept here instead: a look
// at the configuration must leave no line there, and a person wants to read it.
#pragma once

#include <string>

// The last error since the call before; empty: there was none.
std::string TakeLibraryError();
