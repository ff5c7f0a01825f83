"""Interface pointers as Python objects.

An interface class lists its slots; the base class makes a method of each. A method takes what the
operation takes, without the places that it writes to: those are what the method answers. A failure
is raised as `OssiraError`.
"""
import ctypes
import gc
import inspect
import threading
import weakref
from collections import deque
from typing import NamedTuple
from uuid import UUID

from ._errors import OssiraError, hand_on, reported

POINTER_SIZE = ctypes.sizeof(ctypes.c_void_p)

_SCALARS = {
    "void": None, "char": ctypes.c_char, "wchar": ctypes.c_wchar, "Result": ctypes.c_int32,
    "float": ctypes.c_float, "double": ctypes.c_double, "va_list": ctypes.c_void_p,
    **{f"{sign}int{bits}": getattr(ctypes, f"c_{sign}int{bits}")
       for sign in ("", "u") for bits in (8, 16, 32, 64)},
}
_GUIDS = ("GUID", "CLSID", "IID")

interfaces_by_name = {}
interfaces_by_iid = {}
structures = {}
pointers = weakref.WeakValueDictionary()  # every reference that Python has


def bare(kind):
    """The name in a type of the contract."""
    return kind.removeprefix("const ").rstrip("*&")


def is_address(kind):
    return kind[-1] in "*&"


def ctype_of(kind):
    """What ctypes passes for a type of the contract."""
    if kind == "const char*":
        return ctypes.c_char_p
    if kind == "const wchar*":
        return ctypes.c_wchar_p
    return ctypes.c_void_p if is_address(kind) else _SCALARS[kind]


class Parameter(NamedTuple):
    name: str
    kind: str
    role: str  # in, iid, object, borrowed or out


class Slot:
    """An operation of an interface, or an export.

    `parameters` are (name, type, role) as the contract has them, or text: "const wchar* name, out
    int32* length, object IValue** found" for a name that is passed in and two that come out.
    """

    def __init__(self, name, result, parameters=(), doc=""):
        if isinstance(parameters, str):
            parameters = [self._parsed(part) for part in parameters.split(",") if part.strip()]
        self.name, self.result, self.doc = name, result, doc
        self.parameters = [Parameter(*each) for each in parameters]
        self.inputs = [each for each in self.parameters if each.role in ("in", "iid")]
        self.ctypes = [ctype_of(each.kind) for each in self.parameters]

    @staticmethod
    def _parsed(text):
        *kind, name = text.split()
        role = kind.pop(0) if kind[0] in ("in", "iid", "object", "borrowed", "out") else "in"
        return name, " ".join(kind), role

    def __repr__(self):
        return f"{self.result} {self.name}(" + ", ".join(
            f"{each.kind} {each.name}" for each in self.parameters) + ")"

    def signature(self):
        kinds = inspect.Parameter
        last = self.inputs[-1] if self.inputs else None
        return inspect.Signature([kinds("self", kinds.POSITIONAL_ONLY)] + [
            kinds(each.name, kinds.POSITIONAL_OR_KEYWORD, annotation=each.kind,
                  default=kinds.empty if each.role == "in" or each is not last
                  else interfaces_by_name["IUnknown"])
            for each in self.inputs])

    def prototype(self):
        return ctypes.CFUNCTYPE(ctype_of(self.result), ctypes.c_void_p, *self.ctypes)

    def documentation(self):
        outs = [each for each in self.parameters if each not in self.inputs]
        answers = ", ".join(f"{each.name} ({each.kind[:-1]})" for each in outs)
        return self.doc + (f"\n\nAnswers {answers}." if answers else "")

    def invoke(self, owner, function, first, arguments):
        """Calls `function` with `first`, if any, and what Python code passed."""
        raw, outs, wanted, keep = list(first), [], None, []
        given = iter(arguments)
        for each, kind in zip(self.parameters, self.ctypes):
            if each.role in ("in", "iid"):
                value = next(given)
                if each.role == "iid" and isinstance(value, type):
                    wanted = value
                raw.append(to_native(each.kind, value, keep))
            else:
                place = place_for(each)
                outs.append((each, place, wanted))
                raw.append(ctypes.addressof(place))
        release_deferred()
        with reported() as lines:
            answer = function(*raw)
        if self.result == "Result" and answer < 0:
            raise OssiraError(answer, f"{owner}.{self.name}" if owner else self.name, lines)
        if lines:
            hand_on(lines)
        results = tuple(from_place(*each) for each in outs)
        if results:
            return results[0] if len(results) == 1 else results
        return None if self.result == "void" else from_native(self.result, answer, owned=True)


