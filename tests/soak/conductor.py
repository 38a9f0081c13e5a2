# SPDX-License-Identifier: MIT
"""Plays the relay, the devices and the faults, all on one thread, a few milliseconds at a time."""

import random
import struct
import time
from collections import Counter, deque
from collections.abc import Callable

from relay_link import RelayLink
from serial_port_relay import Packet, RelayError, close_command, open_command
from serial_port_relay.packet import CLOSE, DATA, OPEN, RECEIVED_DATA_BLOCK
from world import Door, World

TICK = 0.005
# A close takes up to 0.2 s, a stall 4 s, a device is away for 3 s and may hold all others up.
MAX_DOWN = 60
MAX_WAITING_BYTES = 16384  # at the relay, before it waits itself
NOBODY, FENCE = "X", "Y"  # names that no port has

GARBAGE = [
    bytes.fromhex("0003 01"),  # no form
    bytes.fromhex("0008 01 09 0003 0007"),  # an unknown form
    bytes.fromhex("0006 01 02 0000"),  # an empty name
    bytes.fromhex("0015 01 02 000E") + b"#PhysicalPort0\0",  # a body of one byte
    bytes.fromhex("0014 04 02 000F") + b"#PhysicalPort0",  # a name longer than the packet
    bytes.fromhex("0017 04 02 000E") + b"#PhysicalPort0\2\1\0",  # blocks that are cut
    bytes.fromhex("0019 04 02 000E") + b"#PhysicalPort0\1\1\0\0K",  # a byte too many
]


