"""Shows the debugger's user what an object of the runtime is and holds.

GDB reads this when it reads TavrikOssira.dll; the names come from names.py, which stands before it in
the file that is installed. Nothing of the program is called: everything is read from its memory, so
it works on a core file and while a lock is held. What an object holds is read by the debug
information of the library that has its class. Without that the library is named and no more.
"""
import json
import locale
import struct

import gdb
import gdb.printing

# In a plain C locale GDB cannot show more than ASCII, and would show an error instead.
CAN_SHOW_ALL = not hasattr(locale, "nl_langinfo") or \
    "utf" in locale.nl_langinfo(locale.CODESET).lower()
TEXT_LIMIT = 400 # bytes of a datum
CONCRETE = ("CComInstanceNoLock", "CComAggregated")
AGGREGATED = 0x10000000 # a mark in a count
DESTROYED = 0xC0000001 - (1 << 32)
SCALARS = {"SINT8": "<b", "SINT16": "<h", "SINT32": "<i", "SINT64": "<q", "FLOAT32": "<f",
           "FLOAT64": "<d", "PointSINT32": "<2i", "PointFLOAT32": "<2f"}


def result_text(code):
    name = RESULT_NAMES.get(code)
    if code >= 0:
        return str(code) if name is None else f"{name} ({code})"
    return f"{name or 'failure'} (0x{code & 0xFFFFFFFF:08X})"


def guid_text(data):
    first, second, third = struct.unpack_from("<IHH", data)
    return f"{first:08X}-{second:04X}-{third:04X}-{data[8:10].hex()}-{data[10:16].hex()}".upper()


def guid_name(data):
    """The name in a header, or the text."""
    text = guid_text(data)
    return GUID_NAMES.get(text, text)


def memory(address, size):
    return gdb.selected_inferior().read_memory(address, size).tobytes() if size else b""


def guid_bytes(value):
    """Of a GUID anywhere: a constant of the compiler's has no address."""
    numbers = [int(value[f"Data{at}"]) for at in (1, 2, 3)]
    return struct.pack("<IHH8B", *numbers, *(int(value["Data4"][at]) for at in range(8)))


def datum_text(type_data, size, address):
    """The datum of a value: its datatype and its content."""
    name = guid_name(type_data).removeprefix("DATATYPE_")
    shown = memory(address, min(size, TEXT_LIMIT))
    more = "..." if len(shown) < size else ""
    if name in SCALARS and struct.calcsize(SCALARS[name]) == size:
        numbers = struct.unpack(SCALARS[name], shown)
        content = str(numbers[0] if len(numbers) == 1 else numbers)
    elif name == "GUID" and size == 16:
        content = guid_name(shown)
    elif name in ("UniString", "CharString"):
        encoding = "utf-16-le" if name == "UniString" else "utf-8"
        content = json.dumps(shown.decode(encoding, "replace"), ensure_ascii=not CAN_SHOW_ALL) + more
    else:
        content = f"{size} bytes {shown[:32].hex(' ')}{more or ('...' if size > 32 else '')}"
    return f"{name} {content}"


def buffer_text(buffer):
    address = int(buffer["Data"])
    if address == 0:
        return "empty"
    return datum_text(guid_bytes(buffer["Type"]), int(buffer["Size"]), address)


def words(value, word_type):
    """A value as the array of pointers with which it begins: what the standard library's smart
    pointers and vectors are."""
    return value.address.cast(word_type.pointer().pointer())


def base_of(value, name):
    """The part of an object that is of a base class, by way of all bases."""
    if value.type.strip_typedefs().name == name:
        return value
    for field in value.type.strip_typedefs().fields():
        if field.is_base_class:
            found = base_of(value[field], name)
            if found is not None:
                return found
    return None


