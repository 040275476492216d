"""A host in Python: what a device tells, then a change of its configuration and back, through the
background server. The module has to be found, and the library: by their installation, or by
PYTHONPATH and PERILINK_LIBRARY.
"""
import sys

import perilink


def change_color(server: perilink.Server) -> None:
    """Changes the colour of a DPI level, sees it in the device, and changes it back."""
    field = "dpi_levels[0].color"
    before = server.read_configuration()
    changed = before.copy()
    changed[field] = b"\x20\x80\xe0"
    server.write_configuration(changed)
    stored = server.read_configuration()[field]
    server.write_configuration(before)
    print(f"report rate {before['report_rate']}, {before['dpi_level_count']} levels; "
          f"level 0 was {bytes(before[field]).hex()}, became {bytes(stored).hex()}")


def main() -> int:
    """The exit code: 0 when all was done."""
    devices = perilink.find("1234", "abcd")
    if not devices:
        print("no such device")
        return 1
    try:
        print(devices[0].path)
        info, battery = devices[0].info(), devices[0].battery()
        print(f"firmware {info.firmware}, battery {battery.percent} %")
        with perilink.Server(devices[0]) as server:
            change_color(server)
    except perilink.NoAnswer as error:
        print(error)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
