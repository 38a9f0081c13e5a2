# SPDX-License-Identifier: MIT
"""Work that goes on while the test does something else."""

from __future__ import annotations

import threading
from collections.abc import Callable
from typing import Any


class Background:
    def __init__(self, work: Callable[..., Any], *arguments: Any) -> None:
        self._work = work
        self._arguments = arguments
        self._error: BaseException | None = None
        self._thread = threading.Thread(target=self._run, daemon=True)
        self._thread.start()

    def _run(self) -> None:
        try:
            self._work(*self._arguments)
        except BaseException as error:  # for wait to raise
            self._error = error

    def wait(self, seconds: float = 120) -> None:
        """Until the work is done. What it raised is raised here."""
        self._thread.join(seconds)
        assert not self._thread.is_alive(), f"{self._work} does not end"
        if self._error:
            raise self._error
