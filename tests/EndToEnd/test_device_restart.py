"""A download has ended: the host loads the device anew and tells the application program, over living links."""

import json
import signal
import unittest

from house import House, Knxd, load_json
from processes import wait_until

RUNS = "the application program is configured and running"


class DeviceRestart(unittest.TestCase):
    def setUp(self):
        self.house = self.enterContext(House())
        self.knxd = Knxd(self.house)
        self.house.host.wait_for_line(RUNS)

    def download(self, change):
        """Gives the host a configuration that `change` has been at."""
        path = self.house.configuration / "knxstackd.json"
        configuration = load_json(path)
        change(configuration)
        new = path.with_suffix(".new")
        new.write_text(json.dumps(configuration), encoding="utf-8")
        new.replace(path)
        self.house.host.signal(signal.SIGUSR1)

    def move(self, configuration):
        """Door count from 5/0/2 to 5/0/22."""
        moved = next(o for o in configuration["groupObjects"] if o["number"] == 33)
        self.assertEqual(moved["addresses"], ["5/0/2"])
        moved["addresses"] = ["5/0/22"]

    def test_a_new_address_counts_both_ways_and_no_tunnel_ends(self):
        changes = self.house.watch("Door.Count", "Garage.Balance")
        telegrams = self.knxd.listen()
        self.download(self.move)
        self.house.host.wait_for_line("the new device is in force")
        # The application program starts anew meanwhile.
        self.knxd.write("5/0/2", b"\x00\x01")
        self.knxd.write("5/0/22", b"\x00\x2a")
        self.knxd.write("5/0/3", b"\x00\x03")
        wait_until(lambda: self.house.host.count(RUNS) == 2, 20, "the application program runs again")
        wait_until(lambda: len(changes.all()) >= 2, 10, "both telegrams have arrived")
        self.assertEqual([change[:2] for change in changes.all()], [("Door.Count", "42"), ("Garage.Balance", "3")])

        self.house.wait_until_running()
        self.house.set("Door.Count", "7")
        wait_until(lambda: ("Write", self.house.address, "5/0/22", b"\x00\x07") in telegrams.all(), 10,
                   "a telegram to the new address")
        self.assertEqual([t for t in telegrams.to("5/0/2") if t[1] == self.house.address], [])
        self.assertEqual(self.house.host.count("connected by"), 1, "knxd has not had to connect again")
        self.assertEqual(self.house.host.count("ERROR"), 0, self.house.host.log())

    def test_a_refused_device_leaves_the_former_one_at_work(self):
        def spoil(configuration):
            self.move(configuration)
            configuration["applicationProgram"]["data"] = "missing.bin"
        changes = self.house.watch("Door.Count")
        self.download(spoil)
        self.house.host.wait_for_line("the former configuration stays in force")
        self.assertEqual(self.house.host.count("ERROR"), 1, self.house.host.log())
        self.knxd.write("5/0/2", b"\x00\x05")
        wait_until(changes.all, 10, "the telegram has arrived")
        self.assertEqual([change[:2] for change in changes.all()], [("Door.Count", "5")])
        self.assertEqual(self.house.host.count(RUNS), 1)


if __name__ == "__main__":
    unittest.main()
