"""Two application programs on one device, each with a bus of its own: telegrams of a range of group objects pass from one
bus to the other."""

import json
import shutil
import time
import unittest

from house import BIN, DAEMONS, House, Knxd, free_port, load_json
from knxd_group_socket import GroupSocket
from processes import Failure, run, wait_until

RUNS = "the application program is configured and running"

# Number, size in bits and address of each translated group object, on the first bus and on the second. On the second
# bus two of them share an address.
OBJECTS = [
    (900, 1, "7/0/1", "8/0/1"),
    (901, 4, "7/0/2", "8/0/2"),
    (902, 8, "7/0/3", "8/0/3"),
    (903, 16, "7/0/4", "8/0/4"),
    (904, 112, "7/0/5", "8/0/5"),
    (905, 8, "7/0/6", "8/0/7"),
    (906, 8, "7/0/7", "8/0/7"),
]
RANGE = [900, 909]

# Data as KnxTool.write takes it, and as it is heard.
WRITES = [
    (900, 1, b"\x01"),
    (900, 0, b"\x00"),
    (901, 0b1011, b"\x0b"),
    (902, b"\x80", b"\x80"),
    (903, b"\x0c\x1a", b"\x0c\x1a"),
    (904, b"Guten Tag\0\0\0\0\0", b"Guten Tag\0\0\0\0\0"),
]


def group_objects(bus):
    return [{"number": number, "size": size, "flags": "CRWTU", "addresses": [(first, second)[bus]]}
            for number, size, first, second in OBJECTS]


class SecondHost:
    """Another KNX stack host beside the one of the house, with files of its own and the same device stack."""

    address = "1.2.250"

    def __init__(self, house):
        self._house = house
        self.directory = house.directory / "second"
        self.directory.mkdir()
        self.port = free_port()
        shutil.copy(house.configuration / "knxappprghandlers.xml", self.directory)
        self.write("project.json", {"version": 1, "device": "house", "dataPoints": [],
                                    "knx": {"owner": "DscKnxAppPrg::field::KNX2", "translationRange": RANGE}})
        self.write("knxstackd.json", {
            "device": {"individualAddress": self.address, "name": "Second"},
            "server": {"address": "127.0.0.1", "port": self.port, "tunnels": ["1.2.251", "1.2.252"]},
            "groupObjects": group_objects(1),
            "applicationProgram": {"library": "libdscknxappprg.so", "settings": {
                "DscInstanceId": "KNX2", "GroupAddressTranslationTargetId": "KNX"}},
            "deviceStackSocket": str(house.socket),
            "project": "project.json"})

    def write(self, name, content):
        (self.directory / name).write_text(json.dumps(content), encoding="utf-8")

    def start(self, *arguments, **options):
        return self._house.start(*arguments, **options)

    def start_host(self):
        self.host = self.start("knxstackd", [BIN / "knxstackd", "--config", self.directory / "knxstackd.json"])
        self.host.wait_for_line(RUNS, 30)


class TwoBuses(House):
    """The house with a translation range, and the second host."""

    def __enter__(self):
        super().__enter__()
        try:
            self.second = SecondHost(self)
            self.second.start_host()
        except BaseException:
            self.__exit__(Failure, None, None)
            raise
        return self

    def _change_configuration(self):
        super()._change_configuration()
        for name, change in (("project.json", self._translate), ("knxstackd.json", self._add_objects)):
            content = load_json(self.configuration / name)
            change(content)
            (self.configuration / name).write_text(json.dumps(content), encoding="utf-8")

    def _translate(self, project):
        project["knx"]["translationRange"] = RANGE

    def _add_objects(self, host):
        host["groupObjects"] += group_objects(0)
        host["applicationProgram"]["settings"]["GroupAddressTranslationTargetId"] = "KNX2"


