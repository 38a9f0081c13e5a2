// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

// Bytes of both directions as rows of hex and text, for a terminal: the row that is not full yet is
// shown anew when more bytes come.
class HexView {
 public:
  // What to show for these bytes behind what was shown before. `direction`: '<' or '>'.
  std::string Show(char direction, std::string_view bytes);

  // Ends a row that is not full: what to show before anything else is shown.
  std::string EndRow();

 private:
  std::string row;
  char rowDirection = 0;
  size_t received = 0;  // bytes before the row, of each direction
  size_t sent = 0;
};
