"""Hosts that start before their network is there, as on a device that has just been switched on."""

import network

network.enter()

import socket  # noqa: E402
import time  # noqa: E402
import unittest  # noqa: E402

import tunnel  # noqa: E402
from house import House, Monitor  # noqa: E402
from processes import wait_until  # noqa: E402
from two_houses import BACK_OFF_SECONDS, CLIENT, SERVER, TwoHouses, renumber  # noqa: E402

GROUP = "224.0.23.12:3671"
DEVICE = 0x11FA  # 1.1.250, the client
BUS_FAULT = 6, 69  # property of the KNXnet/IP parameter object: 1 while the bus cannot be reached


def card_address(interface):
    """MAC address, in the network of the calling thread."""
    with socket.socket(socket.AF_PACKET, socket.SOCK_RAW) as packets:
        packets.bind((interface, 0))
        return packets.getsockname()[4]


class LateNetwork(TwoHouses):
    """No cable is plugged in before the hosts have started."""

    def setUp(self):
        super().setUp()
        self.cable.pull_out()

    def waits(self, house, place):
        """The host has said once what it waits for, with file and place, and runs."""
        text = house.host.wait_for_line(f"{house.configuration / 'knxstackd.json'}: {place}: no network interface")
        self.assertIn("WARN", text)
        self.assertEqual(house.host.count(" yet"), 1, house.host.log())

    def has_joined_once(self, house):
        text = house.host.wait_for_line("joined the multicast group", 20)
        self.assertIn("INFO", text)
        self.assertIn(GROUP, text)
        self.assertNotIn("again", text)
        time.sleep(1)
        self.assertEqual(house.host.count("joined the multicast group"), 1, house.host.log())
        self.assertEqual(house.host.count("WARN"), 1, house.host.log())


class Routing(LateNetwork):
    VIA = ("routing", "routing")
    PLACE = "/routing/interface"

    def routing(self, address):
        return {"interface": address}

    def fault(self, address):
        return f"no network interface has the address {address}"

    def start_member(self, line, where, address):
        def configure(host):
            renumber(host, line)
            host["routing"] = self.routing(address)
            host["groupObjects"][0]["flags"] += "I"
        house = self.enterContext(House(configure=configure, network=where))
        self.waits(house, self.PLACE)
        self.assertEqual(house.knxstackctl("links")["routing"]["fault"], self.fault(address))
        return house, Monitor(house)

    def test_a_group_is_joined_on_an_interface_that_comes_after_the_start(self):
        self.server, self.on_bus = self.start_member(2, self.outside, SERVER)
        self.client, self.heard = self.start_member(1, self.inside, CLIENT)
        time.sleep(4)  # an answer would have been given up by now
        for house in (self.server, self.client):
            self.assertEqual(house.host.count("values to be read at the start"), 0, "nobody is there to answer")
        self.set(self.client)
        wait_until(lambda: self.client.knxstackctl("links")["routing"]["dropped"] > 0, 20, "a telegram is lost")
        self.assertEqual(self.client.knxstackctl("links")["routing"]["sent"], 0)
        tool = self.inside.call(lambda: tunnel.Tunnel(self.client.port))
        self.addCleanup(tool.close)
        self.assertEqual(tool.read_property(DEVICE, *BUS_FAULT), b"\1")
        self.cable.plug_in()
        for house in (self.server, self.client):
            self.has_joined_once(house)
            self.assertEqual(house.knxstackctl("links")["routing"]["fault"], "")
            house.host.wait_for_line("of 1 values to be read at the start", 20)
        self.assertEqual(tool.read_property(DEVICE, *BUS_FAULT), b"\0")
        self.pass_both_ways()


class RoutingByAnyInterface(Routing):
    PLACE = "/routing"

    def routing(self, address):
        return {}

    def fault(self, address):
        return "no network interface leads there"


class Search(LateNetwork):
    """The server answers searches in a multicast group."""

    def test_searches_are_answered_on_an_interface_that_comes_after_the_start(self):
        self.start_server(multicastGroup="224.0.23.12", multicastInterface=SERVER)
        self.waits(self.server, "/server/multicastInterface")
        links = self.server.knxstackctl("links")["server"]
        self.assertEqual((links["fault"], links["group"], links["groupFault"]),
                         ("", GROUP, f"no network interface has the address {SERVER}"))
        self.cable.plug_in()
        self.has_joined_once(self.server)
        answer = wait_until(self.search, 20, "an answer to a search")
        self.assertEqual(answer[2:4], tunnel.SEARCH_RESPONSE.to_bytes(2, "big"))
        # Header 6, endpoint 8, then the device: the address of the card is behind 18 octets of it.
        self.assertEqual(answer[32:38], self.outside.call(lambda: card_address("knx0")))
        self.assertEqual(self.server.knxstackctl("links")["server"]["groupFault"], "")


class Server(LateNetwork):
    """The server listens at one address alone."""

    def test_clients_connect_to_an_address_that_comes_after_the_start(self):
        self.start_server(address=SERVER)
        self.waits(self.server, "/server/address")
        self.assertEqual(self.server.knxstackctl("links")["server"]["fault"],
                         f"no network interface has the address {SERVER}")
        self.cable.plug_in()
        text = self.server.host.wait_for_line(f"the address {SERVER} of the KNXnet/IP server is there")
        self.assertIn("INFO", text)
        self.assertEqual(self.server.knxstackctl("links")["server"]["fault"], "")
        for protocol in ("udp", "tcp"):
            with self.subTest(protocol):
                self.start_client(protocol=protocol)
                self.pass_both_ways()


class Tunnel(LateNetwork):
    """The tunnel has to begin at one address."""

    PROTOCOL = "udp"

    def test_a_try_that_began_without_its_address_is_no_fault_of_the_interface(self):
        self.begin_without_an_address()
        self.cable.plug_in()  # while the first try waits 10 s for its answer
        self.wait_until_connected(BACK_OFF_SECONDS)
        self.assertEqual(self.client.host.count("WARN"), 1, self.client.host.log())

    def begin_without_an_address(self):
        self.start_server()
        configure = self.configure_client(self.server.port, localAddress=CLIENT, protocol=self.PROTOCOL)
        self.client = self.enterContext(House(configure=configure, network=self.inside))
        self.heard = Monitor(self.client)
        self.waits(self.client, "/interface/localAddress")

    def test_a_tunnel_begins_at_an_address_that_comes_after_the_start(self):
        self.begin_without_an_address()
        wait_until(lambda: self.interface()["fault"], 20, "the end of the first try")
        self.assertEqual(self.interface()["fault"], f"no network interface has the address {CLIENT}")
        waiting = self.set(self.client)
        self.cable.plug_in()
        self.wait_until_connected(BACK_OFF_SECONDS)
        self.assertEqual(self.interface()["fault"], "")
        wait_until(lambda: self.sent() == [waiting], 20, "what waited is on the bus")
        self.pass_both_ways()
        self.assertEqual(self.client.host.count("WARN"), 1, self.client.host.log())


class TunnelOverTcp(Tunnel):
    PROTOCOL = "tcp"


if __name__ == "__main__":
    unittest.main()
