// SPDX-License-Identifier: MIT
// What the core's operations on ports result in, and which status each result is on the wire.
#pragma once

#include <algorithm>
#include <iterator>

#include "protocol/WireFormat.h"

// Results of OpenPort.
constexpr int kOpened = 0;
constexpr int kNoSuchPort = -1;
constexpr int kOpenFailed = -2;
constexpr int kAlreadyOpen = -3;

// Results of ClosePort.
constexpr int kClosed = 0;
constexpr int kNotOpen = -1;
constexpr int kCloseFailed = -2;

struct ResultStatus {
  int result;
  Status status;
};

constexpr ResultStatus kOpenStatuses[] = {
    {kOpened, kStatusDone},
    {kNoSuchPort, kStatusNoPort},
    {kOpenFailed, kStatusOpenFailed},
    {kAlreadyOpen, kStatusUnavailable},
};

constexpr ResultStatus kCloseStatuses[] = {
    {kClosed, kStatusDone},
    {kNotOpen, kStatusNoPort},
    {kCloseFailed, kStatusCloseFailed},
};

// A result without a row counts as done.
template <size_t rows>
Status StatusOf(const ResultStatus (&table)[rows], int result) {
  const auto row =
      std::find_if(std::begin(table), std::end(table),
                   [result](const auto& candidate) { return candidate.result == result; });
  return row != std::end(table) ? row->status : kStatusDone;
}
