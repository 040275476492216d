"""The library as a Python program calls it: loaded once, with texts and bytes as it takes them."""
import ctypes
import functools
import os
import pathlib
import sys

from . import native


class Error(Exception):
    """What went wrong with a device, or with the library."""


class NoAnswer(Error):
    """The device is absent, asleep, or did not answer in time."""


def _name() -> str:
    """PERILINK_LIBRARY, or the library that was installed with this module, or the system's."""
    chosen = os.environ.get("PERILINK_LIBRARY")
    if chosen:
        return chosen
    here = pathlib.Path(__file__).resolve()
    if sys.platform == "win32":
        beside = here.parents[2] / "bin" / "perilink.dll"
        return str(beside) if beside.exists() else "perilink.dll"
    soname = f"libperilink.so.{native.VERSION[0]}"
    beside = here.parents[3] / soname
    return str(beside) if beside.exists() else soname


@functools.cache
def exports() -> ctypes.CDLL:
    """The library, loaded when it is asked for the first time, its functions declared as in
    `native.FUNCTIONS`. Error when it can't be loaded."""
    try:
        loaded = ctypes.CDLL(_name())
        for name, (result, arguments) in native.FUNCTIONS.items():
            function = getattr(loaded, name)
            function.restype, function.argtypes = result, arguments
    except (OSError, AttributeError) as error:
        raise Error(f"{_name()} can't be used: {error}; PERILINK_LIBRARY may name another") from error
    return loaded


# Device paths are in the system's ANSI code page, which is UTF-8 on Linux.
_PATHS = "mbcs" if sys.platform == "win32" else "utf-8"


def encode(text: str) -> bytes:
    """Text as the narrow functions take it. Error when the system's code page can't hold it."""
    try:
        return text.encode(_PATHS)
    except UnicodeEncodeError as error:
        raise Error(f"{text!r} can't be told to the library: {error}") from error


def take_list(found: "ctypes._Pointer[ctypes.c_char_p]", count: ctypes.c_uint32) -> list[str]:
    """The texts of a list that the library gave, which is released."""
    try:
        return [(found[i] or b"").decode(_PATHS, "replace") for i in range(count.value)]
    finally:
        exports().UsbFinderC_Free(found, count.value)


def buffer(data: bytes) -> "ctypes.Array[ctypes.c_uint8]":
    """The bytes, where the library can read them."""
    return (ctypes.c_uint8 * len(data)).from_buffer_copy(data)