def sequence_items(items):
    """The items of a list, in their order."""
    capacity, head = int(items["mCapacity"]), int(items["mHead"])
    unknown = gdb.lookup_type("Tavrik::Ossira::IUnknown").pointer()
    blocks = words(items["mBlocks"], unknown.pointer())
    block_size = int(items["BlockSize"])
    for index in range(int(items["mSize"])):
        place = (head + index) & (capacity - 1)
        yield f"[{index}]", blocks[0][place // block_size][place % block_size]


def table_entries(table):
    """The entries of a table by GUID: a vector of them, or segments that a directory leads to."""
    few = table["mFew"]
    entry = few.type.strip_typedefs().template_argument(0)
    start, end = (words(few, entry)[at] for at in (0, 1))
    for index in range(int(end - start)):
        yield start[index]
    directory = table["mDirectory"]
    segment = directory.type.strip_typedefs().template_argument(0).target()
    places = words(directory, segment)[0]
    if int(places) == 0:
        return
    depth, at = 64 - int(table["mIndex"]["Shift"]), 0
    while at < 1 << depth:
        here = places[at]
        slots = int(here["SlotCount"])
        marks = int(here + 1)
        entries = here.cast(entry.pointer()) # backwards
        for index, mark in enumerate(memory(marks, slots)):
            if mark:
                yield entries[-1 - index]
        at += 1 << (depth - int(here["Depth"]))


def table_items(items):
    for entry in table_entries(items["mTable"]):
        yield f"[{guid_name(guid_bytes(entry['Key']))}]", entry["Content"]["mObject"]


def layers(table):
    """The layers of a group from the bottom to the top."""
    first = table["mItems"].address.cast(gdb.lookup_type("Tavrik::Ossira::Layer").pointer())
    for index in range(int(table["mCount"]["_M_i"])):
        layer = first[index]
        yield f"[{guid_name(guid_bytes(layer['ID']))}]", layer["ValueSet"]["mObject"]


# What the objects of an implementation class hold.
CONTENT = {
    "CNodeList": lambda it: sequence_items(it["mItems"]),
    "CDictionaryGUID": lambda it: table_items(it["mTable"]),
    "CValueSet": lambda it: table_items(it["mTable"]),
    "T_ValueSetGroup": lambda it: layers(it["mTable"]),
    "CMergedView": lambda it: layers(it["mContent"]["Layers"].referenced_value()),
}
COUNTED = {
    "CNodeList": lambda it: it["mItems"]["mSize"],
    "CDictionaryGUID": lambda it: it["mTable"]["mTable"]["mSize"],
    "CValueSet": lambda it: it["mTable"]["mTable"]["mSize"],
}


def plain(name):
    """A type's name without namespaces, and without template arguments."""
    return name.partition("<")[0].rpartition("::")[2]


CLASS_NAMES = {name.removeprefix("CLSID_").lower(): name.removeprefix("CLSID_")
               for name in GUID_NAMES.values() if name.startswith("CLSID_")}


def class_name(implementation):
    """As the class is called that its objects are created by. A template stands for several, and their
    traits have their names, less what dictionaries end with."""
    name = plain(implementation.name)
    if "<" in implementation.name:
        traits = implementation.name.rpartition("::")[2].rstrip("> ").removesuffix("Traits")
        known = traits.lower()
        return CLASS_NAMES.get(known) or CLASS_NAMES.get(known + "guid") or traits
    own = implementation.name.startswith("Tavrik::Ossira::")
    return name.removeprefix("T_").removeprefix("C") if own else name


class ObjectPrinter:
    """What an interface pointer leads to: the class, the count, and what the object holds."""

    shown = set() # the containers around, so that one that holds itself comes to an end

    def __init__(self, pointer):
        self.pointer = pointer
        self.implementation = None
        if int(pointer) == 0:
            return
        instance = pointer.dynamic_type.target()
        self.class_text = plain(instance.name) if instance != pointer.type.target() else ""
        if plain(instance.name or "") in CONCRETE:
            self.implementation = instance.template_argument(0)
            self.object = pointer.cast(instance.pointer()).dereference()

    def to_string(self):
        if int(self.pointer) == 0:
            return "null"
        if self.implementation is None:
            return self.foreign_text()
        kind = plain(self.implementation.name)
        text = f"{class_name(self.implementation)}, {self.count_text()}"
        if int(self.object.address) in self.shown:
            return f"{text}, shown further out"
        if kind == "CValueObject":
            return f"{text}: {buffer_text(self.object['mData'])}"
        return f"{text}, {int(COUNTED[kind](self.object))} items" if kind in COUNTED else text

    def children(self):
        if self.implementation is None or int(self.object.address) in self.shown:
            return
        self.shown.add(int(self.object.address))
        try:
            yield from self.items()
        finally:
            self.shown.remove(int(self.object.address))

    def items(self):
        content = CONTENT.get(plain(self.implementation.name), lambda it: ())
        for name, item in content(self.object):
            if int(item) == 0:
                yield name, "null"
            else:
                yield name, item.dereference()

    def count_text(self):
        base = base_of(self.object, "Tavrik::Ossira::COssiraUnknown")
        count = int(base["mCount"]["_M_i"])
        if count | AGGREGATED == DESTROYED | AGGREGATED:
            return "destroyed"
        if plain(self.object.type.name) == "CComAggregated":
            outer = int(self.object["mOuter"])
            return f"count {count & ~AGGREGATED}, part of the object at 0x{outer:x}"
        return f"count {count}"

    def foreign_text(self):
        """Not made with the frame, or nothing is known of its library but the name."""
        table = int(self.pointer.cast(gdb.lookup_type("unsigned long").pointer()).dereference())
        library = gdb.solib_name(table) or gdb.current_progspace().filename or "?"
        return f"{self.class_text or 'unknown class'} of {library.rpartition('/')[2]}"


class TextPrinter:
    def __init__(self, text):
        self.text = text

    def to_string(self):
        return self.text


class Safely:
    """Shows what the memory's state leaves to show. A debugger's user looks at broken objects."""

    def __init__(self, make):
        self.printer = None
        self.text = self.guarded(lambda: self.begin(make))
        if hasattr(self.printer, "children"):
            self.children = self.safe_children

    def begin(self, make):
        self.printer = make()
        return self.printer.to_string()

    @staticmethod
    def guarded(ask):
        try:
            return ask()
        except Exception as error:
            return f"<unreadable: {error}>"

    def to_string(self):
        return self.text

    def safe_children(self):
        try:
            yield from self.printer.children()
        except Exception as error:
            yield "<unreadable>", str(error)


class Printers(gdb.printing.PrettyPrinter):
    """Chooses by the type's name, before typedefs are followed: a result is an integer."""

    def __init__(self):
        super().__init__("ossira")

    def __call__(self, value):
        type_name = value.type.name or ""
        if type_name == "Tavrik::Ossira::Result":
            return Safely(lambda: TextPrinter(result_text(int(value))))
        kind = value.type.strip_typedefs()
        if kind.code != gdb.TYPE_CODE_STRUCT:
            return None
        name = kind.name or ""
        if name == "GUID" or name == "_GUID":
            return Safely(lambda: TextPrinter(self.guid(value)))
        if not name.startswith("Tavrik::Ossira::"):
            return None
        short = plain(name)
        if short == "ObjectPtr":
            return Safely(lambda: ObjectPrinter(value["mObject"]))
        if short == "CValueDataBuffer":
            return Safely(lambda: TextPrinter(buffer_text(value)))
        if (short in INTERFACES or short in CONCRETE) and value.address is not None:
            return Safely(lambda: ObjectPrinter(value.address))
        return None

    @staticmethod
    def guid(value):
        text = guid_text(guid_bytes(value))
        return f"{text} {GUID_NAMES[text]}" if text in GUID_NAMES else text


class CountFunction(gdb.Function):
    """$ossira_count(POINTER): the reference count of the object that an interface pointer or an
    ObjectPtr leads to, for `watch -location`."""

    def __init__(self):
        super().__init__("ossira_count")

    def invoke(self, pointer):
        if pointer.type.strip_typedefs().code == gdb.TYPE_CODE_STRUCT:
            pointer = pointer["mObject"]
        printer = ObjectPrinter(pointer)
        if printer.implementation is None:
            raise gdb.GdbError("The object's class is not known")
        return base_of(printer.object, "Tavrik::Ossira::COssiraUnknown")["mCount"]["_M_i"]


CountFunction()
gdb.printing.register_pretty_printer(gdb.current_objfile(), Printers(), replace=True)
