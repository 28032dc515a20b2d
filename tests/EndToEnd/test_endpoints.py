"""Hosts whose KNX/IP partners are not where they were: a server that has moved, a router that translates addresses, a client
at the address and port of another one that is gone."""

import network

network.enter()

import socket  # noqa: E402
import time  # noqa: E402
import unittest  # noqa: E402

import tunnel  # noqa: E402
from house import House, KnxdInterface, free_port  # noqa: E402
from knxd_group_socket import parse_address  # noqa: E402
from network import Cable, Namespace  # noqa: E402
from processes import wait_until  # noqa: E402
from two_houses import ADDRESS, BACK_OFF_SECONDS, CLIENT, NAME, SERVER, TwoHouses  # noqa: E402

FAR_SERVER, FAR_ROUTER = "198.51.100.1", "198.51.100.2"  # TEST-NET-2
DEVICE = 0x12FA  # 1.2.250
ELSEWHERE, NEIGHBOUR = "192.0.2.9", "192.0.2.10"


class Moved(TwoHouses):
    """The interface is known by its name, and gets another address."""

    def setUp(self):
        super().setUp()
        network.set_hosts(interface=SERVER)
        self.start_server()
        self.start_client(host="interface")

    def move(self):
        self.outside.ip(f"addr del {SERVER}/24 dev knx0")
        self.outside.ip(f"addr add {ELSEWHERE}/24 dev knx0")

    def test_a_server_that_has_moved_is_found_by_its_name(self):
        def begin():
            self.move()
            network.set_hosts(interface=ELSEWHERE)
        self.comes_through(5, begin, lambda: None)
        self.client.host.wait_for_line(f"has moved to {ELSEWHERE}")

    def test_a_server_that_has_moved_long_before_its_name_is_found(self):
        self.comes_through(30, self.move, lambda: network.set_hosts(interface=ELSEWHERE))


class OwnAddress(TwoHouses):
    """What a tool reads of the device's place in the network (KNXnet/IP parameter object, object 6)."""

    ADDRESS, SUBNET_MASK, GATEWAY = 57, 58, 59

    def setUp(self):
        super().setUp()
        self.start_server()
        # On the device's own machine, so that the tunnel stays whatever the network does.
        self.tool = self.outside.call(lambda: tunnel.Tunnel(self.server.port))
        self.addCleanup(self.tool.close)

    def place(self):
        return [socket.inet_ntoa(self.tool.read_property(DEVICE, 6, p))
                for p in (self.ADDRESS, self.SUBNET_MASK, self.GATEWAY)]

    def test_a_tool_reads_the_address_that_the_machine_has_now(self):
        self.outside.ip(f"route add default via {CLIENT}")
        wait_until(lambda: self.place() == [SERVER, "255.255.255.0", CLIENT], 20, "the place at the start")
        self.outside.ip(f"addr del {SERVER}/24 dev knx0")
        self.outside.ip(f"addr add {ELSEWHERE}/28 dev knx0")
        self.outside.ip(f"route add default via {NEIGHBOUR}")
        wait_until(lambda: self.place() == [ELSEWHERE, "255.255.255.240", NEIGHBOUR], 20, "the new place")


