"""The device stack is killed or hangs; the bus goes on, and nothing is lost or doubled afterwards."""

import threading
import time
import unittest

from house import House, Knxd, group_addresses
from knxd_group_socket import GroupSocket, parse_address
from processes import wait_until
from tunnel import Tunnel, group_write


def rows_of(main):
    return [row for row in group_addresses() if row["dpt"].split(".")[0] == str(main)]


def octet_rows(count):
    """Rows of types with whole octets in which every number of 0 to 100 is a value, as many as asked for."""
    usable = [row for row in group_addresses() if row["dpt"].split(".")[0] in ("5", "7", "9", "12", "13")]
    return usable[:count]


def encode(row, number):
    """(bytes, text) of a small number in the row's type."""
    main = row["dpt"].split(".")[0]
    if main == "9":  # exponent 0, hundredths
        return (number * 10).to_bytes(2, "big"), f"{number / 10:g}"
    if main == "5":
        raw = number if row["dpt"] in ("5.004", "5.010") else number * 51 % 256
        text = {"5.001": f"{raw * 100 / 255:.1f}", "5.003": f"{raw * 360 / 255:.1f}"}.get(row["dpt"], str(raw))
        return bytes([raw]), text.removesuffix(".0")
    return number.to_bytes({"7": 2, "12": 4, "13": 4}[main], "big"), str(number)


class Traffic:
    """Telegrams at a steady rate over some rows, round robin, in the background; remembers each row's last."""

    def __init__(self, send, rows, per_second):
        self._send, self._rows, self._pause = send, rows, 1 / per_second
        self.last = {}
        self.failure = None
        self._stop = threading.Event()
        self._thread = threading.Thread(target=self._run, daemon=True)
        self._thread.start()

    def _run(self):
        number = 0
        while not self._stop.wait(self._pause):
            row = self._rows[number % len(self._rows)]
            data, text = encode(row, number // len(self._rows) % 100 + 1)
            try:
                self._send(row["address"], data)
            except Exception as failure:  # shown by stop()
                self.failure = failure
                return
            self.last[row["data point"]] = text
            number += 1

    def stop(self):
        self._stop.set()
        self._thread.join()
        if self.failure:
            raise self.failure
        return self.last


class DeviceStackOutage(unittest.TestCase):
    def setUp(self):
        self.house = self.enterContext(House())

    def test_a_killed_device_stack_costs_no_tunnel_and_a_value_set_meanwhile_is_sent_once(self):
        knxd = Knxd(self.house)
        host = self.house.host.pid
        row = rows_of(7)[0]
        traffic_rows = [r for r in octet_rows(6) if r["address"] != row["address"]]
        telegrams = knxd.listen()
        sender = GroupSocket(self.house.directory / "knxd.sock")
        traffic = Traffic(sender.write, traffic_rows, 20)
        time.sleep(1)

        self.house.device_stack.kill()
        time.sleep(2)
        self.house.start_device_stack()
        self.house.set(row["data point"], "4711")  # before the application program is back
        wait_until(lambda: telegrams.to(row["address"]), 15, "the value set meanwhile is on the bus")
        self.house.wait_until_running()
        time.sleep(3)
        last = traffic.stop()
        sender.close()

        self.assertEqual([(t[0], t[1], t[3]) for t in telegrams.to(row["address"])],
                         [("Write", self.house.address, (4711).to_bytes(2, "big"))])
        self.assertTrue(self.house.host.is_running())
        self.assertEqual(self.house.host.pid, host)
        for name, text in last.items():
            wait_until(lambda: self.house.value(name) == text, 5, f"{name} is {text}")

    def test_a_frozen_device_stack_breaks_no_tunnel_and_ends_up_with_every_last_value(self):
        rows = octet_rows(12)
        self.assertEqual(len(rows), 12)
        tunnel = Tunnel(self.house.port)
        heartbeats = []
        traffic = Traffic(lambda address, data: tunnel.send(group_write(parse_address(address), data)), rows, 20)
        time.sleep(1)

        self.house.device_stack.freeze()
        end = time.monotonic() + 30
        while time.monotonic() < end:
            heartbeats.append(tunnel.heartbeat())
            time.sleep(1)
        last = traffic.stop()
        self.house.device_stack.thaw()
        thawed = time.monotonic()
        for name, text in last.items():
            wait_until(lambda: self.house.value(name) == text, max(0.1, thawed + 5 - time.monotonic()),
                       f"{name} is {text}, not {self.house.value(name)}")

        self.assertFalse(tunnel.disconnected)
        self.assertLess(max(tunnel.ack_seconds), 1)
        self.assertLess(max(heartbeats), 1)
        tunnel.close()


if __name__ == "__main__":
    unittest.main()
