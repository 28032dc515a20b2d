"""A host whose bus is at the other end of a network, and what networks do: they break, for a moment or for long.

Two houses in two network namespaces: the host of one is a tunnelling client of the host of the other, or both are in
one multicast group.
"""

import network

network.enter()

import datetime  # noqa: E402
import time  # noqa: E402
import unittest  # noqa: E402

import tunnel  # noqa: E402
from house import House, KnxdInterface, Monitor, free_port  # noqa: E402
from knxd_group_socket import parse_address  # noqa: E402
from network import Cable, Namespace  # noqa: E402
from processes import wait_until  # noqa: E402

SERVER, CLIENT = "192.0.2.1", "192.0.2.2"  # TEST-NET-1, in no network
FAR_SERVER, FAR_ROUTER = "198.51.100.1", "198.51.100.2"  # TEST-NET-2
ELSEWHERE = "192.0.2.9"
NAME, ADDRESS = "Door.Count", "5/0/2"      # a 16 bit number, sent to where it is received

# The longest pause between two tries to connect, the wait for an answer to the last one that was lost, and what a busy
# machine needs.
BACK_OFF_SECONDS = 60 + 10 + 20


def renumber(host, line):
    """The house's addresses in another line of the bus than the example's."""
    for where, key in [(host["device"], "individualAddress"), *((host["server"]["tunnels"], i)
                                                                for i in range(len(host["server"]["tunnels"])))]:
        where[key] = where[key].replace("1.1.", f"1.{line}.")


class Outages(unittest.TestCase):
    VIA = ("tunnel", "interface")  # by which each side hears the other

    def setUp(self):
        self.inside, self.outside = Namespace(), Namespace()
        self.addCleanup(self.inside.close)
        self.addCleanup(self.outside.close)
        self.cable = Cable("knx0", self.inside, f"{CLIENT}/24", self.outside, f"{SERVER}/24")
        self.number = 0

    def start_server(self, **server):
        def configure(host):
            renumber(host, 2)
            host["server"]["address"] = "0.0.0.0"
            host["server"].update(server)
        self.server = self.enterContext(House(configure=configure, network=self.outside))
        self.on_bus = Monitor(self.server)

    @staticmethod
    def configure_client(port, **interface):
        def configure(host):
            host["interface"] = {"host": SERVER, "port": port, **interface}
        return configure

    def start_client(self, **interface):
        configure = self.configure_client(self.server.port, **interface)
        self.client = self.enterContext(House(configure=configure, network=self.inside))
        self.heard = Monitor(self.client)
        self.wait_until_connected(20)

    def next_number(self):
        self.number += 1
        return self.number

    def set(self, house):
        """Sets a number that was not set before; the number."""
        number = self.next_number()
        house.set(NAME, number)
        return number

    def interface(self):
        """What the client's host says of its interface."""
        return self.client.knxstackctl("links")["interface"]

    def wait_until_connected(self, seconds):
        wait_until(lambda: self.interface()["connected"], seconds, "a tunnel")

    def sent(self):
        """Numbers of the client that reached the bus."""
        return self.on_bus.numbers(ADDRESS, self.VIA[0])

    def received(self):
        """Numbers of the bus that reached the client."""
        return self.heard.numbers(ADDRESS, self.VIA[1])

    def pass_both_ways(self):
        there, back = self.set(self.client), self.set(self.server)
        wait_until(lambda: there in self.sent(), 20, f"the number {there} is on the bus")
        wait_until(lambda: back in self.received(), 20, f"the number {back} has come from the bus")

    def seconds_until_heard(self, limit):
        """How long until a telegram of the bus comes through, one being sent each second."""
        start = time.monotonic()
        sent = []

        def comes():
            if time.monotonic() - start >= len(sent):
                sent.append(self.set(self.server))
            return set(sent) & set(self.received())
        wait_until(comes, limit, "a telegram of the bus comes through again")
        return time.monotonic() - start

    def outage(self, seconds, begin, end, client_sets=True):
        """Numbers set while nothing passes: of the client."""
        begin()
        over = time.monotonic() + seconds
        of_client = [self.set(self.client)] if client_sets else []
        self.set(self.server)
        if seconds > 10:
            time.sleep(seconds / 2)
            of_client += [self.set(self.client)] if client_sets else []
            self.set(self.server)
        time.sleep(max(0, over - time.monotonic()))
        end()
        self.measure(f"after {seconds} s", self.seconds_until_heard(BACK_OFF_SECONDS))
        return of_client

    def measure(self, what, seconds):
        print(f"{self.id()}: {what}: passes again after {seconds:.1f} s", flush=True)

    def comes_through(self, seconds, begin, end, client_sets=True, waits=True):
        """`waits`: what the client sends meanwhile is sent when it is connected again."""
        self.pass_both_ways()
        before = len(self.sent())
        of_client = self.outage(seconds, begin, end, client_sets)
        self.pass_both_ways()
        time.sleep(2)
        # Each number that was set is one telegram, and they come in order: also those that had to wait.
        sent = self.sent()[before:]
        if seconds < 2 and self.interface()["noAck"]:
            # The server was back before the telegram had been repeated in vain: it may have taken it.
            self.client.host.wait_for_line("not acknowledged by the interface", 1)
            del of_client[0]
        self.assertEqual(sent, [*(of_client if waits else []), self.number - 1])
        self.assertEqual(self.received(), sorted(set(self.received())))
        for house in (self.client, self.server):
            self.assertEqual(house.host.count("ERROR"), 0, house.host.log())


class Tunnel(Outages):
    PROTOCOL = "udp"

    def setUp(self):
        super().setUp()
        self.start_server()
        self.start_client(protocol=self.PROTOCOL)

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


class Moved(Outages):
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


class Translated(Outages):
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


class ReadsOnInit(Outages):
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


class TunnelOverTcp(Tunnel):
    PROTOCOL = "tcp"


class Routing(Outages):
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
