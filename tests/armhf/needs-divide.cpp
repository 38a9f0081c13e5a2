// SPDX-License-Identifier: MIT
// An integer division in one instruction.
int Divide(int dividend, int divisor);

int Divide(int dividend, int divisor) { return dividend / divisor; }
