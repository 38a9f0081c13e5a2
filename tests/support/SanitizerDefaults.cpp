// SPDX-License-Identifier: MIT
// What the sanitizers cannot know about this code. Means nothing in a build without them.

// Closing a socket while its receive thread waits on it is how a stop works: the descriptor is
// never used again under the flag that was set before.
extern "C" __attribute__((visibility("default"))) const char* __tsan_default_suppressions() {
  return "race:CLinuxSocket::Close\n";
}

// Its own signal stack makes clang's AddressSanitizer take a cancelled thread for an error.
extern "C" __attribute__((visibility("default"))) const char* __asan_default_options() {
  return "use_sigaltstack=0";
}
