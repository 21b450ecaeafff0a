"""Raw OpenFlow 1.5, pipelined: the switch's own pace, beside which the agent's figures stand."""

import socket
import struct
import time
from collections.abc import Iterable

VERSION = 6
HELLO, ERROR, ECHO_REQUEST, ECHO_REPLY = 0, 1, 2, 3
FLOW_MOD, GROUP_MOD, BARRIER_REQUEST, BARRIER_REPLY = 14, 15, 20, 21
ADD, MODIFY = 0, 1
ALL_GROUPS = 0xFFFFFFFC
ANY = 0xFFFFFFFF


def set_source_mac(last: int) -> bytes:
    return struct.pack("!HHHBB6s2x", 25, 16, 0x8000, 4 << 1, 6, bytes([2, 0, 0, 0, 0, last]))


def group(command: int, number: int, ports: Iterable[int]) -> bytes:
    """A group of type all with one bucket for each port, which sets a source address."""
    buckets = b""
    for place, port in enumerate(ports):
        actions = set_source_mac(port & 0xFF) + struct.pack("!HHIH6x", 0, 16, port, 0)
        buckets += struct.pack("!HHI", 8 + len(actions), len(actions), place) + actions
    return struct.pack("!HBxIH2xI", command, 0, number, len(buckets), ANY) + buckets


def delete_all_groups() -> bytes:
    """The flows that use a group go with it."""
    return struct.pack("!HBxIH2xI", 2, 0, ALL_GROUPS, 0, ANY)


def flow(in_port: int, source: str, destination: str, number: int) -> bytes:
    fields = struct.pack("!HBBI", 0x8000, 0, 4, in_port) + struct.pack(
        "!HBBH", 0x8000, 5 << 1, 2, 0x0800
    )
    for field, address in ((11, source), (12, destination)):
        fields += struct.pack("!HBB4s", 0x8000, field << 1, 4, socket.inet_aton(address))
    match = struct.pack("!HH", 1, 4 + len(fields)) + fields
    match += bytes(-len(match) % 8)
    actions = struct.pack("!HH4x", 24, 8) + struct.pack("!HHI", 22, 8, number)
    apply = struct.pack("!HH4x", 4, 8 + len(actions)) + actions
    head = struct.pack("!QQBBHHHIIIHH", 0, 0, 0, ADD, 0, 0, 100, ANY, ANY, ANY, 0, 0)
    return head + match + apply


class Connection:
    def __init__(self, path: str) -> None:
        self._socket = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self._socket.settimeout(30)
        self._socket.connect(path)
        self._input = b""
        self.errors = 0
        self._socket.sendall(self._message(HELLO, struct.pack("!HHI", 1, 8, 1 << VERSION)))

    def write(self, kind: int, bodies: list[bytes]) -> float:
        """Sends all messages and one barrier behind them. Returns the milliseconds to its reply."""
        data = b"".join(self._message(kind, body) for body in bodies)
        data += self._message(BARRIER_REQUEST)
        start = time.monotonic()
        self._socket.sendall(data)
        while True:
            received, body = self._receive()
            if received == BARRIER_REPLY:
                return (time.monotonic() - start) * 1e3
            if received == ERROR:
                self.errors += 1
            elif received == ECHO_REQUEST:
                self._socket.sendall(self._message(ECHO_REPLY, body))

    def close(self) -> None:
        self._socket.close()

    @staticmethod
    def _message(kind: int, body: bytes = b"") -> bytes:
        return struct.pack("!BBHI", VERSION, kind, 8 + len(body), 1) + body

    def _receive(self) -> tuple[int, bytes]:
        while len(self._input) < 8 or len(self._input) < self._size():
            data = self._socket.recv(1 << 16)
            if not data:
                raise OSError("the switch closed the connection")
            self._input += data
        size = self._size()
        message, self._input = self._input[:size], self._input[size:]
        return message[1], message[8:]

    def _size(self) -> int:
        return int.from_bytes(self._input[2:4], "big")
