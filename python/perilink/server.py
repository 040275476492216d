"""The background server: it keeps a device open, and tells what the device sends."""
import ctypes
import dataclasses
import queue
import time
from typing import Any, Callable, Optional

from . import native
from .configuration import Configuration
from .device import Battery, Device
from .binding import Error, NoAnswer, encode, exports


@dataclasses.dataclass(frozen=True)
class Report:
    """What the server reports: an answer to a request, an event, a battery level."""
    frame: bytes  # 17 bytes: the request, or the event itself
    data: bytes

    @property
    def command(self) -> int:
        """Its code: `native.Command`."""
        return self.frame[1]

    def battery(self) -> Optional[Battery]:
        """The battery's level, smoothed while the optimiser is enabled; None for other reports."""
        if self.command != native.Command.BATTERY_LEVEL or len(self.data) < 4:
            return None
        return Battery(self.data[0], self.data[1] != 0, self.data[2] * 256 + self.data[3] or None)


class Server:
    """One run of the server on a device, from `with` to its end. There is one server in a process.

    `on_report` is called for every report, on a thread of the library's; what it raises is printed
    and forgotten. It must not wait for the server. The methods are for one thread at a time.
    """
    _running: Optional["Server"] = None

    def __init__(self, device: Device, on_report: Optional[Callable[[Report], None]] = None, *,
                 keyboard: bool = False) -> None:
        self._device = device
        self._on_report = on_report
        self._keyboard = keyboard
        self._reports: "queue.SimpleQueue[Report]" = queue.SimpleQueue()
        # Held as long as the library may call it.
        self._callback = native.ServerReportCallback(self._receive)

    def __enter__(self) -> "Server":
        if Server._running:
            raise Error("the process has one server, and it runs already")
        Server._running = self
        self._start()
        return self

    def __exit__(self, *_: object) -> None:
        exports().UsbServer_Exit()
        exports().UsbReaderWriterServer()  # returns when the server has ended
        Server._running = None

    def _start(self) -> None:
        """Opens the device anew, and drops all requests and their reports."""
        path = encode(self._device.path)
        start = exports().UsbServerC_KeyboardStart if self._keyboard else exports().UsbServerC_Start
        start(path, path, self._callback)
        self._reports = queue.SimpleQueue()

    def _receive(self, frame: Any, frame_length: int, data: Any, data_length: int) -> None:
        report = Report(bytes(frame[:frame_length]), bytes(data[:data_length]))
        self._reports.put(report)
        if self._on_report:
            self._on_report(report)

    def ask(self, request: Callable[[], Any], is_answer: Callable[[Report], bool],
            timeout: float = 10) -> Report:
        """Calls `request`, which queues a request, and waits for its answer. NoAnswer when none has
        come after `timeout` seconds; what is queued is dropped then."""
        while not self._reports.empty():
            self._reports.get()
        request()
        end = time.monotonic() + timeout
        while True:
            try:
                report = self._reports.get(timeout=max(0.0, end - time.monotonic()))
            except queue.Empty:
                self._start()
                raise NoAnswer(f"{self._device.path} does not answer") from None
            if is_answer(report):
                return report

    def read_memory(self, address: int, length: int, timeout: float = 10) -> bytes:
        """Bytes of the device's configuration memory, 1 to 8190 of them."""
        if not 0 < length <= 8190 or not 0 <= address <= 0xFFFF:
            raise ValueError("1 to 8190 bytes from an address of 16 bits")
        def is_answer(report: Report) -> bool:
            return report.command == native.Command.READ_MEMORY and len(report.data) >= length
        report = self.ask(lambda: exports().UsbServer_ReadFalshData(address, length, 0), is_answer,
                          timeout)
        return report.data[:length]

    def read_configuration(self, timeout: float = 20) -> Configuration:
        """The whole configuration. NoAnswer when it did not come in time."""
        def is_image(report: Report) -> bool:
            return (report.command == native.Command.READ_MEMORY
                    and len(report.data) == native.FLASH_IMAGE_SIZE)
        return Configuration.from_image(
            self.ask(exports().UsbServer_ReadAllFlashData, is_image, timeout).data)

    def write_configuration(self, configuration: Configuration, timeout: float = 20) -> None:
        """Writes what differs from what the device is known to hold, which it was asked for with
        `read_configuration`. The device has acknowledged every write when this returns. NoAnswer
        when it has not: read the configuration again then, to see what was written."""
        def request() -> None:
            exports().ProtocolDataUpdate(ctypes.byref(configuration.record))
            # Its turn comes when all that was queued before has been answered.
            exports().UsbServer_ReadVersion()
        self.ask(request, lambda report: report.command == native.Command.VERSION, timeout)
