"""Values as Python has them.

    int             SINT32, or SINT64 where it does not fit
    float           FLOAT64
    str             UniString
    bytes           CharString
    UUID            GUID
    tuple of two    PointSINT32, or PointFLOAT32 if one of them is a float
    None            an empty value
    Datum           any other datatype, as its bytes

Every number that a value may hold is read as int or float. To write one of another size say
`Datum.of(DATATYPE_SINT8, 5)`.
"""
import ctypes
import struct
from typing import NamedTuple
from uuid import UUID

from . import _contract as contract
from ._errors import OssiraError

_FORMATS = {
    contract.DATATYPE_SINT8: "<b", contract.DATATYPE_SINT16: "<h", contract.DATATYPE_SINT32: "<i",
    contract.DATATYPE_SINT64: "<q", contract.DATATYPE_FLOAT32: "<f",
    contract.DATATYPE_FLOAT64: "<d", contract.DATATYPE_PointSINT32: "<ii",
    contract.DATATYPE_PointFLOAT32: "<ff",
}


class Datum(NamedTuple):
    __doc__ = "A datatype and its bytes. " + __doc__

    type: UUID
    data: bytes

    @classmethod
    def of(cls, datatype, *numbers):
        """A number, or a point, as the datatype has it."""
        return cls(datatype, struct.pack(_FORMATS[datatype], *numbers))


def to_datum(value):
    """A Python value as a datatype and its bytes."""
    if isinstance(value, Datum):
        return value
    if value is None:
        return Datum(contract.GUID_Null, b"")
    if isinstance(value, int):
        fits = -2**31 <= value < 2**31
        return Datum.of(contract.DATATYPE_SINT32 if fits else contract.DATATYPE_SINT64, int(value))
    if isinstance(value, float):
        return Datum.of(contract.DATATYPE_FLOAT64, value)
    if isinstance(value, str):
        return Datum(contract.DATATYPE_UniString, value.encode("utf-16-le", "surrogatepass"))
    if isinstance(value, (bytes, bytearray)):
        return Datum(contract.DATATYPE_CharString, bytes(value))
    if isinstance(value, UUID):
        return Datum(contract.DATATYPE_GUID, value.bytes_le)
    if isinstance(value, tuple) and len(value) == 2:
        whole = all(isinstance(each, int) for each in value)
        return Datum.of(contract.DATATYPE_PointSINT32 if whole else contract.DATATYPE_PointFLOAT32,
                        *value)
    raise TypeError(f"no value can hold {value!r}; make a Datum of it")


def from_datum(datum):
    """What `to_datum` was given, as far as the datatype is one of the runtime's own."""
    if datum.type == contract.GUID_Null:
        return None
    if datum.type in _FORMATS:
        numbers = struct.unpack(_FORMATS[datum.type], datum.data)
        return numbers if len(numbers) > 1 else numbers[0]
    if datum.type == contract.DATATYPE_UniString:
        return datum.data.decode("utf-16-le", "surrogatepass")
    if datum.type == contract.DATATYPE_CharString:
        return datum.data
    if datum.type == contract.DATATYPE_GUID:
        return UUID(bytes_le=datum.data)
    return datum


def read(get_type, get_value):
    """Reads a datum by two operations. Another thread may write meanwhile: then it is read anew."""
    while True:
        datatype = get_type()
        if datatype == contract.GUID_Null:
            return Datum(datatype, b"")
        size = None
        try:
            size = get_value(datatype, None, 0)
            data = ctypes.create_string_buffer(max(size, 1))
            get_value(datatype, data if size else None, size)
            return Datum(datatype, data.raw[:size])
        except OssiraError:
            if get_type() == datatype and size in (None, get_value(datatype, None, 0)):
                raise
