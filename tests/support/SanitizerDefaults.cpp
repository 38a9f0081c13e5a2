// SPDX-License-Identifier: MIT
// What the sanitizers cannot know about this code. Means nothing in a build without them.

// Its own signal stack makes clang's AddressSanitizer take a cancelled thread for an error.
extern "C" __attribute__((visibility("default"))) const char* __asan_default_options() {
  return "use_sigaltstack=0";
}
