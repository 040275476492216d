"""A device's configuration, as named fields."""
import ctypes
import re
from collections.abc import Iterator, MutableMapping
from typing import Any, Union

from . import native
from .binding import Error, buffer, exports

Value = Union[int, bytes]


def _inner(value: Any) -> Any:
    """A record of nothing but bytes stands for them."""
    names = [name for name, *_ in getattr(value, "_fields_", [])]
    return value.bytes if names == ["bytes"] else value


def _leaves(name: str, value: Any) -> Iterator[str]:
    value = _inner(value)
    if isinstance(value, ctypes.Structure):
        for member, *_ in value._fields_:
            if not member.startswith("unused"):
                yield from _leaves(f"{name}.{member}" if name else member, getattr(value, member))
    elif isinstance(value, ctypes.Array) and issubclass(value._type_, ctypes.Structure):
        for number, entry in enumerate(value):
            yield from _leaves(f"{name}[{number}]", entry)
    else:
        yield name


class Configuration(MutableMapping[str, Value]):
    """The fields by their names: "report_rate", "dpi_levels[2].color", "macros[0].name". A field is
    a number, or bytes of a fixed length; what its values mean is the model's matter. `record` is the
    same as the library's own record, in which entries are reached one by one."""

    def __init__(self, record: native.ProtocolData) -> None:
        self.record = record

    @classmethod
    def from_image(cls, image: bytes) -> "Configuration":
        """Of a device's configuration image."""
        if len(image) != native.FLASH_IMAGE_SIZE:
            raise Error(f"an image has {native.FLASH_IMAGE_SIZE} bytes, not {len(image)}")
        record = native.ProtocolData()
        exports().ProtocolDataParser(buffer(image), record)
        return cls(record)

    def copy(self) -> "Configuration":
        """One of its own, with the same values."""
        return Configuration(native.ProtocolData.from_buffer_copy(self.record))

    def _holder(self, name: str) -> tuple[Any, str]:
        """The record that has the field, and the field's name in it."""
        holder: Any = self.record
        *groups, member = name.split(".")
        try:
            for group in groups:
                match = re.fullmatch(r"(\w+)\[(\d+)\]", group)
                holder = getattr(holder, match[1])[int(match[2])] if match else getattr(holder, group)
            match = re.fullmatch(r"(\w+)\[(\d+)\]", member)
            value = getattr(holder, match[1])[int(match[2])] if match else getattr(holder, member)
        except (AttributeError, IndexError):
            raise KeyError(name) from None
        if _inner(value) is not value:
            return value, "bytes"
        if match or (not isinstance(value, int) and not hasattr(value, "_type_")) or (
                hasattr(value, "_type_") and issubclass(value._type_, ctypes.Structure)):
            raise KeyError(name)
        return holder, member

    def __getitem__(self, name: str) -> Value:
        value = getattr(*self._holder(name))
        return value if isinstance(value, int) else bytes(value)

    def __setitem__(self, name: str, value: Value) -> None:
        """KeyError for no such field, ValueError for what it can't hold."""
        holder, member = self._holder(name)
        before = getattr(holder, member)
        if isinstance(before, int):
            size = getattr(type(holder), member).size
            if not isinstance(value, int) or not 0 <= value < 256**size:
                raise ValueError(f"{name}: a number from 0 to {256**size - 1}, not {value!r}")
            setattr(holder, member, value)
        else:
            if not isinstance(value, bytes) or len(value) != len(before):
                raise ValueError(f"{name}: {len(before)} bytes, not {value!r}")
            before[:] = value

    def __delitem__(self, name: str) -> None:
        raise TypeError("a configuration keeps all its fields")

    def __iter__(self) -> Iterator[str]:
        return _leaves("", self.record)

    def __len__(self) -> int:
        return sum(1 for _ in self)