class Export(Slot):
    """An exported function."""


def guid_bytes(value):
    """The 16 bytes of an identifier: a UUID, its text, or an interface class."""
    if isinstance(value, type) and issubclass(value, Interface):
        value = value.iid
    if isinstance(value, str):
        value = UUID(value)
    if not isinstance(value, UUID):
        raise TypeError(f"an identifier is a UUID, its text or an interface class, not {value!r}")
    return ctypes.create_string_buffer(value.bytes_le, 16)


def to_native(kind, value, keep):
    """What is passed for `value`. `keep` holds whatever must live until the call returns."""
    name = bare(kind)
    if value is None or not is_address(kind):
        return value
    if name in _GUIDS:
        keep.append(guid_bytes(value))
        return ctypes.addressof(keep[-1])
    if name in interfaces_by_name and kind == name + "*":
        keep.append(as_interface(value, interfaces_by_name[name]))
        return keep[-1].address
    if kind == "const char*" and isinstance(value, str):
        return value.encode()
    if isinstance(value, ctypes.Structure):
        return ctypes.addressof(value)
    return value


def as_interface(value, interface):
    """`value` seen through `interface`: an interface pointer, or an object written in Python."""
    if isinstance(value, interface):
        return value
    if isinstance(value, Counted):
        return value.query(interface)
    if hasattr(value, "pointer_to"):
        return value.pointer_to(interface)
    raise TypeError(f"{value!r} has no {interface.__name__}")


def place_for(parameter):
    """Memory for what an operation writes."""
    name = bare(parameter.kind)
    if parameter.role != "out" or parameter.kind.endswith("**"):
        return ctypes.c_void_p()
    if name in _GUIDS:
        return ctypes.create_string_buffer(16)
    return structures[name]() if name in structures else _SCALARS[name]()


def from_place(parameter, place, wanted):
    """What an operation wrote, as Python has it."""
    if parameter.role == "out":
        if bare(parameter.kind) in _GUIDS and not parameter.kind.endswith("**"):
            return UUID(bytes_le=place.raw)
        return place if isinstance(place, ctypes.Structure) else place.value
    if not place.value:
        return None
    interface = wanted or interfaces_by_name.get(bare(parameter.kind))
    return (interface or interfaces_by_name["IUnknown"]).at(place.value,
                                                            owned=parameter.role == "object")


def from_native(kind, value, owned=False):
    """An argument or an answer of native code, as Python has it."""
    name = bare(kind)
    if not is_address(kind) or value is None:
        return value
    if kind == "const char*":
        return value.decode(errors="replace") if isinstance(value, bytes) else value
    if name in interfaces_by_name and kind == name + "*":
        return interfaces_by_name[name].at(value, owned)
    if name in _GUIDS:
        return UUID(bytes_le=ctypes.string_at(value, 16))
    if name in structures:
        return structures[name].from_address(value)
    return value


# --- References that the garbage collector gives back ----------------------------------------------

# It may run inside any call from native code, under whatever lock is held there; what it finds is
# released at the next call that Python code makes. What goes by itself, without it, goes at once.
_collecting = threading.local()
_deferred = deque()


def _on_collection(phase, _information):
    _collecting.now = phase == "start"


gc.callbacks.append(_on_collection)


def release_deferred():
    while _deferred:
        try:
            address = _deferred.popleft()
        except IndexError:
            return
        release(address)


_RELEASE = ctypes.CFUNCTYPE(ctypes.c_uint32, ctypes.c_void_p)


def native_function(address, slot, prototype):
    return prototype(ctypes.c_void_p.from_address(table_of(address) + slot * POINTER_SIZE).value)


def table_of(address):
    """Where the operations of an interface pointer stand."""
    return ctypes.c_void_p.from_address(address).value


def release(address):
    native_function(address, 2, _RELEASE)(address)


def take_reference(address):
    native_function(address, 1, _RELEASE)(address)


# --- Interfaces ------------------------------------------------------------------------------------

def _method(owner, slot, position):
    prototype = slot.prototype()
    signature = slot.signature()
    names = [each.name for each in slot.inputs]

    def method(self, *arguments, **named):
        if named or len(arguments) != len(names):
            bound = signature.bind(self, *arguments, **named)
            bound.apply_defaults()
            arguments = bound.args[1:]
        if self.address is None:
            raise ReferenceError("the object was given back, at the latest with its module")
        function = native_function(self.address, position, prototype)
        return slot.invoke(owner, function, (self.address,), arguments)

    method.__name__, method.__qualname__ = slot.name, f"{owner}.{slot.name}"
    method.__doc__, method.__signature__ = slot.documentation(), signature
    return method


