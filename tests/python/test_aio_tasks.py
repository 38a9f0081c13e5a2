# SPDX-License-Identifier: MIT
"""What only the client of asyncio can do: several calls at a time, cancelled ones, and waiting."""

import asyncio
import socket
import unittest
from collections.abc import Callable

from fake_service import FakeService
from serial_port_relay import Event, LinkEnded, NotListening, Port, Received
from serial_port_relay.aio import Client
from test_fake_service import (
    CLOSE_X,
    DATA_OF_X,
    GO,
    OPEN_ALREADY,
    OPEN_X,
    OPEN_Y,
    OPENED_X,
    OPENED_Y,
    X,
)
from with_service import PROGRAM
from workplace import PATIENCE, PHYSICAL, USB, Device, make


async def until(done: Callable[[], object]) -> None:
    async with asyncio.timeout(PATIENCE):
        while not done():
            await asyncio.sleep(0)


class WithTheService(unittest.IsolatedAsyncioTestCase):
    def setUp(self) -> None:
        self.service = make(PROGRAM, self.addCleanup)
        self.device, self.usb = Device("/dev/ttyS2"), Device("/dev/ttyUSB0")
        self.addCleanup(self.device.remove)
        self.addCleanup(self.usb.remove)

    async def test_tasks_for_two_ports(self) -> None:
        sent = bytes(range(256)) * 400

        async def talk(client: Client, name: str, device: Device) -> None:
            async with client.serial(name, PATIENCE) as port:
                write = asyncio.create_task(port.write(sent))
                self.assertEqual(await asyncio.to_thread(device.receives, len(sent)), sent)
                self.assertEqual(await write, len(sent))
                read = asyncio.create_task(port.read(len(sent)))
                await asyncio.to_thread(device.sends, sent)
                self.assertEqual(await read, sent)

        async with Client(self.service.port, patience=PATIENCE) as client:
            await asyncio.gather(
                talk(client, PHYSICAL, self.device), talk(client, USB, self.usb)
            )

    async def test_iteration(self) -> None:
        async with Client(self.service.port, patience=PATIENCE) as client:
            async with client.serial(PHYSICAL, PATIENCE) as port:
                self.device.sends(b"one\ntwo\n")
                lines = []
                async for line in port:
                    lines.append(line)
                    port.timeout = PATIENCE if len(lines) < 2 else 0
                self.assertEqual(lines, [b"one\n", b"two\n"])
                self.device.sends(b"rest")
                async for piece in client.received(PATIENCE):
                    self.assertEqual(piece, Received(Port(PHYSICAL.encode()), b"rest"))
                    break

    async def test_it_reads_while_nobody_calls(self) -> None:
        ended = asyncio.Event()
        client = Client(
            self.service.port,
            patience=PATIENCE,
            reconnect=True,
            on_event=lambda event: ended.set(),
        )
        async with client:
            await client.open(PHYSICAL, keep=True)
            self.service.kill()
            await asyncio.wait_for(ended.wait(), PATIENCE)
            ended.clear()
            self.service.start()
            await asyncio.wait_for(ended.wait(), PATIENCE)
            self.assertTrue(client.is_connected)


class WithFakeService(unittest.IsolatedAsyncioTestCase):
    async def connect(self, *script: str) -> Client:
        service = FakeService(script)
        self.addCleanup(service.finish)
        client = Client(service.port)
        self.addAsyncCleanup(client.disconnect)
        await client.connect()
        return client


class Cancelled(WithFakeService):
    async def cancel(self, task: asyncio.Task[bytes] | asyncio.Task[None]) -> None:
        await asyncio.sleep(0)  # it begins
        task.cancel()
        with self.assertRaises(asyncio.CancelledError):
            await task

    async def test_a_read_has_taken_nothing(self) -> None:
        client = await self.connect(DATA_OF_X, GO, DATA_OF_X)
        await until(lambda: client.waiting("X"))
        await self.cancel(asyncio.create_task(client.read("X", 4)))
        await self.cancel(asyncio.create_task(client.read_until("X", b"\n")))
        await client.send(b"GO")
        self.assertEqual(await client.read("X", 4, PATIENCE), b"OKOK")

    async def test_a_port_that_opens_is_closed_again(self) -> None:
        client = await self.connect(
            OPEN_X, GO, OPENED_X, CLOSE_X, OPEN_Y, "< 0009 02 02 0001 58 0000", OPENED_Y
        )
        await self.cancel(asyncio.create_task(client.open("X", keep=True)))
        client._put(b"GO")
        await until(lambda: client._opened)
        await client.open("Y")
        self.assertFalse(client.is_open("X"))

    async def test_a_port_that_another_has_opened_stays_open(self) -> None:
        client = await self.connect(OPEN_X, GO, OPEN_ALREADY, OPEN_Y, OPENED_Y)
        await self.cancel(asyncio.create_task(client.open("X")))
        client._put(b"GO")
        await until(lambda: client._opened)
        await client.open("Y")
        self.assertTrue(client.is_open("X"))

    async def test_a_write_leaves_the_link_as_it_is(self) -> None:
        client = await self.connect(
            OPEN_X, OPENED_X, "> 000D 04 02 0001 58 01 01 0002 4142  0009 01 02 0001 58 4645",
            GO, OPEN_ALREADY, OPEN_Y, OPENED_Y,
        )
        await client.open("X")
        await self.cancel(asyncio.create_task(client.write("X", b"AB")))
        client._put(b"GO")
        await until(lambda: not client._questions)
        await client.open("Y")


