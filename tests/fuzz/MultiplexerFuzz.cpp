// SPDX-License-Identifier: MIT
// Several peers on one link. Input: whether the service is one to be trusted, then what happens.
#include "Check.h"
#include "relayctl/SharedLink.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > 0) {
    const std::string_view what(reinterpret_cast<const char*>(data) + 1, size - 1);
    SharedLink(Check).Play(what, data[0] % 2 == 0);
  }
  return 0;
}
