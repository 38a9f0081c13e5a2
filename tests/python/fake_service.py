# SPDX-License-Identifier: MIT
"""A service that does as it is told, also what the real one never does."""

import socket
import threading
from collections.abc import Sequence

from workplace import PATIENCE


class FakeService:
    """Serves as many links as there are scripts, one after the other, in a thread.

    A script's steps: "> hex" waits for these bytes, "< hex" sends them in one go, and "!" resets
    the link. Without "!" the link stays until the client leaves.
    """

    def __init__(self, *scripts: Sequence[str]) -> None:
        self._server = socket.create_server(("127.0.0.1", 0))
        self._server.settimeout(PATIENCE)
        self.port: int = self._server.getsockname()[1]
        self._scripts = scripts
        self._problem: str | None = None
        self._thread = threading.Thread(target=self._run)
        self._thread.start()

    def finish(self) -> None:
        """After the client has left."""
        self._thread.join()
        self._server.close()
        assert self._problem is None, self._problem

    def _run(self) -> None:
        step = "connect"
        try:
            for script in self._scripts:
                link, _ = self._server.accept()
                with link:
                    link.settimeout(PATIENCE)
                    for step in [*script, "leave"]:
                        if not self._play(link, step):
                            break
                step = "connect"
        except (OSError, AssertionError) as error:
            self._problem = f"{step}: {error!r}"

    def _play(self, link: socket.socket, step: str) -> bool:
        data = bytes.fromhex(step[1:]) if step[0] in "<>" else b""
        if step == "!":
            # Closing without lingering sends a reset, as a listener does with its queue.
            link.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, b"\1\0\0\0\0\0\0\0")
            return False
        if step == "leave":
            came = link.recv(1)
            assert came == b"", f"the client sent more: {came!r}"
        elif step[0] == "<":
            link.sendall(data)
        else:
            came = b""
            while len(came) < len(data) and (more := link.recv(len(data) - len(came))):
                came += more
            assert came == data, f"the client sent {came.hex()}"
        return True
