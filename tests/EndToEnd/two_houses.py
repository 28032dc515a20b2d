"""Two houses in two network namespaces, with a cable between them: the host of one is the KNX/IP interface of the other,
or both are in one multicast group. For tests that have called network.enter()."""

import socket
import time
import unittest

import tunnel
from house import House, Monitor
from network import Cable, Namespace
from processes import wait_until

SERVER, CLIENT = "192.0.2.1", "192.0.2.2"  # TEST-NET-1, in no network
NAME, ADDRESS = "Door.Count", "5/0/2"  # a 16 bit number, sent to where it is received

# The longest pause between two tries to connect, the wait for an answer to the last one that was lost, and what a busy
# machine needs.
BACK_OFF_SECONDS = 60 + 10 + 20


def renumber(host, line):
    """The house's addresses in another line of the bus than the example's."""
    for where, key in [(host["device"], "individualAddress"), *((host["server"]["tunnels"], i)
                                                                for i in range(len(host["server"]["tunnels"])))]:
        where[key] = where[key].replace("1.1.", f"1.{line}.")


class TwoHouses(unittest.TestCase):
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

    def search(self):
        """The server's answer to a search of the client's network; None without one."""
        def ask():
            with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as udp:
                udp.bind((CLIENT, 0))
                udp.settimeout(1)
                udp.sendto(tunnel.frame(tunnel.SEARCH_REQUEST, tunnel.NAT_HPAI), ("224.0.23.12", 3671))
                try:
                    answer = udp.recv(512)
                except TimeoutError:
                    return None
                return answer if answer[2:4] == tunnel.SEARCH_RESPONSE.to_bytes(2, "big") else None
        return self.inside.call(ask)

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
