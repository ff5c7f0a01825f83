"""Values, lists, dictionaries and value sets with the manners of Python's own."""
from collections.abc import MutableMapping, MutableSequence

from . import _contract as contract
from ._errors import OssiraError
from ._implement import Object
from ._interface import Counted
from ._runtime import create
from ._values import from_datum, read, to_datum


def extends(interface, abstract=object):
    """Gives an interface class the methods of the decorated one, and of the abstract class."""
    def give(cls):
        for source in reversed(cls.__mro__[:-1]):
            for name, item in vars(source).items():
                if name not in ("__module__", "__dict__", "__weakref__", "__doc__", "__slots__",
                                "__abstractmethods__", "_abc_impl", "__class_getitem__",
                                "__subclasshook__"):
                    setattr(interface, name, item)
        if abstract is not object:
            abstract.register(interface)
        return cls
    return give


def set_datum(setter, value):
    datum = to_datum(value)
    setter(datum.type, datum.data if datum.data else None, len(datum.data))


@extends(contract.IValue)
class _Value:
    @property
    def value(self):
        """The datum as Python has it; see `ossira.Datum`."""
        return from_datum(self.datum)

    @value.setter
    def value(self, value):
        set_datum(self.SetValue, value)

    @property
    def datum(self):
        """The datatype and the bytes."""
        return read(self.GetType, self.GetValue)


def new_value(value=None):
    """A new value that holds a Python value."""
    made = create(contract.CLSID_Value, contract.IValue)
    made.value = value
    return made


def to_item(value):
    """What a collection is given for a Python value: objects stay, the rest becomes a value."""
    if isinstance(value, Object):
        return value.pointer_to(contract.IUnknown)
    return value if isinstance(value, Counted) else new_value(value)


_RICHER = (contract.IValueSet, contract.IList, contract.IDictionaryGUID)


def from_item(item):
    """What Python code sees of an item: a value's content, a collection, or the object."""
    for interface in _RICHER:
        if item.offers(interface):
            return item.query(interface)
    return item.query(contract.IValue).value if item.offers(contract.IValue) else item


def steps(enumerator):
    """Walks an enumerator of objects or of GUIDs."""
    current = (enumerator.GetCurrentGUID if isinstance(enumerator, contract.IEnumeratorGUID)
               else lambda: from_item(enumerator.GetCurrent(contract.IUnknown)))
    while enumerator.MoveNext() == contract.S_OK:
        yield current()


@extends(contract.IEnumerator)
@extends(contract.IEnumeratorGUID)
class _Enumerator:
    def __iter__(self):
        return steps(self)


@extends(contract.IEnumerable)
class _Enumerable:
    def __iter__(self):
        return steps(self.GetEnumerator(contract.IEnumerator))


@extends(contract.ICollection)
class _Collection:
    def __len__(self):
        return self.GetCount()


@extends(contract.IList, MutableSequence)
class _List(MutableSequence):
    def __len__(self):
        return self.GetCount()

    def _index(self, index):
        count = len(self)
        if not -count <= index < count:
            raise IndexError(f"index {index} of {count} items")
        return index % count

    def __getitem__(self, index):
        if isinstance(index, slice):
            return [self[at] for at in range(*index.indices(len(self)))]
        return from_item(self.GetItemAt(self._index(index), contract.IUnknown))

    def __setitem__(self, index, value):
        if not isinstance(index, slice):
            self.SetItemAt(self._index(index), to_item(value))
            return
        start, stop, step = index.indices(len(self))
        if step != 1:
            raise TypeError("items are replaced one by one or as a row")
        del self[start:stop]
        for at, each in enumerate(value, start):
            self.insert(at, each)

    def __delitem__(self, index):
        if isinstance(index, slice):
            for at in sorted(range(*index.indices(len(self))), reverse=True):
                self.RemoveAt(at)
        else:
            self.RemoveAt(self._index(index))

    def insert(self, index, value):
        """Inserts before an index; one beyond an end means that end."""
        count = len(self)
        self.Insert(min(max(index + count if index < 0 else index, 0), count), to_item(value))

    def clear(self):
        """Removes every item."""
        self.Clear()


class _ByKey(MutableMapping):
    def __len__(self):
        return self.GetCount()

    def __iter__(self):
        return steps(self.GetEnumerator(contract.IEnumeratorGUID))

    def __contains__(self, key):
        return self.ContainsGUID(key) == contract.S_OK

    def __delitem__(self, key):
        if key not in self:
            raise KeyError(key)
        self.RemoveGUID(key)

    def clear(self):
        """Removes every key."""
        self.Clear()

    @staticmethod
    def _found(key, operation, *arguments):
        try:
            return operation(*arguments)
        except OssiraError as error:
            if error.code == contract.E_NOT_FOUND:
                raise KeyError(key) from error
            raise


@extends(contract.IDictionaryGUID, MutableMapping)
class _Dictionary(_ByKey):
    def __getitem__(self, key):
        return from_item(self._found(key, self.GetValueGUID, key, contract.IUnknown))

    def __setitem__(self, key, value):
        self.SetValueGUID(key, to_item(value))


@extends(contract.IValueSet, MutableMapping)
class _ValueSet(_ByKey):
    def __getitem__(self, key):
        return from_datum(self._found(key, read, lambda: self.GetDataType(key),
                                      lambda *place: self.GetValueData(key, *place)))

    def __setitem__(self, key, value):
        set_datum(lambda *datum: self.SetValueData(key, *datum), value)


def new_list(items=()):
    """A new list of objects and values."""
    made = create(contract.CLSID_NodeList, contract.IList)
    made.extend(items)
    return made


def new_dictionary(items=()):
    """A new dictionary of objects and values by GUID."""
    made = create(contract.CLSID_DictionaryGUID, contract.IDictionaryGUID)
    made.update(items)
    return made


def new_value_set(items=()):
    """A new value set, of Python values by GUID."""
    made = create(contract.CLSID_ValueSet, contract.IValueSet)
    made.update(items)
    return made
