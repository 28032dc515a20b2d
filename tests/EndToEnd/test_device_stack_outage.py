"""The device stack is killed or hangs; the bus goes on, and nothing is lost or doubled afterwards."""

import json
import socket
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
    """Rows of types with whole octets in which every number of 0 to 100 is a value, one for each data point, as many
    as asked for."""
    usable = {}
    for row in group_addresses():
        if row["dpt"].split(".")[0] in ("5", "7", "9", "12", "13"):
            usable.setdefault(row["data point"], row)
    return list(usable.values())[:count]


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


class Person:
    """A connection to the device stack with several requests under way."""

    def __init__(self, path):
        self._socket = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self._socket.settimeout(20)
        self._socket.connect(str(path))
        self._lines = self._socket.makefile("r", encoding="utf-8")
        self._answers = {}
        self._asked = 0

    def ask(self, method, **params):
        """The number of the request."""
        self._asked += 1
        request = {"jsonrpc": "2.0", "id": self._asked, "method": method, "params": params}
        self._socket.sendall(json.dumps(request).encode() + b"\n")
        return self._asked

    def answer(self, number):
        while number not in self._answers:
            line = json.loads(self._lines.readline())
            self._answers[line["id"]] = line
        return self._answers[number]

    def close(self):
        self._lines.close()
        self._socket.close()


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
        row = rows_of(7)[0]
        traffic_rows = [r for r in octet_rows(6) if r["address"] != row["address"]]
        telegrams = knxd.listen()
        sender = GroupSocket(self.house.directory / "knxd.sock")
        traffic = Traffic(sender.write, traffic_rows, 20)
        time.sleep(1)

        self.house.device_stack.kill()
        time.sleep(2)
        self.house.start_device_stack(hidden=True)
        person = Person(self.house.socket)
        person.ask("setValue", name=row["data point"], value="4711")
        # The answer to the second request shows that the first was taken, and that the application program was not there.
        ready = person.ask("getValue", name="ready")
        self.assertNotEqual(person.answer(ready)["result"]["value"], "1")
        self.house.show_device_stack()
        wait_until(lambda: telegrams.to(row["address"]), 30, "the value set meanwhile is on the bus")
        self.house.wait_until_running()
        time.sleep(3)
        self.assertIn("result", person.answer(1))
        person.close()
        last = traffic.stop()
        sender.close()

        self.assertEqual([(t[0], t[1], t[3]) for t in telegrams.to(row["address"])],
                         [("Write", self.house.address, (4711).to_bytes(2, "big"))])
        self.assertEqual(set(last), {r["data point"] for r in traffic_rows})
        for name, text in last.items():
            wait_until(lambda: self.house.value(name) == text, 5, f"{name} is {text}")
        self.assertTrue(self.house.host.is_running())
        # knxd would reconnect by itself: the tunnel that it opened first is the one that it still has.
        tunnels = [text for text in self.house.host.texts() if " - tunnel 1.1." in text]
        self.assertEqual(len(tunnels), 1, tunnels)
        self.assertIn("connected by 127.0.0.1", tunnels[0])

    def test_a_frozen_device_stack_breaks_no_tunnel_and_ends_up_with_every_last_value(self):
        rows = octet_rows(12)
        self.assertEqual(len({row["data point"] for row in rows}), 12)
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
        self.assertEqual(len(last), 12)
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
