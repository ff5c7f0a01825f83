"""The runtime library and its exports."""
import atexit
import ctypes
import gc
import os
import sys
from pathlib import Path

from . import _contract as contract
from ._errors import RESULT_NAMES, OssiraError
from ._interface import Export, ctype_of, pointers, release_deferred, table_of

FILE_NAME = "TavrikOssira.dll"
RESULT_NAMES.update(contract.RESULT_NAMES)

_library = None
_functions = {}


def load(path=None):
    """Loads the runtime, once: the file or folder `path`, or what the environment's OSSIRA_RUNTIME
    names, or else what the platform finds. Everything else does this by itself when it is first
    needed. Answers the library's file name."""
    global _library
    if _library is None:
        chosen = path or os.environ.get("OSSIRA_RUNTIME") or FILE_NAME
        if os.path.isdir(chosen):
            chosen = Path(chosen, FILE_NAME)
        _library = ctypes.CDLL(str(chosen))
        for export in (*contract.RUNTIME_EXPORTS, *contract.MODULE_EXPORTS):
            _functions[export.name] = bind(_library, export)
        from ._observer import start_observing
        atexit.register(_leave, start_observing())
    return _library._name


def _leave(stop_observing):
    """Nothing written in Python may be called when the interpreter has ended."""
    stop_observing()
    gc.collect()
    release_deferred()


def _library_at(address):
    """Tells apart which library an address lies in; None when it lies in none."""
    found = ctypes.c_void_p()
    if sys.platform == "win32":
        by_address_without_reference = 6
        ctypes.windll.kernel32.GetModuleHandleExW(by_address_without_reference,
                                                  ctypes.c_void_p(address), ctypes.byref(found))
        return found.value
    answer = (ctypes.c_void_p * 4)()  # file name, base, symbol, its address
    return answer[1] if ctypes.CDLL(None).dladdr(ctypes.c_void_p(address), answer) else None


def give_back_modules():
    """Gives back every reference on a module's object that Python still has: the modules go."""
    gc.collect()
    release_deferred()
    own = _library_at(ctypes.cast(_library.CreateClassObject, ctypes.c_void_p).value)
    for pointer in list(pointers.values()):
        if pointer.address and _library_at(table_of(pointer.address)) not in (None, own):
            pointer.close()


def bind(library, export):
    """A function of a library as the contract declares it."""
    found = getattr(library, export.name)
    function = ctypes.CFUNCTYPE(ctype_of(export.result), *export.ctypes)(
        ctypes.cast(found, ctypes.c_void_p).value)

    def call(*arguments):
        return export.invoke("", function, (), arguments)

    call.__name__, call.__doc__ = export.name, export.documentation()
    return call


def call(name, *arguments):
    """Calls an export of the runtime."""
    load()
    return _functions[name](*arguments)


def create(clsid, interface=contract.IUnknown):
    """A new object of a class, seen through an interface."""
    return call("CreateClassObject", clsid, interface)


def singleton(clsid, interface=contract.IUnknown):
    """The one object of a class that the whole process shares."""
    registry = create(contract.CLSID_GlobalSingleton, contract.ISingleton)
    return registry.GetClassObject(clsid, interface)


def object_count():
    """How many objects of the runtime's own classes are alive."""
    return call("GetObjectOpenCount")


def exception_count():
    """How many exceptions were made and not released; 0 when all is well."""
    return call("GetExceptionOpenCount")


__all__ = ["Export", "OssiraError", "create", "exception_count", "load", "object_count", "singleton"]
