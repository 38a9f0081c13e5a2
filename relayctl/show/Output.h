// SPDX-License-Identifier: MIT
// What commands print.
#pragma once

#include <string>
#include <string_view>

#include "relay/Client.h"

enum class Color { kNone, kToService, kFromService, kGood, kNote, kWarning, kBad, kDim };

// Whether colour may be used on the descriptor: a terminal, TERM other than "dumb", and NO_COLOR
// unset or empty.
bool MayColor(int descriptor);

// How many columns the descriptor's terminal has; 80 when nobody knows.
size_t ColumnsOf(int descriptor);

// `text` in the colour when `isColored`, else as it is.
std::string Paint(std::string_view text, Color color, bool isColored);

// `text` with every control character, and what is no UTF-8, escaped: what a device, another
// program or the command line chose may not steer the terminal.
std::string Harmless(std::string_view text);

// Standard streams that the caller has closed become unusable ones: their numbers would go to the
// link, and what is printed into it. To be called before anything is opened.
void OccupyClosedStreams();

// Throws relay::Error when something of what was printed could not be written.
void FlushOutput();

// The reason is in errno.
[[noreturn]] void FailToPrint();

// One line on standard output, at once. Throws relay::Error when it cannot be written.
void PrintLine(std::string_view text);

// One line on standard error.
void PrintNotice(std::string_view text);

// Prints what became of an open or a close: `#PhysicalPort0: open`, or as JSON.
void PrintReply(const relay::Reply& reply, bool asJson);

// Of a status other than 0: `#X: status 2: this machine's …`, and what may be wrong with the name.
std::string RefusalText(const relay::Reply& reply);

// Throws kRefused with that text.
void CheckReply(const relay::Reply& reply);
