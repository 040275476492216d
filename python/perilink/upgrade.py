"""Upgrading the firmware."""
import ctypes
import queue
from typing import Any, Callable, NamedTuple, Optional

from . import native
from .binding import Error, buffer, exports


class UpgradeEvent(NamedTuple):
    """What an upgrade tells on its way: perilink/upgrade.h has a table of all."""
    kind: int  # native.UpgradeKind
    code: int
    arg1: int
    arg2: int


class UpgradeFailed(Error):
    """An upgrade that did not succeed; `event` says where. Start it again: a device that is left in
    boot mode is found there."""

    def __init__(self, event: Optional[UpgradeEvent]) -> None:
        super().__init__(f"the upgrade failed: {_reason(event)}")
        self.event = event


def _reason(event: Optional[UpgradeEvent]) -> str:
    if event is None:
        return "it told nothing of its end"
    try:
        return native.UpgradeResult(event.code).name.lower().replace("_", " ")
    except ValueError:
        return f"result {event.code}"


def _check(file: bytes) -> None:
    """The library is not told the file's length: what its headers name has to be there."""
    offset = 0
    for image in ("main", "slave"):
        if len(file) < offset + native.UPGRADE_HEADER_SIZE:
            raise Error(f"the file ends in the header of its {image} image")
        header = native.UpgradeFileHeader.from_buffer_copy(file, offset)
        if len(file) < offset + native.UPGRADE_HEADER_SIZE + header.payload_length:
            raise Error(f"the file ends in the payload of its {image} image")
        if header.checked_length > len(file) - offset:
            raise Error(f"the checksum of the {image} image covers more than there is")
        offset = header.slave_offset
        if offset == 0 or image == "slave":
            return


# Callbacks of past upgrades: the last call may not have returned, and one that told no end may come.
_kept: list[Any] = []


def upgrade(file: bytes, on_event: Optional[Callable[[UpgradeEvent], None]] = None, *,
            timeout_ms: int = 10000, silence: float = 120) -> None:
    """Upgrades the devices that the file is for, and returns when they have the new firmware. They
    restart then, and can be found again after a moment.

    `on_event` is called for every event, on a thread of the library's. `timeout_ms` is the patience
    with a device, 1000 or more. An upgrade that tells nothing for `silence` seconds counts as failed.
    UpgradeFailed when it did not succeed, Error for a file that is none, or while another runs.
    """
    _check(file)
    events: "queue.SimpleQueue[UpgradeEvent]" = queue.SimpleQueue()

    def receive(message: Any, _length: int) -> int:
        event = UpgradeEvent(message[1], message[2], message[3], message[4])
        events.put(event)
        if on_event:
            on_event(event)
        return 0

    callback = native.UpgradeCallback(receive)
    if not exports().UsbUpgrade_Start(buffer(file), callback, timeout_ms):
        raise Error("no image of the file is sound, or an upgrade runs already")
    while True:
        try:
            event = events.get(timeout=silence)
        except queue.Empty:
            _kept.append(callback)
            raise UpgradeFailed(None) from None
        # The device reports an error of its own and the download goes on.
        if event.kind != native.UpgradeKind.RESULT or event.code == native.UpgradeResult.DEVICE_ERROR:
            continue
        _kept.append(callback)
        if event.code == native.UpgradeResult.SUCCESS:
            return
        raise UpgradeFailed(event)
