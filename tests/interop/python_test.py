"""The Python module on a virtual mouse, whose process is this one: python_test.py MAKE_UPGRADE"""
import pathlib
import subprocess
import sys
import tempfile
import time
import unittest

import perilink


class ModuleTest(unittest.TestCase):
    def setUp(self):
        self.device = perilink.find("1234", "ABCD")[0]

    def test_tells_of_the_device(self):
        self.assertIn(self.device.path, perilink.interfaces("mi_01&col05"))
        self.assertEqual(self.device.info(), perilink.Info(
            "1.02", True, b"\x12\x34\x01", b"VM00000001"))
        self.assertEqual(self.device.battery(), perilink.Battery(80, False, 4020))
        with self.assertRaises(perilink.NoAnswer):
            perilink.Device("nowhere").battery()

    def test_writes_what_has_changed_and_knows_when_it_is_done(self):
        commands = []
        values = {"report_rate": 1, "setting20": 0x12345678, "dpi_levels[3].color": b"\x01\x02\x03",
                  "key_functions[15]": b"\x04\x05\x06"}
        with perilink.Server(self.device, lambda report: commands.append(report.command)) as server:
            changed = server.read_configuration().copy()
            self.assertIn("key_functions[15]", list(changed))
            changed.update(values)
            server.write_configuration(changed)
            writes = commands.count(perilink.native.Command.WRITE_MEMORY)
            stored = server.read_configuration()
        self.assertEqual(writes, len(values))
        self.assertEqual({name: stored[name] for name in values}, values)
        for name, value in [("report_rate", 256), ("dpi_levels[3].color", b"\x01\x02")]:
            with self.assertRaises(ValueError):
                stored[name] = value
        for name in ["report_rat", "dpi_levels[8].color", "dpi_levels", "macros[0]"]:
            with self.assertRaises(KeyError):
                stored[name]  # pylint: disable=pointless-statement

    def test_upgrades(self):
        with tempfile.TemporaryDirectory() as folder:
            file = pathlib.Path(folder, "mouse.upgrade")
            subprocess.run([MAKE_UPGRADE, "--virtual-version", "0x0103", "--output", file,
                            "--normal-input", "vid_1234&pid_abcd&mi_01&col05",
                            "--boot-input", "vid_1234&pid_b007"], check=True, capture_output=True)
            image = file.read_bytes()
        for broken in [image[:100], image[:-1], b"\0" + image[1:]]:
            with self.assertRaises(perilink.Error):
                perilink.upgrade(broken)
        events = []
        perilink.upgrade(image, events.append)
        self.assertEqual(events[-1].code, perilink.native.UpgradeResult.SUCCESS)
        end = time.monotonic() + 20
        while not perilink.find("1234", "abcd") and time.monotonic() < end:
            time.sleep(0.1)
        self.assertEqual(self.device.firmware(), "1.03")


MAKE_UPGRADE = sys.argv.pop()
unittest.main()
