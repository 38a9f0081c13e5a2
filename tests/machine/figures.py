# SPDX-License-Identifier: MIT
"""The report of a run: each case and each figure that it measured."""

from __future__ import annotations

from typing import Protocol


class Figure(Protocol):
    def __call__(self, name: str, value: object) -> None: ...
