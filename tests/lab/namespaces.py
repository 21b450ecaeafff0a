"""Network namespaces without names, which nothing can leave behind.

A namespace lives as long as its holder. The lab keeps the holder's standard input open. When it
closes, also because the lab was killed, the holder kills all other processes of its namespace,
removes its directory and ends, and the kernel removes the namespace with its interfaces.
"""

import ctypes
import os
import subprocess
import threading
from collections.abc import Callable
from pathlib import Path
from typing import Any, TypeVar

from processes import LabError, run, spawn

T = TypeVar("T")

CLONE_NEWNET = 0x40000000

HOLDER = """
ip link set lo up && echo ready
read -r line
for process in /proc/[0-9]*; do
   [ "$process" != /proc/$$ ] && [ "$process/ns/net" -ef /proc/$$/ns/net ] &&
      kill -9 "${process#/proc/}"
done
[ -z "$1" ] || rm -rf "$1"
"""


class Namespace:
    def __init__(self, name: str, directory: Path | None = None) -> None:
        """`directory` is removed with the namespace."""
        self.name = name
        # The holder outlives the lab by a moment: it is no child that dies with the lab.
        self._holder = subprocess.Popen(
            ["unshare", "--net", "sh", "-c", HOLDER, "sh", str(directory or "")],
            stdin=subprocess.PIPE,
            stdout=subprocess.PIPE,
            stderr=subprocess.DEVNULL,
            start_new_session=True,
            text=True,
        )
        assert self._holder.stdout and self._holder.stdin
        if self._holder.stdout.readline() != "ready\n":
            raise LabError(f"namespace {name}: cannot be made")

    @property
    def pid(self) -> int:
        """The process that holds the namespace: `nsenter --net=/proc/PID/ns/net` enters it."""
        return self._holder.pid

    def command(self, *command: str) -> list[str]:
        return ["nsenter", f"--net=/proc/{self.pid}/ns/net", "--", *command]

    def run(self, *command: str, text: str = "", seconds: float = 30) -> str:
        return run(self.command(*command), text, seconds)

    def spawn(self, *command: str, **options: Any) -> subprocess.Popen:
        return spawn(self.command(*command), **options)

    def ip(self, *lines: str) -> None:
        """Runs commands of `ip`, all in one process."""
        self.run("ip", "-batch", "-", text="\n".join(lines) + "\n")

    def call(self, function: Callable[[], T]) -> T:
        """Calls a function in the namespace. The sockets that it opens stay there."""
        results: list[T] = []
        errors: list[BaseException] = []

        def enter() -> None:
            try:
                handle = os.open(f"/proc/{self.pid}/ns/net", os.O_RDONLY)
                try:
                    libc = ctypes.CDLL(None, use_errno=True)
                    if libc.setns(handle, CLONE_NEWNET) != 0:
                        raise OSError(ctypes.get_errno(), f"setns: {self.name}")
                finally:
                    os.close(handle)
                results.append(function())
            except BaseException as error:  # raised again in the caller's thread
                errors.append(error)

        thread = threading.Thread(target=enter)
        thread.start()
        thread.join()
        if errors:
            raise errors[0]
        return results[0]

    def sysctl(self, values: dict[str, int]) -> None:
        def write() -> None:
            for name, value in values.items():
                Path("/proc/sys", *name.split(".")).write_text(str(value))

        self.call(write)

    def close(self) -> None:
        self._holder.communicate()
