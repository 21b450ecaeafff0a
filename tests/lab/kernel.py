"""The kernel's multicast routes: notifications, and a routing daemon that the lab controls."""

import json
import select
import socket
import struct
import threading
import time
from collections.abc import Iterable

from namespaces import Namespace

Route = tuple[str, str]  # source and group

# linux/mroute.h; the names of the options are those of IPv4.
MRT_INIT, MRT_ADD_VIF, MRT_ADD_MFC, MRT_DEL_MFC = 200, 202, 204, 205
VIFF_USE_IFINDEX = 8
MAX_VIFS = 32

# linux/rtnetlink.h
SOL_NETLINK, NETLINK_ADD_MEMBERSHIP, SO_RCVBUFFORCE = 270, 1, 33
RTNLGRP_IPV4_MROUTE, RTNLGRP_IPV6_MROUTE = 6, 10
RTM_NEWROUTE, RTA_DST, RTA_SRC, RTNH_F_UNRESOLVED = 24, 1, 2, 32
FAMILIES = {128: socket.AF_INET, 129: socket.AF_INET6}


class RouteSocket:
    """A routing daemon for IPv4 that writes the routes it is given. Its routes live as long as its
    socket, as those of any daemon."""

    def __init__(self, namespace: Namespace, interfaces: list[str]) -> None:
        self._vifs = {name: number for number, name in enumerate(interfaces)}
        self.routes: set[Route] = set()

        def open_socket() -> socket.socket:
            opened = socket.socket(socket.AF_INET, socket.SOCK_RAW, socket.IPPROTO_IGMP)
            opened.setsockopt(socket.IPPROTO_IP, MRT_INIT, 1)
            for name, number in self._vifs.items():
                vif = struct.pack(
                    "@HBBIiI", number, VIFF_USE_IFINDEX, 1, 0, socket.if_nametoindex(name), 0
                )
                opened.setsockopt(socket.IPPROTO_IP, MRT_ADD_VIF, vif)
            return opened

        self._socket = namespace.call(open_socket)

    def put(self, route: Route, source: str, outputs: Iterable[str]) -> None:
        """Adds a route with the input interface `source`, or replaces it."""
        self._socket.setsockopt(socket.IPPROTO_IP, MRT_ADD_MFC, self._mfc(route, source, outputs))
        self.routes.add(route)

    def delete(self, route: Route, source: str) -> None:
        self._socket.setsockopt(socket.IPPROTO_IP, MRT_DEL_MFC, self._mfc(route, source, ()))
        self.routes.discard(route)

    def close(self) -> None:
        self._socket.close()

    def _mfc(self, route: Route, source: str, outputs: Iterable[str]) -> bytes:
        thresholds = bytearray(MAX_VIFS)
        for name in outputs:
            thresholds[self._vifs[name]] = 1
        addresses = b"".join(map(socket.inet_aton, route))
        head = addresses + struct.pack("@H", self._vifs[source]) + bytes(thresholds)
        return head + bytes(2) + struct.pack("@IIIi", 0, 0, 0, 0)


class RouteNotifications:
    """Notes when the kernel notifies of each route that is resolved."""

    def __init__(self, namespace: Namespace) -> None:
        self.times: dict[Route, list[float]] = {}
        self._socket = namespace.call(self._open)
        self._closing = False
        self._thread = threading.Thread(target=self._read)
        self._thread.start()

    def close(self) -> None:
        self._closing = True
        self._thread.join()
        self._socket.close()

    @staticmethod
    def _open() -> socket.socket:
        opened = socket.socket(socket.AF_NETLINK, socket.SOCK_RAW, 0)
        opened.setsockopt(socket.SOL_SOCKET, SO_RCVBUFFORCE, 32 << 20)
        opened.bind((0, 0))
        for group in (RTNLGRP_IPV4_MROUTE, RTNLGRP_IPV6_MROUTE):
            opened.setsockopt(SOL_NETLINK, NETLINK_ADD_MEMBERSHIP, group)
        return opened

    def _read(self) -> None:
        while not self._closing:
            if select.select([self._socket], [], [], 0.1)[0]:
                data = self._socket.recv(1 << 16)
                self._note(data, time.time())

    def _note(self, data: bytes, now: float) -> None:
        while len(data) >= 28:
            size, kind = struct.unpack_from("=IH", data)
            family = FAMILIES.get(data[16])
            if kind == RTM_NEWROUTE and family is not None:
                (flags,) = struct.unpack_from("=I", data, 24)
                found = dict(self._attributes(data[28:size]))
                if not flags & RTNH_F_UNRESOLVED and RTA_SRC in found and RTA_DST in found:
                    route = tuple(socket.inet_ntop(family, found[k]) for k in (RTA_SRC, RTA_DST))
                    self.times.setdefault(route, []).append(now)  # type: ignore[arg-type]
            data = data[(size + 3) & ~3 :]

    @staticmethod
    def _attributes(data: bytes) -> Iterable[tuple[int, bytes]]:
        while len(data) >= 4:
            size, kind = struct.unpack_from("=HH", data)
            yield kind, data[4:size]
            data = data[max((size + 3) & ~3, 4) :]


def kernel_routes(namespace: Namespace, outputs: bool = True) -> dict[Route, int]:
    """The resolved (S,G) routes of both families and all tables, with their packet counts. Without
    `outputs` routes that have none belong to them."""
    counts = {}
    for family in ("-4", "-6"):
        text = namespace.run("ip", family, "-j", "-s", "mroute", "show", "table", "all")
        for entry in json.loads(text or "[]"):
            source = entry.get("src", "")
            resolved = entry.get("multipath") or (not outputs and "iif" in entry)
            if resolved and source not in ("", "0.0.0.0", "::"):
                counts[source, entry["dst"]] = int(entry.get("packets", 0))
    return counts
