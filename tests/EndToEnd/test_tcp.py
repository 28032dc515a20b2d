"""A client that tunnels over TCP, beside others that do so by UDP."""

import struct
import unittest

from house import House, Knxd, group_addresses, sending_addresses
from knxd_group_socket import parse_address
from processes import wait_until
from tunnel import L_DATA_CON, TcpTunnel, group_write

APPLICATION_PROGRAM = "DscKnxAppPrg::field::KNX"


class TcpClient(unittest.TestCase):
    def setUp(self):
        self.house = self.enterContext(House())
        self.row = next(row for row in group_addresses() if row["dpt"].split(".")[0] == "7")
        self.address = parse_address(self.row["address"])

    def test_values_pass_both_ways_between_a_stream_and_the_data_points(self):
        tunnel = TcpTunnel(self.house.port)
        changes = self.house.watch(self.row["data point"])
        tunnel.send(group_write(self.address, b"\x01\x02"))
        wait_until(lambda: changes.all(), 20, "the value of the telegram")
        self.assertEqual(changes.all(), [(self.row["data point"], "258", APPLICATION_PROGRAM)])
        self.assertEqual(tunnel.receive()[0], L_DATA_CON)

        self.house.set(self.row["data point"], "772")
        sending = parse_address(sending_addresses()[self.row["data point"]][0])
        while True:
            cemi = tunnel.receive_indication()
            if struct.unpack(">H", cemi[6:8])[0] == sending:
                break
        self.assertEqual(cemi[9:], b"\x00\x80\x03\x04")
        self.assertEqual(tunnel.heartbeat(), 0)

    def test_a_stream_and_a_client_by_udp_hear_each_other(self):
        tunnel = TcpTunnel(self.house.port)
        knxd = Knxd(self.house)
        telegrams = knxd.listen()
        tunnel.send(group_write(self.address, b"\x00\x07"))
        wait_until(lambda: telegrams.to(self.row["address"]), 20, "the telegram of the stream")
        self.assertEqual([(t[0], t[3]) for t in telegrams.to(self.row["address"])], [("Write", b"\x00\x07")])
        knxd.write(self.row["address"], b"\x00\x08")
        while True:
            cemi = tunnel.receive_indication()
            if struct.unpack(">H", cemi[6:8])[0] == self.address:
                break
        self.assertEqual(cemi[9:], b"\x00\x80\x00\x08")

    def test_a_burst_in_any_pieces_is_confirmed_and_arrives_whole_and_in_order(self):
        tunnel = TcpTunnel(self.house.port)
        changes = self.house.watch(self.row["data point"])
        numbers = list(range(1000, 1300))
        for part, pieces in ((numbers[:100], None), (numbers[100:200], 1), (numbers[200:], 37)):
            tunnel.send(*(group_write(self.address, number.to_bytes(2, "big")) for number in part), pieces_of=pieces)
        confirmed = []
        while len(confirmed) < len(numbers):
            cemi = tunnel.receive()
            if cemi[0] == L_DATA_CON:
                confirmed.append(int.from_bytes(cemi[11:], "big"))
        self.assertEqual(confirmed, numbers)
        wait_until(lambda: len(changes.all()) >= len(numbers), 30, "the whole burst")
        self.assertEqual([int(value) for _, value, _ in changes.all()], numbers)

    def test_tunnels_of_streams_that_break_off_are_free_again(self):
        ended = 0
        for _ in range(3):
            tunnels = []
            while True:
                try:
                    tunnels.append(TcpTunnel(self.house.port))
                except AssertionError:
                    break  # no more connections
            self.assertGreater(len(tunnels), 1)
            for tunnel in tunnels:
                tunnel.break_off()
            ended += len(tunnels)
            wait_until(lambda: self.house.host.count("the TCP connection has ended") == ended, 20, "the tunnels' ends")
        self.assertEqual(self.house.host.count("ERROR"), 0, self.house.host.log())


if __name__ == "__main__":
    unittest.main()