class Translated(TwoHouses):
    """The client's network and the server's have a router between them that translates addresses: neither knows the
    other's."""

    def setUp(self):
        super().setUp()
        # The cable of the client now ends at the router.
        self.router, self.outside = self.outside, Namespace()
        self.addCleanup(self.outside.close)
        Cable("knx0", self.outside, f"{FAR_SERVER}/24", self.router, f"{FAR_ROUTER}/24", "knx1")

    def translate(self, port):
        self.translator = network.Translator(self.router, (SERVER, port), FAR_ROUTER, (FAR_SERVER, port))
        self.addCleanup(self.translator.close)

    def start_both(self):
        self.start_server()
        self.translate(self.server.port)
        self.start_client(nat=True)

    def test_a_tunnel_goes_on_when_a_client_that_sends_gets_another_port(self):
        self.start_both()
        self.pass_both_ways()
        self.translator.forget()
        self.pass_both_ways()
        self.assertEqual(self.interface()["connections"], 1)
        self.assertEqual(self.sent(), [1, 3])
        self.assertEqual(self.received(), [2, 4])

    def test_a_silent_client_that_has_lost_its_port_connects_again(self):
        self.start_both()
        self.comes_through(5, self.translator.forget, lambda: None, client_sets=False)
        self.assertEqual(self.interface()["connections"], 2)

    def test_an_interface_of_others_behind_a_translation(self):
        self.translate(3671)
        self.outside.ip(f"route add default via {FAR_ROUTER}")
        self.client = self.enterContext(House(interface=None, configure=self.configure_client(3671, nat=True),
                                              network=self.inside))
        interface = KnxdInterface(self.client, self.outside)
        interface.start()
        self.wait_until_connected(BACK_OFF_SECONDS)
        telegrams = interface.listen()

        def sent():
            return [int.from_bytes(t[3], "big") for t in telegrams.to(ADDRESS)]
        first = self.set(self.client)
        wait_until(lambda: first in sent(), 20, "the set value")
        self.translator.forget()
        second = self.set(self.client)
        # knxd takes it, but acknowledges it where the client is not any more: nobody who hears nothing at all can tell
        # that from a dead interface, so it is sent again.
        wait_until(lambda: sent().count(second) == 2, BACK_OFF_SECONDS, "the value after the port has changed")
        third = self.set(self.client)
        wait_until(lambda: third in sent(), 20, "the value after that")
        wait_until(lambda: self.arrives_from(interface), BACK_OFF_SECONDS, "a telegram of the bus")
        self.assertEqual([n for n in sent() if n <= third], [first, second, second, third])

    def arrives_from(self, interface):
        number = self.next_number()
        interface.write(ADDRESS, number.to_bytes(2, "big"))
        time.sleep(0.2)
        return self.client.value(NAME) == str(number)


class ReusedAddress(unittest.TestCase):
    """A client that is gone without a word, and another one at its address and port."""

    def setUp(self):
        self.house = self.enterContext(House())
        self.port = free_port()

    def connect(self):
        return tunnel.Tunnel(self.house.port, self.port)

    @staticmethod
    def numbers(client, code):
        """What came in frames with the message code."""
        return [int.from_bytes(cemi[-2:], "big") for cemi in list(client.received)
                if cemi[0] == code and cemi[6:8] == parse_address(ADDRESS).to_bytes(2, "big")]

    def test_the_next_client_gets_nothing_of_the_former_one(self):
        former = self.connect()
        former.vanish(tunnel.group_write(parse_address(ADDRESS), b"\0\x0b"))
        client = self.connect()
        self.assertNotEqual(client.channel, former.channel)
        wait_until(lambda: self.house.value(NAME) == "11", 20, "the former client's last telegram")
        # What the server still has for the former client is not acknowledged by this one.
        self.house.host.wait_for_line("a telegram was not acknowledged", 20)
        client.send(tunnel.group_write(parse_address(ADDRESS), b"\0\x0c"))
        wait_until(lambda: self.house.value(NAME) == "12", 20, "the telegram of this client")
        self.house.set(NAME, 13)
        wait_until(lambda: 13 in self.numbers(client, tunnel.L_DATA_IND), 20, "a telegram to this client")
        client.heartbeat()
        self.assertFalse(client.disconnected)
        self.assertEqual(self.numbers(client, tunnel.L_DATA_CON), [12])
        self.assertEqual(self.numbers(client, tunnel.L_DATA_IND)[-1:], [13])
        client.close()

    def test_a_client_that_comes_back_time_and_again_always_gets_a_tunnel(self):
        """Of which the house has four, and an unused one is kept for 120 s."""
        for _ in range(10):
            self.connect().vanish()
        client = self.connect()
        self.house.set(NAME, 14)
        wait_until(lambda: 14 in self.numbers(client, tunnel.L_DATA_IND), 20, "a telegram to this client")
        client.heartbeat()
        # No tunnel that it has no use for is left over in the end.
        wait_until(lambda: self.clients() == 1, 20, "the tunnels of the former clients are free")
        self.assertFalse(client.disconnected)
        client.close()

    def clients(self):
        return sum(t["client"] != "" for t in self.house.knxstackctl("links")["server"]["tunnels"])


if __name__ == "__main__":
    unittest.main()
