"""Talks to wireless gaming mice and keyboards and their USB receivers, through libperilink.

    import perilink

    device = perilink.find("1234", "abcd")[0]
    print(device.info(), device.battery())
    with perilink.Server(device) as server:
        configuration = server.read_configuration()
        configuration["dpi_levels[0].color"] = b"\\xff\\x00\\x00"
        server.write_configuration(configuration)
    perilink.upgrade(open("mouse.upgrade", "rb").read(), print)

Under `perilink.native` are the library's own records, constants and functions, as its headers have
them; `perilink.exports()` calls them.
"""
from . import native
from .binding import Error, NoAnswer, exports
from .configuration import Configuration
from .device import Battery, Device, Info, find, interfaces
from .server import Report, Server
from .upgrade import UpgradeEvent, UpgradeFailed, upgrade

__version__ = ".".join(map(str, native.VERSION))
__all__ = ["Battery", "Configuration", "Device", "Error", "Info", "NoAnswer", "Report", "Server",
           "UpgradeEvent", "UpgradeFailed", "exports", "find", "interfaces", "native", "upgrade"]
