// SPDX-License-Identifier: MIT
// A loop that the compiler turns into NEON instructions.
void Add(float* sums, const float* values);

void Add(float* sums, const float* values) {
  for (int i = 0; i < 64; ++i) {
    sums[i] += values[i];
  }
}
