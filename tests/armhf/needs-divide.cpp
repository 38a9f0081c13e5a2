// SPDX-License-Identifier: MIT
// An integer division in one instruction.
int Divide(int dividend, int divisor);

// cppcheck-suppress unusedFunction ; it is looked at, not run
int Divide(int dividend, int divisor) { return dividend / divisor; }