class Translation(unittest.TestCase):
    def setUp(self):
        self.house = self.enterContext(TwoBuses())
        self.hosts = (self.house, self.house.second)
        self.buses = [Knxd(host) for host in self.hosts]
        self.telegrams = [bus.listen() for bus in self.buses]

    def addresses(self, bus):
        return {number: (first, second)[bus] for number, _, first, second in OBJECTS}

    def heard(self, bus):
        """(service, source, destination, data) of each; the source is None for the bus client itself."""
        own = self.hosts[bus].address
        return [(service, source if source == own else None, destination, data)
                for service, source, destination, data in self.telegrams[bus].all()]

    def expect(self, *buses):
        """Each bus has heard these telegrams and, a second later, nothing else."""
        for bus, expected in enumerate(buses):
            wait_until(lambda b=bus, n=len(expected): len(self.heard(b)) >= n, 10, f"{expected} on bus {bus}")
        time.sleep(1)
        for bus, expected in enumerate(buses):
            self.assertEqual(self.heard(bus), expected)

    def check_writes(self, source, target):
        here, there = [], []
        for number, data, octets in WRITES:
            self.buses[source].write(self.addresses(source)[number], data)
            here.append(("Write", None, self.addresses(source)[number], octets))
            there.append(("Write", self.hosts[target].address, self.addresses(target)[number], octets))
            wait_until(lambda: len(self.heard(target)) >= len(there), 10, f"CO {number} on the other bus")
        self.expect(*((here, there) if source == 0 else (there, here)))

    def test_a_write_on_the_first_bus_is_one_on_the_second_and_does_not_come_back(self):
        self.check_writes(0, 1)

    def test_a_write_on_the_second_bus_is_one_on_the_first_and_does_not_come_back(self):
        self.check_writes(1, 0)

    def check_read(self, asking, answering):
        question, answer = (self.addresses(bus)[903] for bus in (asking, answering))
        self.buses[asking].read(question)
        wait_until(lambda: self.heard(answering), 10, "the read on the other bus")
        device = GroupSocket(self.hosts[answering].directory / "knxd.sock")
        device.respond(answer, b"\x0c\x1a")
        device.close()
        here = [("Read", None, question, b""), ("Response", self.hosts[asking].address, question, b"\x0c\x1a")]
        there = [("Read", self.hosts[answering].address, answer, b""), ("Response", None, answer, b"\x0c\x1a")]
        self.expect(*((here, there) if asking == 0 else (there, here)))

    def test_a_read_on_the_first_bus_is_answered_on_the_second(self):
        self.check_read(0, 1)

    def test_a_read_on_the_second_bus_is_answered_on_the_first(self):
        self.check_read(1, 0)

    def test_two_objects_with_one_address_make_no_loop(self):
        # 905 and 906 are both 8/0/7. What the second host sends through one, it does not take through the other.
        self.buses[0].write("7/0/6", b"\x11")
        self.expect([("Write", None, "7/0/6", b"\x11")], [("Write", "1.2.250", "8/0/7", b"\x11")])

    def test_a_telegram_for_both_objects_of_an_address_goes_through_both(self):
        self.buses[1].write("8/0/7", b"\x22")
        self.expect([("Write", self.house.address, "7/0/6", b"\x22"), ("Write", self.house.address, "7/0/7", b"\x22")],
                    [("Write", None, "8/0/7", b"\x22")])

    def test_data_points_stay_with_their_own_bus(self):
        self.buses[0].write("5/0/2", b"\x01\x02")
        wait_until(lambda: self.house.value("Door.Count") == "258", 10, "the data point has the value")
        self.expect([("Write", None, "5/0/2", b"\x01\x02")], [])

    def test_a_burst_passes_in_order_and_nothing_twice(self):
        sender = GroupSocket(self.house.directory / "knxd.sock")
        for number in range(100):
            sender.write("7/0/4", number.to_bytes(2, "big"))
        wait_until(lambda: len(self.heard(1)) >= 100, 30, "the whole burst")
        sender.close()
        time.sleep(1)
        self.assertEqual([data for _, _, _, data in self.heard(1)], [n.to_bytes(2, "big") for n in range(100)])
        self.assertEqual(len(self.heard(0)), 100)

    def test_a_partner_that_is_gone_costs_its_telegrams_alone(self):
        self.hosts[1].host.kill()
        self.buses[1].process.kill()  # it would take minutes to notice
        (self.hosts[1].directory / "knxd.sock").unlink()
        self.buses[0].write("7/0/3", b"\x33")
        self.house.host.wait_for_line("GroupAddressTranslation - Failed to send event.")
        self.buses[0].write("5/0/2", b"\x01\x03")
        wait_until(lambda: self.house.value("Door.Count") == "259", 10, "data points go on")
        self.hosts[1].start_host()
        self.telegrams[1] = Knxd(self.hosts[1]).listen()
        self.buses[0].write("7/0/3", b"\x34")
        wait_until(lambda: [data for _, _, _, data in self.heard(1)] == [b"\x34"], 30, "the telegrams pass again")

    def test_a_device_stack_that_comes_back_joins_them_again(self):
        self.house.device_stack.kill()
        self.house.start_device_stack()
        self.house.wait_until_running()

        def passes(bus):
            self.buses[bus].write(self.addresses(bus)[902], b"\x44")
            wait_until(lambda: ("Write", self.hosts[1 - bus].address, self.addresses(1 - bus)[902], b"\x44")
                       in self.heard(1 - bus), 2, "a telegram")

        for bus in (0, 1):
            for _ in range(15):
                try:
                    passes(bus)
                    break
                except Failure:
                    pass
            else:
                self.fail(f"nothing passes from bus {bus}")


if __name__ == "__main__":
    unittest.main()
