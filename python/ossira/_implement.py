"""Objects written in Python that native code calls.

A class says which interfaces it implements and has a method for each operation:

    class Guard(ossira.Object, implements=[ossira.IBootstrap]):
        def Startup(self, param):
            print("here we go")

A method gets what the operation gets, without the places to write to: what these are to hold it
answers, as a tuple when there are several. None is success, True and False are S_OK and S_FALSE, a
number is a result code of its own. An operation without a method answers E_NOTIMPL; one that raises
`OssiraError` its code; whatever else is raised is printed and answers E_UNEXPECTED.

An object lives as long as Python or native code refers to it.
"""
import ctypes
import sys
import threading
import weakref

from ._contract import (E_NOINTERFACE, E_NOTIMPL, E_OUTOFMEMORY, E_POINTER, E_UNEXPECTED, S_FALSE,
                        S_OK, IUnknown)
from ._errors import OssiraError, hand_on
from ._interface import (Counted, POINTER_SIZE, as_interface, bare, ctype_of, from_native,
                         guid_bytes, interfaces_by_iid, interfaces_by_name, is_address, structures,
                         take_reference, _GUIDS)

_instances = weakref.WeakValueDictionary()  # by the address of each of their interfaces
_held = {}  # objects that native code has references on, by the address of their words
_counts = threading.RLock()


def code_of(error):
    """The result code for an exception."""
    if isinstance(error, OssiraError):
        hand_on(error.lines)
        return error.code
    if isinstance(error, NotImplementedError):
        return E_NOTIMPL
    if isinstance(error, MemoryError):
        return E_OUTOFMEMORY
    sys.excepthook(type(error), error, error.__traceback__)
    return E_UNEXPECTED


def _write(parameter, wanted, value, place):
    """Puts what a method answered where the caller wants it."""
    if value is None and parameter.kind.endswith("**"):
        return
    name = bare(parameter.kind)
    if parameter.role in ("object", "borrowed"):
        interface = (as_interface(value, wanted or interfaces_by_name[name])
                     if wanted or name in interfaces_by_name else to_pointer(value))
        if parameter.role == "object":
            take_reference(interface.address)
        ctypes.c_void_p.from_address(place).value = interface.address
    elif name in _GUIDS:
        ctypes.memmove(place, guid_bytes(value), 16)
    elif name in structures:
        ctypes.memmove(place, ctypes.addressof(value), ctypes.sizeof(value))
    else:
        ctype_of(parameter.kind[:-1]).from_address(place).value = value


def to_pointer(value):
    """Any interface of an object; `void**` without an identifier does not say which."""
    return value.pointer_to(IUnknown) if isinstance(value, Object) else value


def _result(slot, answer):
    if slot.result != "Result":
        return 0 if answer is None and slot.result != "void" else answer
    if answer is None:
        return S_OK
    return (S_OK if answer else S_FALSE) if isinstance(answer, bool) else answer


def _perform(instance, slot, raw):
    arguments, outs, wanted = [], [], None
    for each, value in zip(slot.parameters, raw):
        if each.role == "in":
            arguments.append(from_native(each.kind, value))
        elif each.role == "iid":
            iid = from_native(each.kind, value)
            wanted = interfaces_by_iid.get(iid)
            arguments.append(wanted or iid)
        elif value is None:
            return E_POINTER
        else:
            outs.append((each, wanted, value))
            if is_address(each.kind[:-1]):
                ctypes.c_void_p.from_address(value).value = None
    method = getattr(instance, slot.name, None)
    if method is None:
        return E_NOTIMPL if slot.result == "Result" else _result(slot, None)
    answer = method(*arguments)
    if not outs:
        return _result(slot, answer)
    for out, value in zip(outs, answer if len(outs) > 1 else (answer,)):
        _write(*out[:2], value, out[2])
    return S_OK


def _thunk(slot):
    def thunk(this, *raw):
        try:
            return _perform(_instances[this], slot, raw)
        except BaseException as error:  # nothing may leave into native code
            code = code_of(error)
            return code if slot.result == "Result" else _result(slot, None)
    return slot.prototype()(thunk)


def _query(this, iid, out):
    if out is None:
        return E_POINTER
    place = ctypes.c_void_p.from_address(out)
    place.value = None
    if iid is None:
        return E_POINTER
    instance = _instances[this]
    place.value = instance.address_of(interfaces_by_iid.get(from_native("const IID&", iid)))
    if place.value is None:
        return E_NOINTERFACE
    _add_reference(this)
    return S_OK


def _add_reference(this):
    instance = _instances[this]
    with _counts:
        instance.reference_count += 1
        _held[ctypes.addressof(instance.words)] = instance
        return instance.reference_count


def _release(this):
    instance = _instances[this]
    with _counts:
        instance.reference_count -= 1
        left = instance.reference_count
        if left == 0:
            _held.pop(ctypes.addressof(instance.words), None)
    return left


_UNKNOWN = {"QueryInterface": _query, "AddRef": _add_reference, "Release": _release}


def _table(interface):
    """The operations of an interface as native code calls them."""
    counted = issubclass(interface, Counted)
    functions = [slot.prototype()(_UNKNOWN[slot.name]) if counted and slot.name in _UNKNOWN
                 else _thunk(slot) for slot in interface.all_slots]
    words = (ctypes.c_void_p * len(functions))(
        *(ctypes.cast(each, ctypes.c_void_p).value for each in functions))
    return words, functions


class Object:
    __doc__ = __doc__  # the module's: it is about this class

    interfaces = ()
    tables = ()
    reference_count = 0

    def __init_subclass__(cls, implements=(), **keywords):
        super().__init_subclass__(**keywords)
        if implements:
            cls.interfaces = tuple(implements)
            cls.tables = tuple(_table(each) for each in implements)

    def __new__(cls, *_arguments, **_named):
        self = super().__new__(cls)
        self.words = (ctypes.c_void_p * len(cls.tables))(
            *(ctypes.addressof(table) for table, _ in cls.tables))
        for at in range(len(cls.tables)):
            _instances[ctypes.addressof(self.words) + at * POINTER_SIZE] = self
        return self

    def address_of(self, interface):
        """The address of one of the object's interfaces, or None."""
        for at, each in enumerate(self.interfaces):
            if interface is not None and issubclass(each, interface):
                return ctypes.addressof(self.words) + at * POINTER_SIZE
        return None

    def pointer_to(self, interface):
        """One of the object's interfaces as native code sees it."""
        address = self.address_of(interface)
        if address is None:
            raise TypeError(f"{type(self).__name__} does not implement {interface.__name__}")
        pointer = interface.at(address)
        if not issubclass(interface, Counted):
            pointer.implementation = self  # nothing else keeps it
        return pointer

    def DeletingDestructor(self, _flags):
        """Python frees the object when nobody refers to it any more."""
        return ctypes.addressof(self.words)
