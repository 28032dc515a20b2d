"""The device's clock, set from the bus and sent to it, seen by programs from elsewhere."""

import datetime
import time
import unittest

from house import House, Knxd
from knxd_group_socket import GroupSocket
from processes import wait_until

APPLICATION_PROGRAM = "DscKnxAppPrg::field::KNX"
BOTH, DATE, TIME = "6/0/1", "6/0/2", "6/0/3"  # 19.001, 11.001, 10.001
ADDRESSES = (BOTH, DATE, TIME)
PATIENCE = 20


def date_octets(day):
    return bytes([day.day, day.month, day.year % 100])


def time_octets(moment):
    return bytes([moment.isoweekday() << 5 | moment.hour, moment.minute, moment.second])


def both_octets(moment, flags=0):
    return bytes([moment.year - 1900, moment.month, moment.day]) + time_octets(moment) + bytes([flags >> 8, flags & 255])


class ClockTest(unittest.TestCase):
    """A house whose clock has been sent for the first time, as it is after a start."""

    time_mode = 0

    @classmethod
    def setUpClass(cls):
        cls.house = cls.enterClassContext(House(time_mode=cls.time_mode))
        cls.knxd = Knxd(cls.house)

    def device_time(self):
        """What "dsctl get 1005" shows."""
        return datetime.datetime.fromisoformat(self.house.value("1005"))

    def watch_clock(self):
        """The changes of the clock from now on, without those of its two parts: (value, origin)."""
        changes = self.house.watch("clock")
        return lambda: [change[1:] for change in changes.all() if change[0] == "clock"]

    def wait_for_device_time(self, expected):
        """The device's clock shows `expected`, or so much more as has passed since the call."""
        start = time.monotonic()

        def shows():
            passed = (self.device_time() - expected).total_seconds()
            return 0 <= passed <= time.monotonic() - start + 2  # the telegram may have been sent before the call
        wait_until(shows, PATIENCE, f"the clock shows {expected}, not {self.device_time()}")

    def own_telegrams(self, telegrams):
        """What the device itself has sent of its clock."""
        return [t for t in telegrams.heard() if t[2] in ADDRESSES and t[1] == self.house.address]

    def settle(self, telegrams):
        """Waits until the reports of the start are through: nothing of the clock is heard for a while."""
        heard = None
        while heard != (heard := len(self.own_telegrams(telegrams))):
            time.sleep(2)


class FromTheBus(ClockTest):
    def test_a_date_and_time_telegram_sets_the_device_clock_and_not_the_system_clock(self):
        before = datetime.datetime.now()
        self.knxd.write(BOTH, both_octets(datetime.datetime(2031, 5, 1, 12, 30, 15)))
        self.wait_for_device_time(datetime.datetime(2031, 5, 1, 12, 30, 15))
        self.assertLess((datetime.datetime.now() - before).total_seconds(), 600)

    def test_a_date_telegram_leaves_the_time_of_day_and_a_time_telegram_the_date(self):
        self.knxd.write(BOTH, both_octets(datetime.datetime(2031, 5, 1, 8, 0, 0)))
        self.wait_for_device_time(datetime.datetime(2031, 5, 1, 8, 0, 0))
        self.knxd.write(DATE, date_octets(datetime.date(2033, 6, 7)))
        wait_until(lambda: self.device_time().date() == datetime.date(2033, 6, 7), PATIENCE, "the date is set")
        self.assertLess(self.device_time() - datetime.datetime(2033, 6, 7, 8, 0, 0), datetime.timedelta(minutes=5))
        self.knxd.write(TIME, time_octets(datetime.datetime(2024, 5, 1, 21, 0, 0)))
        self.wait_for_device_time(datetime.datetime(2033, 6, 7, 21, 0, 0))

    def test_a_date_and_a_time_telegram_together_are_one_change(self):
        changes = self.watch_clock()
        bus = GroupSocket(self.house.directory / "knxd.sock")
        # Sent without a pause, the two are one batch; a busy machine may tear them apart, so there are more tries.
        for hour in range(9, 14):
            moment = datetime.datetime(2026, 1, hour, hour, 0, 0)
            earlier = len(changes())
            bus.write(DATE, date_octets(moment))
            bus.write(TIME, time_octets(moment))
            self.wait_for_device_time(moment)
            wait_until(lambda: len(changes()) > earlier, PATIENCE, "the change is watched")
            time.sleep(0.5)
            made = changes()[earlier:]
            self.assertEqual({origin for _, origin in made}, {APPLICATION_PROGRAM})
            if len(made) == 1:
                break
        bus.close()
        self.assertEqual(len(made), 1)
        self.assertTrue(made[0][0].startswith(moment.isoformat()[:-1]), made)

    def test_a_telegram_that_sets_the_clock_does_not_echo(self):
        telegrams = self.knxd.listen()
        self.settle(telegrams)
        before = self.own_telegrams(telegrams)
        self.knxd.write(BOTH, both_octets(datetime.datetime(2027, 2, 3, 4, 5, 6)))
        self.wait_for_device_time(datetime.datetime(2027, 2, 3, 4, 5, 6))
        time.sleep(1)
        self.assertEqual(self.own_telegrams(telegrams), before)

    def test_telegrams_that_name_no_moment_are_refused_and_logged(self):
        good = datetime.datetime(2028, 2, 29, 10, 0, 0)
        self.knxd.write(BOTH, both_octets(good))
        self.wait_for_device_time(good)
        changes = self.watch_clock()
        no_date = "DateTimeHandler::AddEntry(): No valid date."
        no_time = "DateTimeHandler::AddEntry(): No valid time."
        other = datetime.datetime(2029, 3, 3, 0, 0, 0)
        for name, address, data, line in (
                ("30 February", DATE, bytes([30, 2, 24]), no_date),
                ("30 February with a time", BOTH, bytes([124, 2, 30, 12, 0, 0, 0, 0]), no_date),
                ("24:00", BOTH, bytes([124, 5, 1, 0x78, 0, 0, 0, 0]), no_time),
                ("24:00 without a date", TIME, bytes([24, 0, 0]), "OnGroupValueWrite(): Can't get value from group value."),
                ("fault", BOTH, both_octets(other, 0x8000), no_date),
                ("no year", BOTH, both_octets(other, 0x1000), no_date),
                ("no date", BOTH, both_octets(other, 0x0800), no_date),
                ("no time", BOTH, both_octets(other, 0x0200), no_time)):
            with self.subTest(name):
                earlier = self.house.host.count(line)
                self.knxd.write(address, data)
                wait_until(lambda: self.house.host.count(line) > earlier, PATIENCE, line)
        time.sleep(0.5)
        self.assertEqual(changes(), [])
        far = datetime.datetime(2090, 1, 31, 12, 0, 0)
        self.knxd.write(BOTH, both_octets(far))
        self.wait_for_device_time(far)


