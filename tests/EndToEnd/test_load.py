"""As many tunnels as a server has, each as fast as the KNX Standard lets its client be."""

import json
import os
import time
import unittest

from house import BIN, House, load_json
from processes import run, wait_until

WRITERS = 16
SECONDS = 60
FIRST_GROUP = 30 << 11         # 30/0/0; the writers' groups
QUEUE_BOUND = 1000             # telegrams that may wait for a tunnel
PROGRAM_BOUND = 1024 + 3 * WRITERS  # and for the application program: a few more for each group object
# Telegrams leave nothing behind; this is less than 5 octets for each of a quarter of a million.
MEMORY_ALLOWANCE = 1 << 20
# But a queue takes memory when it becomes longer than ever before, which may be late: some 300 octets for a telegram,
# and for as many again as it doubles its places.
MEMORY_OF_QUEUED = 600


class LoadedHouse(House):
    """A house with nothing but counters: a tunnel, a group object and a data point for each writer, and tunnels of
    listeners. Nobody else says anything."""

    def __init__(self, listeners=0):
        # AddressSanitizer keeps freed memory aside, 256 MiB of it unless told: more than a leak may cost here.
        super().__init__(host_environment={"ASAN_OPTIONS": "quarantine_size_mb=1"})
        self._listeners = listeners

    def _change_configuration(self):
        super()._change_configuration()
        host = load_json(self.configuration / "knxstackd.json")
        project = load_json(self.configuration / "project.json")
        host["server"]["tunnels"] = [f"1.2.{number + 1}" for number in range(WRITERS + self._listeners)]
        host["groupObjects"] = [
            {"number": number + 1, "dpt": "12.001", "flags": "CWTU", "addresses": [f"30/0/{number}"]}
            for number in range(WRITERS)]
        project["knx"]["timeCos"] = []
        project["dataPoints"] = [
            {"id": 2000 + number, "name": f"Counter.{number}", "dpt": "12.001", "knx": {"co": number + 1}}
            for number in range(WRITERS)]
        (self.configuration / "knxstackd.json").write_text(json.dumps(host), encoding="utf-8")
        (self.configuration / "project.json").write_text(json.dumps(project), encoding="utf-8")

    def control(self, command):
        _, output, _ = run([BIN / "knxstackctl", "--socket", self.configuration / "knxstackd.sock", "--json", command])
        return json.loads(output)


class Load(unittest.TestCase):
    def run_load(self, house, seconds, listeners=0, pause_ms=0):
        """What TunnelLoad reports, and what the host had told of its tunnels when it was over."""
        load = house.start("TunnelLoad", [
            os.environ["KNX_TUNNEL_LOAD"], house.port, FIRST_GROUP, WRITERS, listeners, pause_ms, seconds * 1000])
        house.host.wait_for_line(f"tunnel 1.2.{WRITERS + listeners}: connected", 30)
        self.memory_early = None
        start = time.monotonic()
        while load.is_running():
            time.sleep(0.2)
            passed = time.monotonic() - start
            if 10 <= passed and self.memory_early is None:
                self.memory_early = house.host.resident_bytes()
            if passed < seconds:
                self.memory_late = house.host.resident_bytes()
        result = json.loads(wait_until(load.texts, 20, "TunnelLoad says what came of it")[0])
        return result, {tunnel["address"]: tunnel for tunnel in house.control("links")["server"]["tunnels"]}

    def assert_load_was_carried(self, house, result, counters):
        """Each number acknowledged and confirmed in time, in order and once at whoever it is not missing at, and
        whatever is missing counted."""
        for kind in ("acknowledged", "confirmed"):
            self.assertEqual(result[kind]["count"], result["telegrams"])
            self.assertLess(result[kind]["longest"], 1e6, "µs, " + kind)
        for tunnel in result["tunnels"]:
            counted = counters[tunnel["address"]]
            with self.subTest(tunnel=tunnel, counters=counted):
                self.assertFalse(tunnel["lost"] or tunnel["unconfirmed"])
                self.assertEqual([tunnel[what] for what in ("refused", "disorder", "strange", "others")], [0] * 4)
                self.assertEqual(tunnel["sent"], counted["fromClient"])
                self.assertEqual(tunnel["missing"], counted["dropped"])
                self.assertEqual(tunnel["heard"] + tunnel["sent"], counted["toClient"])
                self.assertLessEqual(counted["mostWaiting"], QUEUE_BOUND)

    def assert_program_took_it(self, house, result):
        """Whatever telegram the application program was not told of has been replaced by a newer one."""
        for number, tunnel in enumerate(result["tunnels"][:WRITERS]):
            wait_until(lambda name=f"Counter.{number}", sent=tunnel["sent"]: house.value(name) == str(sent), 30,
                       f"{tunnel['sent']} is the value of Counter.{number}, not {house.value(f'Counter.{number}')}")
        status = house.control("status")["programTelegrams"]
        self.assertEqual(status["waiting"], 0)
        self.assertEqual(status["delivered"] + status["replaced"], result["telegrams"])
        self.assertLessEqual(status["mostWaiting"], PROGRAM_BOUND)
        return status

    def test_16_tunnels_at_full_speed_for_a_minute_are_served_and_cost_no_memory(self):
        house = self.enterContext(LoadedHouse())
        result, counters = self.run_load(house, SECONDS)
        status = self.assert_program_took_it(house, result)
        queued = sum(counted["mostWaiting"] for counted in counters.values()) + status["mostWaiting"]
        print(f"{result['telegrams'] / result['seconds']:.0f} telegrams a second, {self.memory_early} to "
              f"{self.memory_late} octets of memory, {queued} telegrams queued at most, acknowledged in µs "
              f"{result['acknowledged']}, confirmed {result['confirmed']}")
        self.assert_load_was_carried(house, result, counters)
        self.assertLess(self.memory_late - self.memory_early, MEMORY_ALLOWANCE + MEMORY_OF_QUEUED * queued)

    def test_a_client_that_does_not_keep_up_costs_its_own_telegrams_alone(self):
        house = self.enterContext(LoadedHouse(listeners=1))
        result, counters = self.run_load(house, 15, listeners=1, pause_ms=20)
        self.assert_program_took_it(house, result)
        self.assert_load_was_carried(house, result, counters)
        listener = result["tunnels"][-1]
        self.assertEqual(sum(tunnel["missing"] for tunnel in result["tunnels"]), listener["missing"])
        self.assertGreater(listener["missing"], 0)
        self.assertEqual(counters[listener["address"]]["mostWaiting"], QUEUE_BOUND)
        self.assertEqual(house.host.count("does not keep up"), 1)


if __name__ == "__main__":
    unittest.main()
