// SPDX-License-Identifier: MIT
#pragma once

// What programs leave behind that have ended, in whatever process group or session: as long as this
// object is there it is given to this process, as its child, and at the end it is killed. For a
// process that has no other children then.
class Strays {
 public:
  Strays();
  ~Strays();
  Strays(const Strays&) = delete;
  Strays& operator=(const Strays&) = delete;
};
