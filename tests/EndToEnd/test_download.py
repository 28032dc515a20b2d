"""A download brings another project: its data points are there, on the bus too, and every process goes on."""

import json
import re
import signal
import unittest

from bus_download import DATA, PROGRAM, download, tables
from house import BIN, House, Knxd, load_json
from knxd_transport import Connection
from processes import run, wait_until

RUNS = "the application program is configured and running"
NEW = {"id": 2601, "name": "Attic.Light", "dpt": "1.001", "knx": {"co": 63}}
ADDRESS = "1/0/4"
ALL_EVENTS = ["configurationChangeBegin", "etsConfigChanged", "configurationChangeEnd", "configurationLoaded"]


class Download(unittest.TestCase):
    def setUp(self):
        self.house = self.enterContext(House())
        self.project = self.house.configuration / "project.json"
        self.data = self.house.configuration / "data.bin"
        self.list_the_plugin()
        self.change_host(lambda host: host["applicationProgram"].update(data="data.bin"))
        self.knxd = Knxd(self.house)
        self.house.host.wait_for_line(RUNS)
        self.changes = self.house.watch("Attic.Light")

    def list_the_plugin(self):
        """As the comment in the registry of the example says."""
        registry = self.house.configuration / "knxappprghandlers.xml"
        text = registry.read_text(encoding="utf-8")
        listed = re.sub(r"<!-- For a device.*?\n(.*?)  -->\n", r"\1", text, flags=re.DOTALL)
        self.assertNotEqual(listed, text)
        registry.write_text(listed, encoding="utf-8")
        (self.house.configuration / "download.json").write_text(
            json.dumps({"project": "project.json", "stateDirectory": str(self.house.state)}), encoding="utf-8")

    def change_host(self, change):
        path = self.house.configuration / "knxstackd.json"
        host = load_json(path)
        change(host)
        path.write_text(json.dumps(host), encoding="utf-8")

    def add_group_object(self):
        self.change_host(lambda host: host["groupObjects"].append(
            {"number": 63, "name": "Attic light", "dpt": "1.001", "flags": "CRWTU", "addresses": [ADDRESS]}))

    def encode(self, *more):
        """Application data of the project as it is, with more data points."""
        project = load_json(self.project)
        project["dataPoints"] += more
        wanted = self.house.directory / "wanted.json"
        wanted.write_text(json.dumps(project), encoding="utf-8")
        run([BIN / "knxappdata", "encode", wanted, self.data])

    def download(self):
        """Tells the host that a download has ended."""
        self.house.host.signal(signal.SIGUSR1)

    def wait_for_restarts(self, number):
        wait_until(lambda: self.house.host.count(RUNS) == number + 1, 30, "the application program runs again")
        self.house.wait_until_running()

    def test_new_data_points_are_there_and_on_the_bus_while_every_process_goes_on(self):
        self.encode(NEW)
        self.add_group_object()
        self.assertIsNone(self.house.value("Attic.Light"))
        self.download()
        wait_until(lambda: len(self.changes.events()) == len(ALL_EVENTS), 30, "the change is announced and has ended")
        self.assertEqual(self.changes.events(), ALL_EVENTS)
        self.wait_for_restarts(1)

        self.assertIn("Attic.Light", self.house.dsctl("list", "Attic.Light")[1])
        self.knxd.write(ADDRESS, 1)
        wait_until(lambda: self.house.value("Attic.Light") == "1", 10, "the telegram is the value")
        telegrams = self.knxd.listen()
        self.house.set("Attic.Light", "0")
        wait_until(lambda: telegrams.to(ADDRESS) == [("Write", self.house.address, ADDRESS, b"\x00")], 10,
                   "the value is on the bus")

        self.assertEqual(run([BIN / "knxappdata", "decode", self.data])[1], self.project.read_text(encoding="utf-8"))
        self.assertFalse(self.project.with_suffix(".json.new").exists())
        self.assertTrue(self.house.device_stack.is_running() and self.house.host.is_running())
        self.assertEqual(self.house.host.count("connected by"), 1, "knxd has not had to connect again")
        self.assertEqual(self.house.host.count("ERROR"), 0, self.house.host.log())
        self.assertEqual(self.house.device_stack.count("ERROR"), 0, self.house.device_stack.log())

    def test_refused_data_leave_the_old_project_at_work(self):
        before = self.project.read_bytes()
        self.encode(NEW)
        good = self.data.read_bytes()
        refused = [
            (b"", "application data: byte 0: the data are empty"),
            (good[:-1], f"application data: byte 0: the data are cut short: {len(good) - 1} bytes of {len(good)}"),
            (good[:-1] + bytes([good[-1] ^ 1]), "application data: byte 12: the data are damaged"),
            (good, 'data point 2601 "Attic.Light": CO 63 is not one of the 62 group objects with communication'),
        ]
        for number, (data, cause) in enumerate(refused, 1):
            self.data.write_bytes(data)
            self.download()
            self.wait_for_restarts(number)
            self.assertEqual(self.house.host.count("ERROR"), number, self.house.host.log())
            self.assertEqual(self.house.host.count("Download refused, "), number)
            self.assertEqual(self.house.host.count(cause), 1, self.house.host.log())
            self.assertEqual(self.project.read_bytes(), before)
        self.assertEqual(set(self.changes.events()), {"configurationLoaded"})
        self.house.set("Door.Count", "7")
        self.knxd.write("5/0/2", b"\x00\x08")
        wait_until(lambda: self.house.value("Door.Count") == "8", 10, "the old data points are at work")

    def test_the_project_that_is_there_is_no_change(self):
        self.encode()
        before = self.project.stat().st_ino
        self.download()
        self.wait_for_restarts(1)
        self.house.host.wait_for_line("The download brings the project that")
        self.assertEqual(self.project.stat().st_ino, before)
        self.assertEqual(self.changes.events(), ["configurationLoaded"])


class DownloadByBus(Download):
    """The same over the bus: tables, memory and application data by telegrams, through knxd."""

    def setUp(self):
        super().setUp()
        self.restarts = 0

    def download(self):
        host = load_json(self.house.configuration / "knxstackd.json")
        content = tables(host["groupObjects"], {o["number"]: self.bits(o) for o in host["groupObjects"]})
        content[PROGRAM] = bytes(97)
        content[DATA] = self.data.read_bytes() if self.data.exists() else b""
        content = {number: octets for number, octets in content.items() if octets}
        self.restarts += 1
        # Not before all is at hand: the device ends a connection on which nothing is said for 6 s.
        connection = Connection(self.house.directory / "knxd.sock", self.house.address)
        download(connection, content)
        connection.close()

    def bits(self, group_object):
        """Size of its values in bits, as dsctl knows the type."""
        if "size" in group_object:
            return group_object["size"]
        types = run([BIN / "dsctl", "--json", "types", group_object["dpt"]])[1]
        return json.loads(types.splitlines()[0])["size"]


if __name__ == "__main__":
    unittest.main()
