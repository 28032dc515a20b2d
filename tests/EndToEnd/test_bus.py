"""Group telegrams become data points and data points become group telegrams, seen by programs from elsewhere."""

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

    def test_both_directions_are_tried_with_25_main_types_and_with_extended_frames(self):
        for dpts in ({row["dpt"] for row in group_addresses()}, {dpt for _, dpt in sending_addresses().values()}):
            self.assertGreaterEqual(len({dpt.split(".")[0] for dpt in dpts}), 25)
            # A standard frame has room for a value of 14 octets.
            longest = sorted(len(octets(vector(dpt)[0])) for dpt in dpts)[-2:]
            self.assertEqual(longest, [16, 30])

    def test_a_group_write_of_every_type_is_the_value_of_its_data_point(self):
        changes = self.house.watch(*{row["data point"] for row in group_addresses()})
        expected = []
        for row in group_addresses():
            with self.subTest(address=row["address"], dpt=row["dpt"]):
                data, text = vector(row["dpt"])
                self.knxd.write(row["address"], data)
                # A change with its origin, not only the value: an earlier telegram may have left the same one.
                expected.append((row["data point"], text, APPLICATION_PROGRAM))
                wait_until(lambda: len(changes.all()) >= len(expected), 5, f"a change of {row['data point']}")
                self.assertEqual(changes.all(), expected)
                self.assertEqual(self.house.value(row["data point"]), text)
        time.sleep(1)
        self.assertEqual(changes.all(), expected)

    def test_a_set_value_of_every_type_is_one_group_write_each_time(self):
        telegrams = self.knxd.listen()
        expected = []
        for name, (address, dpt) in sending_addresses().items():
            with self.subTest(name=name, address=address, dpt=dpt):
                data, text = vector(dpt)
                for _ in range(2):  # the second time with the same value
                    self.house.set(name, text)
                    expected.append(("Write", self.house.address, address, octets(data)))
                    wait_until(lambda: len(telegrams.all()) >= len(expected), 5, f"a telegram to {address}")
                    self.assertEqual(telegrams.all(), expected)
        time.sleep(1)
        self.assertEqual(telegrams.all(), expected)

    def test_a_text_of_any_length_is_filled_up_to_the_size_of_its_group_object(self):
        row = row_of(28)
        telegrams = self.knxd.listen()
        self.knxd.write(row["address"], b"Hello")  # five octets, and no NUL
        wait_until(lambda: self.house.value(row["data point"]) == "Hello", 20, "a short text is taken")
        self.knxd.read(row["address"])
        wait_until(lambda: len(telegrams.to(row["address"])) >= 3, 20, "the write, the read and its answer")
        self.house.set(row["data point"], 30 * "x")  # leaves no room for a NUL
        wait_until(lambda: len(telegrams.to(row["address"])) >= 4, 20, "a text that fills the object")
        own = [t for t in telegrams.to(row["address"]) if t[1] == self.house.address]
        self.assertEqual(own, [("Response", self.house.address, row["address"], b"Hello" + 25 * b"\0"),
                               ("Write", self.house.address, row["address"], 30 * b"x")])

    def test_a_set_clock_is_sent_to_every_time_object(self):
        telegrams = self.knxd.listen()
        addresses = ("6/0/1", "6/0/2", "6/0/3")

        def of_the_clock():
            return [t for t in telegrams.heard() if t[2] in addresses]

        # What is set while the application program starts waits, and is sent as the time that it is by then. When all
        # of it has been sent, a time is sent as it was set.
        self.house.set("clock", "2023-05-01T00:00:00")

        def is_set():
            years = [t[2] == "6/0/1" and t[3][0] == 123 for t in of_the_clock()]
            return any(years) and len(years) >= years.index(True) + 3
        wait_until(is_set, 10, "all three telegrams of the first time")
        before = len(of_the_clock())

        self.house.set("clock", "2024-05-01T12:30:15")
        expected = [("Write", self.house.address, address, vector(dpt)[0])
                    for address, dpt in zip(addresses, ("19.001", "11.001", "10.001"))]
        wait_until(lambda: len(of_the_clock()) >= before + 3, 5, "all three telegrams")
        time.sleep(1)
        self.assertEqual(of_the_clock()[before:], expected)

    def test_a_read_is_answered_once_with_the_stored_value(self):
        row = row_of(9)
        data, text = vector(row["dpt"])
        self.knxd.write(row["address"], data)
        wait_until(lambda: self.house.value(row["data point"]) == text, 5, "the value is stored")
        telegrams = self.knxd.listen()
        self.knxd.read(row["address"])
        wait_until(lambda: telegrams.to(row["address"]), 5, "an answer")
        time.sleep(0.5)
        answers = [t for t in telegrams.to(row["address"]) if t[1] == self.house.address]
        self.assertEqual(answers, [("Response", self.house.address, row["address"], data)])

    def test_a_group_write_does_not_echo_and_names_its_origin(self):
        row = row_of(7)
        changes = self.house.watch(row["data point"])
        telegrams = self.knxd.listen()
        self.knxd.write(row["address"], b"\x00\x2a")
        wait_until(changes.all, 5, "the change is watched")
        time.sleep(1)
        self.assertEqual([(t[0], t[2], t[3]) for t in telegrams.all()], [("Write", row["address"], b"\x00\x2a")])
        self.assertNotEqual(telegrams.all()[0][1], self.house.address)
        self.assertEqual(changes.all(), [(row["data point"], "42", APPLICATION_PROGRAM)])

    def test_two_hundred_telegrams_in_a_burst_arrive_in_order_and_none_twice(self):
        row = row_of(7)
        changes = self.house.watch(row["data point"])
        sender = GroupSocket(self.house.directory / "knxd.sock")
        for number in range(1000, 1200):
            sender.write(row["address"], number.to_bytes(2, "big"))
        wait_until(lambda: len(changes.all()) >= 200, 30, "the whole burst")
        time.sleep(0.5)
        sender.close()
        self.assertEqual(changes.all(), [(row["data point"], str(number), APPLICATION_PROGRAM)
                                         for number in range(1000, 1200)])


if __name__ == "__main__":
    unittest.main()
