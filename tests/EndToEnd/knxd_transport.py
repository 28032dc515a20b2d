"""Telegrams point to point and broadcasts through a knxd, with a transport connection on top.

knxd never sends the T_Connect of its own transport connections. Its raw transport sockets work, so the connection is
made here (KNX Standard 3/3/4).
"""

import struct
import time

from knxd_socket import KnxdSocket
from processes import Failure

OPEN_INDIVIDUAL, OPEN_BROADCAST, OPEN_RAW = 0x0021, 0x0023, 0x0024
PACKET = 0x0025


def individual(text):
    area, line, device = map(int, text.split("."))
    return area << 12 | line << 8 | device


class NoAnswer(Failure):
    """The device does not answer."""


class _Packets:
    def __init__(self, path, kind, address=0):
        self._socket = KnxdSocket.to(path)
        self._socket.open(kind, address)

    def close(self):
        self._socket.close()

    def send(self, octets):
        self._socket.send(PACKET, octets)

    def receive(self, seconds=5):
        """What came, without knxd's header; None when nothing came in time."""
        message = self._socket.receive(seconds)
        return None if message is None else message[1]


class Individual(_Packets):
    """Connectionless, to one device."""

    def __init__(self, path, device):
        super().__init__(path, OPEN_INDIVIDUAL, individual(device))

    def ask(self, digits, seconds=5):
        """The answer's octets as hexadecimal digits; None without one."""
        self.send(bytes.fromhex(digits))
        answer = self.receive(seconds)
        return None if answer is None else answer.hex()


class Broadcast(_Packets):
    def __init__(self, path):
        super().__init__(path, OPEN_BROADCAST)

    def ask(self, digits, seconds=5):
        """(source, octets as digits) of the first answer; None without one."""
        self.send(bytes.fromhex(digits))
        return self._answer(seconds)

    def ask_all(self, digits, seconds):
        """(source, octets as digits) of every answer within the time."""
        self.send(bytes.fromhex(digits))
        end = time.monotonic() + seconds
        answers = []
        while (answer := self._answer(max(end - time.monotonic(), 0))) is not None:
            answers.append(answer)
        return answers

    def _answer(self, seconds):
        answer = self.receive(seconds)
        return None if answer is None else (struct.unpack(">H", answer[:2])[0], answer[2:].hex())


class Connection(_Packets):
    """A transport connection to a device, with every telegram acknowledged and numbered."""

    def __init__(self, path, device):
        super().__init__(path, OPEN_RAW)
        self._device = struct.pack(">H", individual(device))
        self._sent = self._received = 0
        self._has_answered = False
        self._transmit(b"\x80")

    def ask(self, digits):
        """The answer as unnumbered data, hexadecimal digits. NoAnswer without one."""
        self.tell(digits)
        answer = self._next()
        assert answer[0] & 0xFC == 0x40 | self._received << 2, answer.hex()
        self._transmit(bytes([0xC2 | self._received << 2]))
        self._received = (self._received + 1) % 16
        return (bytes([answer[0] & 0x03]) + answer[1:]).hex()

    def tell(self, digits):
        """A request without an answer, acknowledged. NoAnswer without the acknowledgement."""
        octets = bytes.fromhex(digits)
        self._transmit(bytes([0x40 | self._sent << 2 | octets[0]]) + octets[1:])
        acknowledgement = self._next()
        assert acknowledgement == bytes([0xC2 | self._sent << 2]), acknowledgement.hex()
        self._sent = (self._sent + 1) % 16

    def wait_for_disconnect(self):
        assert self._next() == b"\x81"

    def disconnect(self):
        """Also waits until a device that has answered before has heard it: with one address for all clients, what
        comes next through another socket of knxd might overtake it."""
        self._transmit(b"\x81")
        if self._has_answered:
            self._transmit(b"\x03\x00")  # A_DeviceDescriptor_Read without a connection
            self._next(lambda tpdu: tpdu[:2] == b"\x03\x40")
        self.close()

    def _transmit(self, tpdu):
        self.send(self._device + tpdu)

    def _next(self, is_wanted=lambda tpdu: tpdu[0] & 0xC0):
        """The next telegram of the device; not its group telegrams, which come here, too: their data is neither
        numbered nor control."""
        while True:
            message = self.receive()
            if message is None:
                raise NoAnswer("the device does not answer")
            if message[:2] == self._device and is_wanted(message[2:]):
                self._has_answered = True
                return message[2:]
