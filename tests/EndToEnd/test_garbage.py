"""A million datagrams that mean nothing."""

import random
import socket
import unittest

from house import House, group_addresses
from knxd_group_socket import parse_address
from processes import wait_until
from tunnel import Tunnel, group_write

DATAGRAMS = 1_000_000
BURST = 200  # fits into a socket's receive buffer


def garbage(generator):
    """Random octets, half of them behind a header that looks right."""
    body = generator.randbytes(generator.randrange(0, 40))
    if generator.random() < 0.5:
        return body
    service = generator.choice((0x0201, 0x0203, 0x0205, 0x0207, 0x0209, 0x0420, 0x0421, 0x0530, 0x0FFF))
    return b"\x06\x10" + service.to_bytes(2, "big") + (6 + len(body)).to_bytes(2, "big") + body


def receive_queue(port):
    """Octets that wait in the receive buffer of the UDP socket at the port."""
    with open("/proc/net/udp", encoding="ascii") as sockets:
        for line in list(sockets)[1:]:
            fields = line.split()
            if int(fields[1].split(":")[1], 16) == port:
                return int(fields[4].split(":")[1], 16)
    raise AssertionError(f"no socket at port {port}")


class Garbage(unittest.TestCase):
    def test_a_million_garbage_datagrams_cost_neither_memory_nor_the_log_nor_a_tunnel(self):
        # AddressSanitizer keeps freed memory aside, 256 MiB of it unless told: more than a leak may cost here.
        house = self.enterContext(House(host_environment={"ASAN_OPTIONS": "quarantine_size_mb=1"}))
        row = next(r for r in group_addresses() if r["dpt"].split(".")[0] == "7")
        address = parse_address(row["address"])
        tunnel = Tunnel(house.port)
        generator = random.Random(1)
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sender:
            sender.connect(("127.0.0.1", house.port))
            samples = [garbage(generator) for _ in range(20_000)]

            def send(count):
                for number in range(count):
                    sender.send(samples[number % len(samples)])
                    if number % BURST == BURST - 1:
                        while receive_queue(house.port):
                            pass

            lines = len(house.host.texts())
            send(50_000)  # what is allocated once is allocated now
            tunnel.send(group_write(address, b"\0\1"))
            memory = house.host.resident_bytes()
            for step in range(100):
                send(DATAGRAMS // 100)
                tunnel.send(group_write(address, (step + 2).to_bytes(2, "big")))

        wait_until(lambda: house.value(row["data point"]) == "101", 5, "the last value through the tunnel")
        self.assertFalse(tunnel.disconnected)
        self.assertLess(len(house.host.texts()) - lines, 100)
        self.assertLess(house.host.resident_bytes() - memory, 2 << 20)
        tunnel.close()


if __name__ == "__main__":
    unittest.main()
