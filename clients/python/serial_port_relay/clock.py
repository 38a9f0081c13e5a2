# SPDX-License-Identifier: MIT
"""Times at which waiting ends; None is never."""

import time


def deadline(timeout: float | None) -> float | None:
    return None if timeout is None else time.monotonic() + timeout


def has_passed(end: float | None) -> bool:
    return end is not None and time.monotonic() >= end


def left(end: float | None) -> float | None:
    return None if end is None else max(0.0, end - time.monotonic())


def earliest(*ends: float | None) -> float | None:
    return min((end for end in ends if end is not None), default=None)
