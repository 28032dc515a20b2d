"""knxtool's commands for a device manage the device of the house, through a knxd that is attached as a tunnelling client."""

import unittest

from house import House, Knxd
from knxd_management import Management
from processes import run, wait_until

KEY, OTHER_KEY = "11223344", "55667788"
LEVELS = ("0", "1", "2")
PROGRAM = "4"  # index of the application program among the interface objects
LOAD_STATE, TABLE_REFERENCE, TIME_MODE = "5", "7", "201"  # its properties
UNLOAD, START_LOADING = "04 00 00 00 00 00 00 00 00 00", "01 00 00 00 00 00 00 00 00 00"
ALLOCATE_16 = "03 0b 00 00 00 10 01 00 00 00"  # octets, filled with zeros


class KnxToolManagement(unittest.TestCase):
    FILTER = ()

    def setUp(self):
        self.house = self.enterContext(House(image=True))
        Knxd(self.house, self.FILTER)
        self.management = Management(self.house.directory / "knxd.sock", self.house.directory / "management.sock")
        self.addCleanup(self.management.close)
        self.device = self.house.address

    def start(self, command, *arguments, key=None):
        options = ("-k", key) if key else ()
        return run(["knxtool", command, *options, self.management.url, *arguments], 60, check=False)

    def tool(self, command, *arguments, key=None):
        """What the command prints, whose exit status has to be 0."""
        status, output, errors = self.start(command, *arguments, key=key)
        self.assertEqual((status, errors), (0, ""), command)
        return output.strip()

    def assert_fails(self, complaint, command, *arguments, key=None):
        status, _, errors = self.start(command, *arguments, key=key)
        self.assertNotEqual(status, 0, command)
        self.assertIn(complaint, errors)

    def write_property(self, obj, prop, value, key=None):
        """What the device answers, in the last line; before it stand the level of the key and what was written."""
        return self.tool("mpropwrite", self.device, obj, prop, "1", "1", *value.split(), key=key).splitlines()[-1].strip()

    def test_device_descriptor(self):
        self.assertEqual(self.tool("maskver", self.device), "Mask: 57B0")
        self.assertEqual(self.tool("mmaskver", self.device), "Mask: 57B0")
        self.assertEqual(self.tool("mmaskver", self.device, key="ffffffff"), "Level 0\nMask: 57B0")
        self.assert_fails("failed", "maskver", "1.1.99")

    def test_programming_mode(self):
        steps = (("progmodeon", "in"), ("progmodeoff", "not in"), ("progmodetoggle", "in"), ("mprogmodetoggle", "not in"),
                 ("mprogmodeon", "in"), ("mprogmodeon", "in"), ("mprogmodeoff", "not in"))
        for command, state in steps:
            self.tool(command, self.device)
            for status in ("progmodestatus", "mprogmodestatus"):
                self.assertEqual(self.tool(status, self.device), f"{state} programming mode", command)
            self.assertEqual(self.house.knxstackctl("status")["programmingMode"], state == "in", command)

    def test_individual_address(self):
        self.assertEqual(self.tool("readindividual"), "", "nobody is in programming mode")
        self.assert_fails("timed out", "writeaddress", "1.1.240")
        self.tool("progmodeon", self.device)
        self.assertEqual(self.tool("readindividual"), f"Addr: {self.device}")
        self.assert_fails("in use", "writeaddress", self.device)
        self.tool("writeaddress", "1.1.240")
        self.house.host.wait_for_line("the device has the individual address 1.1.240 now")
        self.assertEqual(self.tool("maskver", "1.1.240"), "Mask: 57B0")
        self.assertEqual(self.tool("progmodestatus", "1.1.240"), "not in programming mode")
        self.assert_fails("failed", "maskver", self.device)

    def test_properties(self):
        self.assertEqual(self.tool("mpropdesc", self.device, "0", "12"), "Property: type:4 count:1 access:32")
        for command in ("mpropread", "xpropread"):
            self.assertEqual(self.tool(command, self.device, "0", "12", "1", "1"), "00 00", "manufacturer")
            self.assertEqual(self.tool(command, self.device, PROGRAM, "1", "1", "1"), "00 03", "type of the object")
            self.assert_fails("Read failed", command, self.device, "0", "255", "1", "1")
            self.assert_fails("Read failed", command, self.device, "0", "12", "2", "1")
        for command, value in (("mpropwrite", "40"), ("xpropwrite", "00"), ("xpropwrite", "40")):
            written = self.tool(command, self.device, PROGRAM, TIME_MODE, "1", "1", value)
            self.assertEqual(written.split(), ["Write:", value, value])
            self.assertEqual(self.tool("mpropread", self.device, PROGRAM, TIME_MODE, "1", "1"), value)
        self.assert_fails("Write failed", "mpropwrite", self.device, "0", "12", "1", "1", "00", "01")
        # As much as knxtool has room for.
        scanned = self.tool("mpropscan", self.device).splitlines()
        self.assertEqual(scanned[0], "Obj: 0 Property: 1 Type: 4 Objtype:0 Access:32")
        self.assertIn("Obj: 0 Property: 11 Type: 22 Count:1 Access:32", scanned)
        self.assertIn(f"Obj: {PROGRAM} Property: {TIME_MODE} Type: 145 Count:1 Access:32", scanned)

    def test_keys_and_memory(self):
        for level in LEVELS:
            self.tool("msetkey", self.device, level, KEY)
        load_state = (self.device, PROGRAM, LOAD_STATE, "1", "1")
        self.assert_fails("Write failed", "mpropwrite", *load_state, *UNLOAD.split())
        self.assert_fails("Write failed", "mpropwrite", *load_state, *UNLOAD.split(), key=OTHER_KEY)
        self.assert_fails("failed", "msetkey", self.device, "0", OTHER_KEY)
        self.assertEqual(self.write_property(PROGRAM, LOAD_STATE, UNLOAD, KEY), "00")
        self.assertEqual(self.write_property(PROGRAM, LOAD_STATE, START_LOADING, KEY), "02")
        self.assertEqual(self.write_property(PROGRAM, LOAD_STATE, ALLOCATE_16, KEY), "02")
        place = self.tool("mpropread", self.device, PROGRAM, TABLE_REFERENCE, "1", "1").split()
        address = "".join(place[2:])
        octets = [f"{octet:02X}" for octet in range(0xA0, 0xB0)]

        def memory():
            return self.tool("mread", self.device, address, "16").split()
        self.assert_fails("Write failed", "mwrite", self.device, address, *octets)
        self.tool("mwriteplain", self.device, address, *octets)  # which asks for no answer
        self.assertEqual(memory(), ["00"] * 16)
        for command in ("mwrite", "mwriteplain"):
            self.tool(command, self.device, address, *octets, key=KEY)
            self.assertEqual(memory(), octets)
            octets.reverse()
        self.assert_fails("Read failed", "mread", self.device, "ff00", "20")

    def test_restart(self):
        self.tool("mrestart", self.device)
        for count, key in ((1, KEY), (2, None)):
            wait_until(lambda: self.house.host.count("the device has restarted; the application program starts anew")
                       >= count, 30, f"restart number {count}")
            wait_until(self.house.is_ready, 30, "the application program is ready again")
            if key:
                self.tool("mrestart", self.device, key=key)
        self.assertEqual(self.house.host.count("asked for a restart"), 2)


class KnxToolManagementThroughASingleAddress(KnxToolManagement):
    FILTER = ("-B", "single")


if __name__ == "__main__":
    unittest.main()
