"""Child processes of the lab."""

import ctypes
import signal
import subprocess
import time
from collections.abc import Callable
from pathlib import Path
from typing import Any

PR_SET_PDEATHSIG = 1


class LabError(Exception):
    """A step of the lab failed, so that its scenario fails."""


def die_with_parent() -> None:
    ctypes.CDLL(None).prctl(PR_SET_PDEATHSIG, signal.SIGKILL)


def spawn(command: list[str], **options: Any) -> subprocess.Popen:
    """Starts a process that ends with the lab and that no Ctrl-C at the terminal reaches."""
    return subprocess.Popen(
        command, text=True, start_new_session=True, preexec_fn=die_with_parent, **options
    )


def run(command: list[str], text: str = "", seconds: float = 30) -> str:
    """Runs a command to its end and returns its output."""
    try:
        done = subprocess.run(command, input=text, capture_output=True, text=True, timeout=seconds)
    except subprocess.TimeoutExpired as error:
        raise LabError(f"{' '.join(command)}: no end within {seconds} s") from error
    if done.returncode != 0:
        raise LabError(f"{' '.join(command)}: {(done.stderr or done.stdout).strip()}")
    return done.stdout


def succeeds(command: list[str]) -> bool:
    try:
        done = subprocess.run(command, capture_output=True, timeout=30, stdin=subprocess.DEVNULL)
    except (OSError, subprocess.TimeoutExpired):
        return False
    return done.returncode == 0


def wait_until(condition: Callable[[], Any], seconds: float, subject: str) -> float:
    """Returns how many seconds the condition took."""
    start = time.monotonic()
    while not condition():
        if time.monotonic() - start > seconds:
            raise LabError(f"{subject}: not within {seconds:g} s")
        time.sleep(0.02)
    return time.monotonic() - start


def end(process: subprocess.Popen, number: int = signal.SIGTERM, seconds: float = 5) -> int:
    """Ends a process with a signal, and by force if it stays. Returns the exit code."""
    if process.poll() is None:
        process.send_signal(number)
        try:
            process.wait(seconds)
        except subprocess.TimeoutExpired:
            process.kill()
    return process.wait()


def tail(file: Path, lines: int = 5) -> str:
    text = file.read_text(errors="replace") if file.exists() else ""
    return "\n".join(text.splitlines()[-lines:])
