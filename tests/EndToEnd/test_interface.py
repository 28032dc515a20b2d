"""The host as a tunnelling client of a real KNXnet/IP interface: a knxd with its server on.

knxd serves KNXnet/IP only on a network interface with an address and a default route, so the whole test runs in
a network namespace of its own.
"""

import os
import sys
import time
import unittest

if os.environ.get("KNX_TEST_NAMESPACE") != "1":
    map_root = [] if os.geteuid() == 0 else ["--map-root-user"]
    os.execvpe("unshare", ["unshare", *map_root, "--net", sys.executable, *sys.argv],
               dict(os.environ, KNX_TEST_NAMESPACE="1"))

from house import House, KnxdInterface, group_addresses, sending_addresses  # noqa: E402
from processes import run, wait_until  # noqa: E402
from tunnel import BUS_CONNECTION, FEATURE_INFO, FEATURE_RESPONSE, INFO_SERVICE_ENABLE, Tunnel  # noqa: E402

ADDRESS = "192.0.2.1"  # TEST-NET-1, in no network


def set_up_network():
    for command in ("link set lo up", "link add knx0 type veth peer name knx1", "link set knx0 up",
                    "link set knx1 up", f"addr add {ADDRESS}/24 dev knx0",
                    "route add default via 192.0.2.254 dev knx0"):
        run(["ip", *command.split()])


class TunnellingClient(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        set_up_network()

    def test_telegrams_pass_both_ways_and_survive_a_killed_interface(self):
        house = self.enterContext(House(interface=(ADDRESS, 3671)))
        row = next(r for r in group_addresses() if r["dpt"].split(".")[0] == "7")
        address, name = row["address"], row["data point"]
        interface = KnxdInterface(house)
        interface.start()  # after the host: it waits for its interface

        written = []

        def arrives(number):
            written.append(number)
            interface.write(address, number.to_bytes(2, "big"))
            return house.value(name) == str(number)
        wait_until(lambda: arrives(300), 70, "a telegram of the bus reaches the data point")

        telegrams = interface.listen()
        house.set(name, "301")
        wait_until(lambda: telegrams.to(address), 5, "the set value is on the bus")
        time.sleep(1)
        self.assertEqual(telegrams.to(address), [("Write", house.address, address, (301).to_bytes(2, "big"))])

        interface.process.kill()
        house.set(name, "302")
        time.sleep(2)
        house.host.freeze()  # it must not find its interface before knxtool listens there
        interface.start()
        telegrams = interface.listen()
        house.host.thaw()
        wait_until(lambda: telegrams.to(address), 70, "the value set meanwhile is on the bus")
        wait_until(lambda: arrives(303), 10, "a telegram of the bus reaches the data point again")
        time.sleep(1)
        # What knxtool sends, from an address of its knxd and each once: nothing comes back. And what the host sends.
        own = [t for t in telegrams.to(address) if t[1] in KnxdInterface.CLIENTS]
        self.assertEqual([(t[0], t[3]) for t in own], [("Write", (303).to_bytes(2, "big"))] * written.count(303))
        self.assertEqual([t for t in telegrams.to(address) if t not in own],
                         [("Write", house.address, address, (302).to_bytes(2, "big"))])
        self.assertTrue(house.host.is_running())

    def test_a_client_of_the_server_that_wishes_so_is_told_whether_the_bus_can_be_reached(self):
        house = self.enterContext(House(interface=(ADDRESS, 3671)))
        client = Tunnel(house.port)
        self.addCleanup(client.close)
        client.ask(BUS_CONNECTION)
        client.set(INFO_SERVICE_ENABLE, b"\1")
        expected = [(FEATURE_RESPONSE, bytes([BUS_CONNECTION, 0, 0])),
                    (FEATURE_RESPONSE, bytes([INFO_SERVICE_ENABLE, 0, 1]))]
        interface = KnxdInterface(house)
        for is_reachable in (1, 0):
            if is_reachable:
                interface.start()
            else:
                interface.process.kill()
                house.set(next(iter(sending_addresses())), "1")  # of which the loss is noticed
            expected.append((FEATURE_INFO, bytes([BUS_CONNECTION, 0, is_reachable])))
            wait_until(lambda: len(client.features) >= len(expected), 130, f"the bus: {is_reachable}")
            self.assertEqual(client.features, expected)


if __name__ == "__main__":
    unittest.main()