class Conductor:
    def __init__(self, world: World, plan: random.Random) -> None:
        self._world = world
        self._plan = plan
        self._link = RelayLink()
        self._ports = {port.name.encode(): port for port in world.ports}
        self._is_listening = False  # the service, for a relay
        self._is_leaving = False
        self._connect_at = self._stall_until = self._next_fault = 0.0
        self._awaited: deque[tuple[int, str, int]] = deque()  # command, name and status
        self.makes_faults = False
        self.sends_data = True
        self.stops = False  # the service has been told to end: its link may go
        self.defects: list[str] = []  # besides the streams' own
        self.fenced = 0  # garbage packets behind which an answer came
        # What is done to the service: how often it is drawn, and what to do; that tells whether it
        # could be done.
        self._kinds: dict[str, tuple[int, Callable[[], bool]]] = {
            "unplugged and plugged": (6, self._unplug),
            "closed and opened": (5, self._close),
            "opened twice": (2, self._open_twice),
            "unknown name closed": (2, lambda: self._at_link(self._close_unknown)),
            "garbage packets": (6, lambda: self._at_link(self._send_garbage)),
            "relay stalls": (1, lambda: self._at_link(self._stall)),
            "relay leaves": (1, lambda: self._at_link(self._leave)),
            "relay resets": (1, lambda: self._at_link(self._reset)),
        }
        self.faults = Counter(dict.fromkeys(self._kinds, 0))

    def run_until(self, condition: Callable[[], bool], limit: float) -> bool:
        """False when `limit` seconds have passed or the service has ended before it holds."""
        end = time.monotonic() + limit
        while not condition():
            began = time.monotonic()
            if began > end or not (self.stops or self._world.is_running):
                return False
            self._tick()
            time.sleep(max(0.0, began + TICK - time.monotonic()))
        return True

    def run_for(self, seconds: float) -> None:
        self.run_until(lambda: False, seconds)

    def all_up(self) -> bool:
        return all(port.is_up for port in self._world.ports)

    def all_drained(self) -> bool:
        return all(port.from_device.is_drained and port.to_device.is_drained
                   for port in self._world.ports)

    def _tick(self) -> None:
        """The output first: what it says comes before the answers that are read next."""
        self._read_output()
        self._world.read_errors()
        self._play_relay()
        for port in self._world.ports:
            port.tick(self.sends_data)
            if port.is_down_for(MAX_DOWN):
                self.defects.append(f"{port.name} did not come up in time")
        if self.makes_faults and time.monotonic() >= self._next_fault:
            self._make_fault()

    def _read_output(self) -> None:
        for line in self._world.output.read():
            self._is_listening = self._is_listening or line.startswith("[LISTEN]")
            for port in self._world.ports:
                if line == f"OPEN[{port.node}]":
                    port.line_opens()

    def _play_relay(self) -> None:
        if not self._link.is_connected:
            if self._is_listening and time.monotonic() >= self._connect_at:
                self._link.connect()
                self._is_listening = not self._link.is_connected
                self._is_leaving = False
            return
        if time.monotonic() >= self._stall_until:
            self._receive()
        if self._link.is_connected and not self._is_leaving and not self.stops:
            self._open_ports()
            self._send_data()
            self._link.flush()

    def _receive(self) -> None:
        try:
            for packet in self._link.receives():
                self._take(packet)
        except RelayError as error:
            self.defects.append(f"a packet that the service never sends: {error}")
            self._link.has_ended = True
        if self._link.has_ended:
            if not self._is_leaving and not self.stops:
                self.defects.append("the service ended the link")
                self._link_ends()
            self._link.leaves()

    def _take(self, packet: Packet) -> None:
        if packet.command != DATA:
            self._take_reply(packet)
        elif packet.port.name not in self._ports:
            self.defects.append(f"data from a port with another name: {packet.port}")
        elif [block.type for block in packet.blocks] != [RECEIVED_DATA_BLOCK]:
            self.defects.append(f"other blocks than the service sends: {packet}")
        else:
            self._ports[packet.port.name].from_device.arrives(packet.data)

    def _take_reply(self, packet: Packet) -> None:
        """Answers come in the order of the commands."""
        if self._is_leaving:
            return
        awaited = self._awaited.popleft() if self._awaited else None
        reply = (packet.command, str(packet.port), packet.number)
        if reply != awaited:
            self.defects.append(f"the answer {reply} instead of {awaited}")
        self.fenced += reply == (CLOSE, FENCE, 2)
        port = self._ports.get(packet.port.name)
        if port and packet.number == 0:
            if packet.command == OPEN:
                port.opens()
            else:
                port.closes(self._plan.uniform(0.05, 1.5))

    def _link_ends(self) -> None:
        """The service closes all ports, and listens anew."""
        for port in self._world.ports:
            port.border_begins()
            port.closes(self._plan.uniform(0, 0.5))
        self._awaited.clear()
        self._connect_at = time.monotonic() + self._plan.uniform(0, 1.5)
        self._stall_until = 0.0

    def _send_data(self) -> None:
        for port in self._world.ports:
            if self.sends_data and len(self._link.waiting) <= MAX_WAITING_BYTES:
                self._link.waiting += port.next_command()

    def _open_ports(self) -> None:
        for port in self._world.ports:
            if port.may_open:
                port.door = Door.OPENING
                self._command(OPEN, port.name, 0)

    def _command(self, command: int, name: str, status: int) -> None:
        self._link.waiting += open_command(name) if command == OPEN else close_command(name)
        self._awaited.append((command, name, status))

    def _make_fault(self) -> None:
        self._next_fault = time.monotonic() + self._plan.uniform(0.1, 2)
        # Also a short soak has each kind.
        missing = [kind for kind, count in self.faults.items() if not count]
        kind = missing[0] if missing else self._plan.choices(
            list(self._kinds), [weight for weight, _ in self._kinds.values()])[0]
        self.faults[kind] += self._kinds[kind][1]()

    def _unplug(self) -> bool:
        """Meets only a port that is up, so that what the service says of its device is never older
        than the device."""
        port = self._plan.choice(self._world.ports)
        if port.is_up:
            port.unplugs(self._plan.uniform(0.1, 3))
            return True
        return False

    def _close(self) -> bool:
        """May meet a device that is away."""
        port = self._plan.choice(self._world.ports)
        if port.door is not Door.OPEN:
            return False
        port.border_begins()
        port.door = Door.CLOSING
        self._command(CLOSE, port.name, 0)
        return True

    def _open_twice(self) -> bool:
        port = self._plan.choice(self._world.ports)
        if port.is_up:
            self._command(OPEN, port.name, 3)
            return True
        return False

    def _at_link(self, fault: Callable[[], None]) -> bool:
        if not self._link.is_connected or self._is_leaving:
            return False
        fault()
        return True

    def _close_unknown(self) -> None:
        self._command(CLOSE, NOBODY, 2)

    def _send_garbage(self) -> None:
        """The answer behind it shows that the link stands."""
        length = self._plan.randint(3, 3000)  # a true one, an unknown command code, and anything
        noise = struct.pack(">HB", length, 3) + self._plan.randbytes(length - 3)
        self._link.waiting += self._plan.choice([*GARBAGE, noise])
        self._command(CLOSE, FENCE, 2)

    def _stall(self) -> None:
        """Reads nothing for a while."""
        self._stall_until = time.monotonic() + self._plan.uniform(0.5, 4)

    def _leave(self) -> None:
        """Ends its side, reads what still comes, and connects anew."""
        self._link_ends()
        self._link.ends_sending()
        self._is_leaving = True

    def _reset(self) -> None:
        """The same at once, without reading."""
        self._link_ends()
        self._link.resets()
