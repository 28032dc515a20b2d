"""A host whose bus is at the other end of a network, and what networks do: they break, for a moment or for long."""

import network

network.enter()

import datetime  # noqa: E402
import time  # noqa: E402
import unittest  # noqa: E402

from house import House, Monitor  # noqa: E402
from processes import wait_until  # noqa: E402
from two_houses import BACK_OFF_SECONDS, CLIENT, SERVER, TwoHouses, renumber  # noqa: E402


class Tunnel(TwoHouses):
    INTERFACE = {}

    def setUp(self):
        super().setUp()
        self.start_server()
        self.start_client(**self.INTERFACE)

    def test_an_interface_down_for_1_s(self):
        self.comes_through(1, self.cable.down, self.cable.up)

    def test_an_interface_down_for_30_s(self):
        self.comes_through(30, self.cable.down, self.cable.up)

    def test_an_interface_without_carrier_for_30_s_while_the_client_is_silent(self):
        self.comes_through(30, lambda: self.cable.down(1), lambda: self.cable.up(1), client_sets=False)

    def test_an_interface_that_is_gone_for_30_s(self):
        self.comes_through(30, self.cable.pull_out, self.cable.plug_in)

    def test_an_interface_down_for_10_min(self):
        self.comes_through(600, self.cable.down, self.cable.up)


class ReadsOnInit(TwoHouses):
    """Some of the client's objects are read when it starts."""

    def setUp(self):
        super().setUp()
        self.start_server()

    def start_client(self, count):
        def configure(host):
            host["interface"] = {"host": SERVER, "port": self.server.port}
            for group_object in host["groupObjects"][:count]:
                group_object["flags"] += "I"
        self.client = self.enterContext(House(configure=configure, network=self.inside))
        self.heard = Monitor(self.client)

    def reads(self):
        """Time and group address of each read request of the client that was on the bus."""
        return [(datetime.datetime.fromisoformat(t["time"]).timestamp(), t["destination"])
                for t in self.on_bus.all() if t["via"].startswith("tunnel") and t["service"] == "GroupValue_Read"]

    def result(self):
        return self.client.host.count("values to be read at the start")

    def break_off(self):
        before = self.interface()["connections"]
        self.cable.down()
        self.set(self.client)  # so that the end of the tunnel is noticed at once
        wait_until(lambda: not self.interface()["connected"], 20, "the tunnel has ended")
        self.cable.up()
        wait_until(lambda: self.interface()["connections"] > before, BACK_OFF_SECONDS, "a new tunnel")

    def test_each_value_is_asked_for_once_however_often_the_tunnel_breaks(self):
        self.start_client(16)
        wait_until(lambda: len(self.reads()) >= 5, 60, "the first requests")
        self.break_off()  # in the middle of them
        wait_until(self.result, 90, "the end of the requests")
        asked = self.reads()
        for _ in range(3):
            self.break_off()
        self.pass_both_ways()
        time.sleep(3)
        self.assertEqual(self.reads(), asked, "after the start nothing is asked for any more")
        addresses = [address for _, address in asked]
        self.assertEqual(len(set(addresses)), 16)
        self.assertEqual(len(addresses), 16)
        # Nobody answers, so there are two in the two seconds that an answer may take. Those that were asked while the
        # tunnel broke come with the first ones after it.
        times = [at for at, _ in asked]
        self.assertLessEqual(max(sum(at <= other < at + 1 for other in times) for at in times), 5, times)


class Search(TwoHouses):
    """The server answers searches in a multicast group."""

    def setUp(self):
        super().setUp()
        self.start_server(multicastGroup="224.0.23.12", multicastInterface=SERVER)

    def test_a_search_is_answered_when_the_interface_was_gone(self):
        wait_until(self.search, 20, "an answer")
        self.cable.pull_out()
        self.server.host.wait_for_line("cut off from the multicast group")
        self.cable.plug_in()
        self.server.host.wait_for_line("joined the multicast group 224.0.23.12:3671 again")
        wait_until(self.search, 20, "an answer after the interface was gone")


class TunnelOverTcp(Tunnel):
    INTERFACE = {"protocol": "tcp"}


class TunnelFromAnAddress(Tunnel):
    INTERFACE = {"localAddress": CLIENT}


class Routing(TwoHouses):
    """Nothing is acknowledged in a group, so what is sent meanwhile is lost."""

    VIA = ("routing", "routing")

    def setUp(self):
        super().setUp()
        self.server, self.on_bus = self.start_member(2, self.outside, SERVER)
        self.client, self.heard = self.start_member(1, self.inside, CLIENT)

    def start_member(self, line, where, address):
        def configure(host):
            renumber(host, line)
            host["routing"] = self.routing(address)
        house = self.enterContext(House(configure=configure, network=where))
        return house, Monitor(house)

    def routing(self, address):
        return {"interface": address}

    def test_a_group_over_an_interface_down_for_5_s(self):
        self.comes_through(5, self.cable.down, self.cable.up, waits=False)

    def test_a_group_over_an_interface_that_is_gone_for_5_s(self):
        self.comes_through(5, self.cable.pull_out, self.cable.plug_in, waits=False)


class RoutingByAnyInterface(Routing):
    """The system chooses the interface by its routes."""

    def routing(self, address):
        return {}


if __name__ == "__main__":
    unittest.main()