class Task(WithFakeService):
    async def test_it_ends_with_its_block(self) -> None:
        server = socket.create_server(("127.0.0.1", 0))
        with server:
            async with Client(server.getsockname()[1]) as client:
                read = asyncio.create_task(client.read("X"))
                await asyncio.sleep(0)
                self.assertEqual(len(asyncio.all_tasks()), 3)  # and this one
        with self.assertRaises(LinkEnded):
            await read
        self.assertEqual(asyncio.all_tasks(), {asyncio.current_task()})

    async def test_none_is_left_when_nobody_listens(self) -> None:
        for reconnect in (False, True):
            with self.assertRaises(NotListening):
                async with Client(1, patience=0.0, reconnect=reconnect):
                    self.fail("it is connected")
            self.assertEqual(asyncio.all_tasks(), {asyncio.current_task()})

    async def test_it_outlives_a_callback_that_raises(self) -> None:
        told: list[str] = []
        loop = asyncio.get_running_loop()
        loop.set_exception_handler(lambda _, context: told.append(str(context["exception"])))

        def fail(event: Event) -> None:
            raise ValueError(event.text)

        service = FakeService([OPEN_X, "< 0009 01 02 0001 58 0004", OPEN_X, OPENED_X])
        self.addCleanup(service.finish)
        async with Client(service.port, reconnect=True, on_event=fail) as client:
            with self.assertRaisesRegex(Exception, "status 4"):
                await client.open("X", keep=True)
            await until(lambda: told)
        self.assertEqual(told, ["X: open"])


class Backpressure(unittest.IsolatedAsyncioTestCase):
    DATA = bytes.fromhex("FFF9 04 02 0001 58 01 02 FFEE") + bytes(0xFFEE)

    async def asyncSetUp(self) -> None:
        with socket.create_server(("127.0.0.1", 0)) as server:
            self.client = Client(server.getsockname()[1], limit=100000)
            self.addAsyncCleanup(self.client.disconnect)
            await self.client.connect()
            self.link, _ = server.accept()
        self.addCleanup(self.link.close)
        self.link.setblocking(False)

    async def send(self, data: bytes) -> None:
        await asyncio.get_running_loop().sock_sendall(self.link, data)

    async def many_turns(self) -> None:
        for _ in range(1000):
            await asyncio.sleep(0)

    async def serves_an_open(self) -> None:
        receive = asyncio.get_running_loop().sock_recv(self.link, 100)
        self.assertEqual(await asyncio.wait_for(receive, PATIENCE), bytes.fromhex(OPEN_X[1:]))
        await self.send(bytes.fromhex(OPENED_X[1:]))

    async def test_it_stops_reading_when_nobody_takes_what_comes(self) -> None:
        flood = asyncio.create_task(self.send(self.DATA * 500))
        await until(lambda: self.client._inbox.size >= self.client.limit)
        await self.many_turns()
        self.assertFalse(flood.done())
        self.assertLess(self.client._inbox.size, 2 * self.client.limit)
        opened = asyncio.create_task(self.client.open("X"))
        await flood
        await self.serves_an_open()
        await opened
        self.assertEqual(self.client.waiting("X"), 500 * 0xFFEE)

    async def test_it_reads_to_the_end_of_a_packet_before_it_asks(self) -> None:
        await self.send(self.DATA * 2)
        await until(lambda: self.client._is_held_up)
        await self.send(self.DATA[:100])
        opened = asyncio.create_task(self.client.open("X"))
        await self.many_turns()
        with self.assertRaises(BlockingIOError):
            self.link.recv(100)
        await self.send(self.DATA[100:])
        await self.serves_an_open()
        await opened


if __name__ == "__main__":
    unittest.main()
