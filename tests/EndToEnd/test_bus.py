"""Group telegrams become data points and data points become group telegrams, seen by programs from elsewhere."""

import json
import time
import unittest

from house import House, Knxd, group_addresses, sending_addresses
from knxd_group_socket import GroupSocket
from processes import wait_until
from vectors import octets, vector

APPLICATION_PROGRAM = "DscKnxAppPrg::field::KNX"


def row_of(main):
    return next(row for row in group_addresses() if row["dpt"].split(".")[0] == str(main))


class Bus(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.house = cls.enterClassContext(House())
        cls.knxd = Knxd(cls.house)

    def test_the_example_has_twelve_main_types(self):
        mains = {row["dpt"].split(".")[0] for row in group_addresses()}
        self.assertGreaterEqual(len(mains), 12)

    def test_a_group_write_of_every_type_is_the_value_of_its_data_point(self):
        for row in group_addresses():
            with self.subTest(address=row["address"], dpt=row["dpt"]):
                data, text = vector(row["dpt"])
                self.knxd.write(row["address"], data)
                wait_until(lambda: self.house.value(row["data point"]) == text, 5,
                           f"{row['data point']} is {text}, not {self.house.value(row['data point'])}")

    def test_a_set_value_of_every_type_is_one_group_write_each_time(self):
        telegrams = self.knxd.listen()
        time.sleep(0.5)
        for name, (address, dpt) in sending_addresses().items():
            with self.subTest(name=name, address=address, dpt=dpt):
                data, text = vector(dpt)
                before = len(telegrams.to(address))
                for times in (1, 2):  # the second time with the same value
                    self.house.set(name, text)
                    wait_until(lambda: len(telegrams.to(address)) >= before + times, 5,
                               f"telegram {times} to {address}")
                time.sleep(0.2)
                new = telegrams.to(address)[before:]
                self.assertEqual([(t[0], t[1], t[3]) for t in new],
                                 [("Write", self.house.address, octets(data))] * 2)

    def test_a_set_clock_is_sent_to_every_time_object(self):
        telegrams = self.knxd.listen()
        time.sleep(0.5)
        self.house.set("clock", "2024-05-01T12:30:15")
        expected = {
            "6/0/1": vector("19.001")[0],
            "6/0/2": vector("11.001")[0],
            "6/0/3": vector("10.001")[0],
        }
        wait_until(lambda: all(telegrams.to(address) for address in expected), 5, "all three telegrams")
        time.sleep(0.5)
        for address, data in expected.items():
            with self.subTest(address=address):
                self.assertEqual([(t[0], t[1], t[3]) for t in telegrams.to(address)],
                                 [("Write", self.house.address, data)])

    def test_a_read_is_answered_once_with_the_stored_value(self):
        row = row_of(9)
        data, text = vector(row["dpt"])
        self.knxd.write(row["address"], data)
        wait_until(lambda: self.house.value(row["data point"]) == text, 5, "the value is stored")
        telegrams = self.knxd.listen()
        time.sleep(0.5)
        self.knxd.read(row["address"])
        wait_until(lambda: telegrams.to(row["address"]), 5, "an answer")
        time.sleep(0.5)
        answers = [t for t in telegrams.to(row["address"]) if t[1] == self.house.address]
        self.assertEqual(answers, [("Response", self.house.address, row["address"], data)])

    def test_a_group_write_does_not_echo_and_names_its_origin(self):
        row = row_of(7)
        watch = self.house.watch(row["data point"])
        telegrams = self.knxd.listen()
        time.sleep(0.7)
        self.knxd.write(row["address"], b"\x00\x2a")
        wait_until(lambda: watch.count('"42"'), 5, "the change is watched")
        time.sleep(1)
        self.assertEqual([t for t in telegrams.to(row["address"]) if t[1] == self.house.address], [])
        changes = [json.loads(line) for line in watch.texts()]
        self.assertEqual([(c["value"], c["origin"]) for c in changes], [("42", APPLICATION_PROGRAM)])

    def test_two_hundred_telegrams_in_a_burst_arrive_in_order_and_none_twice(self):
        row = row_of(7)
        watch = self.house.watch(row["data point"])
        time.sleep(0.7)
        sender = GroupSocket(self.house.directory / "knxd.sock")
        for number in range(1000, 1200):
            sender.write(row["address"], number.to_bytes(2, "big"))
        wait_until(lambda: watch.count('"1199"'), 30, "the last of the burst")
        time.sleep(0.5)
        sender.close()
        values = [json.loads(line)["value"] for line in watch.texts()]
        self.assertEqual(values, [str(number) for number in range(1000, 1200)])


if __name__ == "__main__":
    unittest.main()