class Interface:
    """An interface pointer. A class of its own names `iid`, and `slots` from its base's last on:

        class IGreeter(ossira.IUnknown):
            iid = UUID("604FEC18-FE04-49BF-82DA-42648936BD0A")
            slots = (ossira.Slot("Greet", "Result", "const wchar* name, IValue* greeting"),)

    Interfaces that extend `IUnknown` count references by themselves: a Python object owns one, and
    gives it back when nobody refers to it any more. Others do not own what they point at.
    """

    iid = None
    slots = ()
    all_slots = ()

    def __init_subclass__(cls, **keywords):
        super().__init_subclass__(**keywords)
        own = cls.__dict__.get("slots", ())
        inherited = cls.__mro__[1].all_slots
        cls.all_slots = (*inherited, *own)
        interfaces_by_name[cls.__name__] = cls
        if cls.iid is not None and "iid" in cls.__dict__:
            interfaces_by_iid[cls.iid] = cls
        for position, slot in enumerate(own, len(inherited)):
            if slot.name not in cls.__dict__:
                setattr(cls, slot.name, _method(cls.__name__, slot, position))

    def __init__(self, *_arguments):
        raise TypeError(f"{type(self).__name__} is not created: objects are, by ossira.create")

    @classmethod
    def at(cls, address, owned=False):
        """The interface pointer `address`; `owned` says whether its reference is handed over."""
        self = object.__new__(cls)
        if not owned:
            self._take(address)
        self.address = address
        return self

    def _take(self, address):
        """An interface without an unknown has no references."""

    def __repr__(self):
        return f"<{type(self).__name__} at {self.address:#x}>"


class Counted(Interface):
    """What every pointer to an object has in Python, beside the operations of its interface.

    References are taken and given back by themselves: leave `AddRef` and `Release` alone.
    """

    address = None

    @classmethod
    def at(cls, address, owned=False):
        self = super().at(address, owned)
        pointers[id(self)] = self
        return self

    def _take(self, address):
        take_reference(address)

    def close(self):
        """Gives the reference back now; the object cannot be used through this any more."""
        address, self.address = self.address, None
        if address is None:
            return
        if getattr(_collecting, "now", False):
            _deferred.append(address)
        else:
            release(address)

    __del__ = close

    def query(self, interface):
        """The same object through another interface; raises E_NOINTERFACE if it has none."""
        return self.QueryInterface(interface)

    def offers(self, interface):
        """Whether the object has an interface."""
        try:
            return self.query(interface) is not None
        except OssiraError:
            return False

    def interfaces(self):
        """The interfaces of the object, of all that Python has classes for."""
        return [each for each in interfaces_by_iid.values() if self.offers(each)]

    def _identity(self):
        return self.query(interfaces_by_name["IUnknown"]).address

    def __eq__(self, other):
        if not isinstance(other, Counted):
            return NotImplemented
        return self._identity() == other._identity()

    def __hash__(self):
        return hash(self._identity())

    def class_name(self):
        """What the object's class is called; None if the object does not say."""
        try:
            identity = self.query(interfaces_by_name["IObjectIdentity"])
            text = ctypes.create_string_buffer(identity.GetObjectClassName(None, 0) + 1)
            identity.GetObjectClassName(text, len(text))
        except OssiraError:
            return None
        return text.value.decode(errors="replace")

    def __repr__(self):
        if self.address is None:
            return f"<{type(self).__name__}, given back>"
        return f"<{type(self).__name__} {self.class_name() or 'object'} at {self.address:#x}>"


class Structure:
    """A structure that crosses; `fields` are (name, type, count)."""

    size, fields = 0, ()

    def __init_subclass__(cls):
        def field(kind, count):
            return ctype_of(kind) * count if count > 1 else ctype_of(kind)
        made = type(cls.__name__, (ctypes.Structure,), {
            "__doc__": cls.__doc__,
            "_fields_": [(name, field(kind, count)) for name, kind, count in cls.fields]})
        if ctypes.sizeof(made) != cls.size:
            raise TypeError(f"{cls.__name__} is laid out differently here")
        structures[cls.__name__] = cls.ctype = made
