// SPDX-License-Identifier: MIT
// Bytes as text and back. Bytes are held in std::string.
#pragma once

#include <string>
#include <string_view>

namespace relay {

// "48 65:6C6c" → "Hell". Blanks between bytes and one of ":", "-", "," there are skipped, "0x"
// before a byte too; anything else, and half a byte, throws kUsage with the offending part.
std::string FromHex(std::string_view text);

// Upper case, `separator` between bytes.
std::string ToHex(std::string_view bytes, std::string_view separator = "");

// Text with C's escapes \n \r \t \b \f \v \a \e \0 \\ \" \' and \xHH → bytes. An escape that is
// none of these throws kUsage.
std::string Unescape(std::string_view text);

// The opposite: printable ASCII as it is, everything else as an escape that Unescape knows. Safe to
// show on a terminal whatever the bytes are.
std::string Escape(std::string_view bytes);

// Escape in double quotes, with quotes inside escaped: "*IDN?\n".
std::string Quote(std::string_view bytes);

// Each byte that is not printable ASCII replaced by `dot`, for a column beside hex.
std::string Printable(std::string_view bytes, char dot = '.');

}  // namespace relay
