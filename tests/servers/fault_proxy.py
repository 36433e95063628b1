"""A TCP proxy on loopback that breaks connections as it is told: what a bad network does to a client."""
import asyncio
import dataclasses
import random
import socket
import struct
import threading


@dataclasses.dataclass
class Fault:
    """What becomes of a connection."""
    kind: str = "none"      # none, refuse, reset, cut, slow, corrupt, busy, stall, trickle
    after: int = 0          # bytes that pass first
    upwards: bool = False   # on the way to the server; else on the way back
    rate: float = 0         # of a slow or trickling one: bytes per second


BUSY = b"<Error><Code>SlowDown</Code><Message>too much at once</Message></Error>"


class FaultProxy:
    """Runs in a thread of its own. `plan` is asked for each connection, with the random generator of the test."""

    def __init__(self, upstream_port, plan, seed=1):
        self.upstream_port = upstream_port
        self.plan = plan
        self.random = random.Random(seed)
        self.connections = 0
        self.faults = 0
        self.passed_upwards = 0  # bytes, over all connections
        self._watch = None
        self._serving = set()  # the loop alone does not keep what waits for nothing
        self.port = None
        self._loop = asyncio.new_event_loop()
        started = threading.Event()
        self._thread = threading.Thread(target=self._run, args=(started,), daemon=True)
        self._thread.start()
        started.wait()

    def when_passed(self, size, action):
        """Calls the action, once, when so many further bytes have gone upwards; nothing passes until it returns."""
        self._watch = (self.passed_upwards + size, action)

    def stop(self):
        self._loop.call_soon_threadsafe(self._loop.stop)
        self._thread.join()

    def _run(self, started):
        asyncio.set_event_loop(self._loop)
        server = self._loop.run_until_complete(asyncio.start_server(self._serve, "127.0.0.1", 0))
        self.port = server.sockets[0].getsockname()[1]
        started.set()
        self._loop.run_forever()
        server.close()
        tasks = asyncio.all_tasks(self._loop)
        for task in tasks:
            task.cancel()
        self._loop.run_until_complete(asyncio.gather(*tasks, return_exceptions=True))
        self._loop.close()

    async def _serve(self, reader, writer):
        self.connections += 1
        task = asyncio.current_task()
        self._serving.add(task)
        fault = self.plan(self.random)
        try:
            if fault.kind == "refuse":
                self._reset(writer)
            elif fault.kind == "busy":
                await self._busy(reader, writer)
            else:
                await self._relay(reader, writer, fault)
        except (OSError, asyncio.IncompleteReadError, asyncio.LimitOverrunError, asyncio.CancelledError):
            pass  # cancelled only by stop
        finally:
            self._serving.discard(task)
            writer.close()

    async def _busy(self, reader, writer):
        self.faults += 1
        await reader.readuntil(b"\r\n\r\n")
        writer.write(b"HTTP/1.1 503 Slow\r\nRetry-After: 1\r\nConnection: close\r\nContent-Length: %d\r\n\r\n%s"
                     % (len(BUSY), BUSY))
        await writer.drain()

    def _reset(self, writer):
        """The peer sees the connection reset, not closed."""
        self.faults += 1
        writer.get_extra_info("socket").setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
        writer.transport.abort()

    async def _relay(self, reader, writer, fault):
        up_reader, up_writer = await asyncio.open_connection("127.0.0.1", self.upstream_port)
        none = Fault()
        ways = [asyncio.ensure_future(self._pump(reader, up_writer, writer, fault if fault.upwards else none, True)),
                asyncio.ensure_future(self._pump(up_reader, writer, writer, none if fault.upwards else fault, False))]
        try:
            await asyncio.wait(ways, return_when=asyncio.FIRST_COMPLETED)
        finally:
            for way in ways:
                way.cancel()
            await asyncio.gather(*ways, return_exceptions=True)
            up_writer.close()

    def _count_upwards(self, size):
        self.passed_upwards += size
        if self._watch is not None and self.passed_upwards >= self._watch[0]:
            action, self._watch = self._watch[1], None
            action()

    async def _fade(self, target, data, fault):
        """Lets nothing pass any more, or next to nothing; until the other side gives the connection up."""
        self.faults += 1
        for byte in data if fault.kind == "trickle" else b"":
            await asyncio.sleep(1 / fault.rate)
            target.write(bytes([byte]))
            await target.drain()
        await asyncio.Event().wait()

    async def _pump(self, source, target, client, fault, upwards):
        passed = 0
        while data := await source.read(65536):
            if upwards:
                self._count_upwards(len(data))
            if fault.kind == "slow":
                await asyncio.sleep(len(data) / fault.rate)
            if fault.kind in ("stall", "trickle") and passed + len(data) > fault.after:
                fine = max(0, fault.after - passed)
                target.write(data[:fine])
                await target.drain()
                await self._fade(target, data[fine:], fault)
            if fault.kind in ("reset", "cut") and passed + len(data) > fault.after:
                target.write(data[:max(0, fault.after - passed)])
                await target.drain()
                if fault.kind == "reset":
                    self._reset(client)
                else:
                    self.faults += 1
                return
            if fault.kind == "corrupt" and passed <= fault.after < passed + len(data):
                self.faults += 1
                at = fault.after - passed
                data = data[:at] + bytes([data[at] ^ 0x55]) + data[at + 1:]
            passed += len(data)
            target.write(data)
            await target.drain()
