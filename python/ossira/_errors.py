"""Failures as exceptions, with what the runtime reported about them."""
import sys
import threading
from contextlib import contextmanager
from typing import NamedTuple

RESULT_NAMES = {}  # filled from the contract


class Line(NamedTuple):
    """A diagnostics line."""

    level: int
    file: str
    number: int
    function: str
    text: str

    def __str__(self):
        return f"[{self.file}:{self.number}] {self.text}"


class OssiraError(Exception):
    """An operation answered a failure.

    code    the result code, a negative number
    name    what it is called, "E_FAIL" say
    lines   the error lines that were reported during the call, innermost first
    line    the last of them, by which the operation itself explained its answer; or None
    """

    def __init__(self, code, operation="", lines=()):
        self.code = code
        self.name = RESULT_NAMES.get(code, f"0x{code & 0xFFFFFFFF:08X}")
        self.operation = operation
        self.lines = list(dict.fromkeys(lines))  # a check may report twice
        self.line = self.lines[-1] if self.lines else None
        super().__init__(code, operation)

    def __str__(self):
        first = f"{self.name} (0x{self.code & 0xFFFFFFFF:08X})"
        first += f" from {self.operation}" if self.operation else ""
        return "\n  ".join([first, *map(str, self.lines)])


_calls = threading.local()


@contextmanager
def reported():
    """Collects the error lines that this thread reports meanwhile."""
    outer, _calls.lines = getattr(_calls, "lines", None), []
    try:
        yield _calls.lines
    finally:
        _calls.lines = outer


def hand_on(lines):
    """For lines that no exception of this call takes along: they belong to the call around this
    one, and where there is none they are printed."""
    outer = getattr(_calls, "lines", None)
    if outer is not None:
        outer.extend(lines)
    else:
        for line in lines:
            print(line, file=sys.stderr)
