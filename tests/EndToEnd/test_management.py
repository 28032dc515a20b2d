"""Tools manage the device of the house through a knxd that is attached as a tunnelling client.

knxd speaks for its own clients: their telegrams carry addresses of knxd, not that of the tunnel. With its filter "single"
all of them have the tunnel's own address.
"""

import struct
import time
import unittest

from house import House, Knxd, KnxTool
from knxd_group_socket import parse_address
from knxd_transport import Broadcast, Connection, Individual, individual
from processes import wait_until
from tunnel import L_DATA_IND, L_DATA_REQ, Tunnel

LEVELS = ("00", "01", "02")
KEY, NO_KEY = "11223344", "ffffffff"


class Management(unittest.TestCase):
    FILTER = ()

    def setUp(self):
        self.house = self.enterContext(House(image=True))
        self.knxd = Knxd(self.house, self.FILTER)
        self.path = self.house.directory / "knxd.sock"

    def connect(self, key=None):
        connection = Connection(self.path, self.house.address)
        self.addCleanup(connection.close)
        if key:
            connection.ask(f"03d100{key}")
        return connection

    def test_device_descriptor_and_properties(self):
        asked = Individual(self.path, self.house.address)
        self.ask_for_properties(asked.ask)
        asked.close()  # with one address for all, knxd tells two clients that ask at the same time not apart
        self.ask_for_properties(self.connect().ask)

    def ask_for_properties(self, ask):
        self.assertEqual(ask("0300"), "034057b0")
        self.assertEqual(ask("03d5000c1001"), "03d6000c10010000", "manufacturer")
        self.assertEqual(ask("03d8000b00"), "03d9000b0216000132", "description of the serial number")
        self.assertEqual(ask("03d500ff1001"), "03d600ff0001", "no such property")
        # The time mode of the application program, object 4, property 201: made by the library, written, read.
        self.assertEqual(ask("03d704c9100140"), "03d604c9100140")
        self.assertEqual(ask("03d504c91001"), "03d604c9100140")
        self.assertEqual(ask("03d704c9100100"), "03d604c9100100")

    def test_programming_mode_and_individual_address(self):
        broadcast = Broadcast(self.path)
        self.addCleanup(broadcast.close)
        self.assertIsNone(broadcast.ask("0100", 1), "nobody is in programming mode")
        connection = self.connect()
        connection.tell("0281006081")
        self.assertEqual(connection.ask("02010060"), "0241006081", "memory, where old tools look")
        self.assertEqual(connection.ask("03d500361001"), "03d60036100101", "property")
        connection.disconnect()
        self.house.host.wait_for_line("programming mode is on")
        own = individual(self.house.address)
        self.assertEqual(broadcast.ask("0100"), (own, "0140"))
        broadcast.send(bytes.fromhex("00c011f0"))
        self.house.host.wait_for_line("the device has the individual address 1.1.240 now")
        self.assertEqual(broadcast.ask("0100"), (individual("1.1.240"), "0140"))
        moved = Individual(self.path, "1.1.240")
        self.addCleanup(moved.close)
        serial = moved.ask("03d5000b1001")[12:]
        self.assertEqual(moved.ask("03d70036100100"), "03d60036100100")
        self.assertIsNone(broadcast.ask("0100", 1))
        # Back again by its serial number, which needs no programming mode.
        self.assertEqual(broadcast.ask(f"03dc{serial}"), (individual("1.1.240"), f"03dd{serial}00000000"))
        broadcast.send(bytes.fromhex(f"03de{serial}{own:04x}00000000"))
        self.house.host.wait_for_line(f"the device has the individual address {self.house.address} now")

    def test_memory_with_and_without_a_key(self):
        connection = self.connect()
        for level in LEVELS:
            self.assertEqual(connection.ask(f"03d3{level}{KEY}"), f"03d4{level}")
        connection.disconnect()
        stranger = self.connect()
        self.assertEqual(stranger.ask("03d7040510010400000000000000000000"), "03d604050001")
        stranger.disconnect()
        owner = self.connect(KEY)
        self.assertEqual(owner.ask("03d7040510010400000000000000000000"), "03d60405100100", "unloaded")
        self.assertEqual(owner.ask("03d7040510010100000000000000000000"), "03d60405100102", "loading")
        self.assertEqual(owner.ask("03d704051001030b000000100100000000"), "03d60405100102")
        address = owner.ask("03d504071001")[16:]
        owner.tell(f"0284{address}0a0b0c0d")
        self.assertEqual(owner.ask(f"0204{address}"), f"0244{address}0a0b0c0d")
        for level in LEVELS:
            self.assertEqual(owner.ask(f"03d3{level}{NO_KEY}"), f"03d4{level}")
        owner.disconnect()

    def test_a_restart_is_told_to_the_application_program(self):
        connection = self.connect()
        connection.tell("0380")
        connection.wait_for_disconnect()
        self.house.host.wait_for_line("asked for a restart")
        self.house.host.wait_for_line("the device has restarted; the application program starts anew")
        wait_until(self.house.is_ready, 30, "the application program is ready again")
        self.assertEqual(self.connect().ask("03810100"), "03a1000003", "a confirmed one")

    def test_the_second_of_two_tools_is_refused_and_the_first_goes_on(self):
        if "single" in self.FILTER:
            self.skipTest("both tools would have one address, and be one tool")
        first = self.connect()
        self.assertEqual(first.ask("0300"), "034057b0")
        self.connect().wait_for_disconnect()
        self.assertEqual(first.ask("0300"), "034057b0")

    def test_another_tunnel_hears_nothing_of_a_conversation_with_the_device(self):
        bystander = Tunnel(self.house.port)
        self.addCleanup(bystander.close)
        connection = self.connect()
        self.assertEqual(connection.ask("0300"), "034057b0")
        connection.disconnect()
        own, theirs = individual(self.house.address), individual("1.1.77")
        tool = Tunnel(self.house.port)
        self.addCleanup(tool.close)
        tool.send(struct.pack(">BBBBHHB2s", L_DATA_REQ, 0, 0xB0, 0x60, theirs, own, 1, b"\x03\x00"))
        answer = struct.pack(">BBBBHHB4s", L_DATA_IND, 0, 0xB0, 0x60, own, theirs, 3, b"\x03\x40\x57\xb0")
        wait_until(lambda: answer in tool.received, 20, "the answer to the device behind the tunnel")
        probe = struct.pack(">H", parse_address(KnxTool.PROBE))

        def hears_groups():
            self.knxd.write(KnxTool.PROBE, 0)
            return any(cemi[6:8] == probe for cemi in bystander.received)
        wait_until(hears_groups, 20, "the bystander hears what goes to groups")
        self.assertEqual([cemi.hex() for cemi in bystander.received if not cemi[3] & 0x80], [])

    def test_telegrams_to_other_devices_are_not_answered(self):
        neighbour = Individual(self.path, "1.1.249")
        self.addCleanup(neighbour.close)
        self.assertIsNone(neighbour.ask("0300", 1))
        stray = Connection(self.path, "1.1.249")
        self.addCleanup(stray.close)
        stray.send(bytes.fromhex("11f981"))
        end = time.monotonic() + 1
        while time.monotonic() < end:
            heard = stray.receive(0.2)
            self.assertTrue(heard is None or heard[2] == 0, "nothing but group telegrams")


class ManagementThroughASingleAddress(Management):
    FILTER = ("-B", "single")


if __name__ == "__main__":
    unittest.main()
