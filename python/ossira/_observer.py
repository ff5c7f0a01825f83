"""The diagnostics observer in Python.

The package puts one in place: an error line that is reported during a call becomes part of the
exception that the call raises, and is printed when the call succeeds all the same. To see more, or
to do something else with the lines, put another one in place:

    class Everything(ossira.Observer):
        mask = ossira.PRINT_TRACE | ossira.PRINT_PROGRESS | ossira.PRINT_WARN | ossira.PRINT_ERROR
        def line(self, line):
            print(line)

    ossira.observe(Everything())
"""
import ctypes
import sys

from ._contract import PRINT_ERROR, IObserverPrint
from ._errors import Line, hand_on
from ._implement import Object
from ._runtime import call

# The arguments of a format are read once; their list is 24 bytes there, and a pointer elsewhere.
_LIST_SIZE = 0 if sys.platform == "win32" else 24
_LONGEST = 4096


def _formatter():
    library = ctypes.cdll.msvcrt if sys.platform == "win32" else ctypes.CDLL(None)
    function = library._vsnprintf if sys.platform == "win32" else library.vsnprintf
    function.argtypes = [ctypes.c_char_p, ctypes.c_size_t, ctypes.c_char_p, ctypes.c_void_p]
    return function


_format = _formatter()


def formatted(text, arguments):
    """A message of printf's form with its arguments."""
    if arguments and _LIST_SIZE:
        copy = ctypes.create_string_buffer(ctypes.string_at(arguments, _LIST_SIZE), _LIST_SIZE)
        arguments = ctypes.addressof(copy)
    buffer = ctypes.create_string_buffer(_LONGEST)
    if _format(buffer, _LONGEST, text.encode(), arguments) < 0:
        return text
    return buffer.value.decode(errors="replace")


class Observer(Object, implements=[IObserverPrint]):
    __doc__ = __doc__ + """
`mask` has the levels that are wanted. `line` is called on whatever thread reports, and must not call
the runtime."""

    mask = PRINT_ERROR

    def line(self, line):
        """Takes one line."""
        hand_on([line])

    def GetLevelMask(self):
        return self.mask

    def SetLevelMask(self, set, clear):
        self.mask = self.mask & ~clear | set

    def Print(self, level, location, format, arguments):
        if not level & self.mask:
            return
        where = ("?", 0, "?") if location is None else (
            (location.File or b"?").decode(errors="replace"), location.Line,
            (location.Function or b"?").decode(errors="replace"))
        self.line(Line(level, *where, formatted(format, arguments).strip("\a\r\n")))


def observe(observer):
    """Puts an observer in place, None for none; answers the one that was there."""
    former = call("GetGlobalObserver")
    call("SetGlobalObserver", observer)
    return former


def start_observing():
    """Puts the package's observer in place. What is answered puts the former one back, which must
    happen before the interpreter ends."""
    former = observe(Observer())
    return lambda: observe(former)