class ToTheBus(ClockTest):
    def setUp(self):
        self.telegrams = self.knxd.listen()
        self.settle(self.telegrams)
        self.before = len(self.own_telegrams(self.telegrams))

    def set_clock(self, moment):
        self.house.set("1005", moment.isoformat())

    def sent(self):
        return [t[2:] for t in self.own_telegrams(self.telegrams)[self.before:]]

    @staticmethod
    def telegrams_of(moment):
        return [(BOTH, both_octets(moment)), (DATE, date_octets(moment)), (TIME, time_octets(moment))]


class WithoutALimit(ToTheBus):
    def test_each_change_of_the_clock_goes_to_every_time_object(self):
        expected = []
        for day in range(1, 6):
            moment = datetime.datetime(2024, 5, day, 12, 30, 15)
            self.set_clock(moment)
            expected += self.telegrams_of(moment)
        wait_until(lambda: len(self.sent()) >= len(expected), PATIENCE, "all telegrams")
        time.sleep(0.5)
        self.assertEqual(self.sent(), expected)


class AtMostOnceASecond(ToTheBus):
    time_mode = 1

    def test_changes_within_a_second_of_the_last_that_was_sent_are_not_sent(self):
        self.assertEqual(self.house.host.count("Time mode is: 1"), 1)
        first = datetime.datetime(2024, 5, 1, 12, 30, 15)
        self.set_clock(first)
        wait_until(lambda: len(self.sent()) >= 3, PATIENCE, "the first change is sent")
        self.assertEqual(self.sent(), self.telegrams_of(first))
        start = time.monotonic()
        day = 1
        while time.monotonic() - start < 5:
            day += 1
            self.set_clock(datetime.datetime(2024, 5, 1) + datetime.timedelta(days=day))
        time.sleep(0.5)
        seconds = time.monotonic() - start
        sent = self.sent()[3:]
        of_both = [octets for address, octets in sent if address == BOTH]
        self.assertGreaterEqual(len(of_both), 2)  # it goes on
        self.assertLessEqual(len(of_both), seconds + 1)
        self.assertGreater(day, 2 * seconds)  # or there was nothing to hold back
        self.assertEqual([address for address, _ in sent], list(ADDRESSES) * len(of_both))

    def test_a_read_of_the_clock_holds_back_the_next_change_for_a_second(self):
        # A busy machine may take more than a second between the two, so there are more tries.
        for minute in range(10):
            time.sleep(1.2)
            heard = len(self.sent())
            self.knxd.read(BOTH)
            wait_until(lambda: len(self.sent()) > heard, PATIENCE, "the answer")
            self.set_clock(datetime.datetime(2025, 7, 1, 10, minute, 0))
            time.sleep(0.5)
            if len(self.sent()) == heard + 1:
                break
        self.assertEqual(len(self.sent()), heard + 1)
        time.sleep(1.2)
        moment = datetime.datetime(2025, 7, 2, 11, 0, 0)
        self.set_clock(moment)
        wait_until(lambda: len(self.sent()) >= heard + 4, PATIENCE, "the change after the second")
        self.assertEqual(self.sent()[heard + 1:], self.telegrams_of(moment))


if __name__ == "__main__":
    unittest.main()
