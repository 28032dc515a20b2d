"""Telegrams point to point and broadcasts through a knxd, with a transport connection on top.

knxd's own protocol: two octets of length, two of message type, the data; big endian. Debian's knxd is built without the
management of devices that knxtool's m... commands ask it for, and never sends the T_Connect of its own transport
connections; its raw transport sockets work, so the connection is made here (KNX Standard 3/3/4).
"""

import socket
import struct

OPEN_INDIVIDUAL, OPEN_BROADCAST, OPEN_RAW = 0x0021, 0x0023, 0x0024
PACKET = 0x0025


def individual(text):
    area, line, device = map(int, text.split("."))
    return area << 12 | line << 8 | device


class _Socket:
    def __init__(self, path, kind, address=0):
        self._socket = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self._socket.settimeout(5)
        self._socket.connect(str(path))
        self._send(kind, struct.pack(">HB", address, 0))
        assert self._receive()[:2] == struct.pack(">H", kind)

    def close(self):
        self._socket.close()

    def _send(self, kind, data):
        self._socket.sendall(struct.pack(">HH", len(data) + 2, kind) + data)

    def _receive(self):
        length, = struct.unpack(">H", self._exactly(2))
        return self._exactly(length)

    def _exactly(self, count):
        received = b""
        while len(received) < count:
            part = self._socket.recv(count - len(received))
            if not part:
                raise ConnectionError("knxd closed the socket")
            received += part
        return received

    def send(self, octets):
        self._send(PACKET, octets)

    def receive(self, seconds=5):
        """What came, without knxd's header; None when nothing came in time."""
        self._socket.settimeout(seconds)
        try:
            return self._receive()[2:]
        except TimeoutError:
            return None


class Individual(_Socket):
    """Connectionless, to one device."""

    def __init__(self, path, device):
        super().__init__(path, OPEN_INDIVIDUAL, individual(device))

    def ask(self, digits, seconds=5):
        """The answer's octets as hexadecimal digits; None without one."""
        self.send(bytes.fromhex(digits))
        answer = self.receive(seconds)
        return None if answer is None else answer.hex()


class Broadcast(_Socket):
    def __init__(self, path):
        super().__init__(path, OPEN_BROADCAST)

    def ask(self, digits, seconds=5):
        """(source, octets as digits) of the first answer; None without one."""
        self.send(bytes.fromhex(digits))
        answer = self.receive(seconds)
        return None if answer is None else (struct.unpack(">H", answer[:2])[0], answer[2:].hex())


class Connection(_Socket):
    """A transport connection to a device, with every telegram acknowledged and numbered."""

    def __init__(self, path, device):
        super().__init__(path, OPEN_RAW)
        self._device = struct.pack(">H", individual(device))
        self._sent = self._received = 0
        self._transmit(b"\x80")

    def ask(self, digits):
        """The answer as unnumbered data, hexadecimal digits."""
        self.tell(digits)
        answer = self._next()
        assert answer[0] & 0xFC == 0x40 | self._received << 2, answer.hex()
        self._transmit(bytes([0xC2 | self._received << 2]))
        self._received = (self._received + 1) % 16
        return (bytes([answer[0] & 0x03]) + answer[1:]).hex()

    def tell(self, digits):
        """A request without an answer, acknowledged."""
        octets = bytes.fromhex(digits)
        self._transmit(bytes([0x40 | self._sent << 2 | octets[0]]) + octets[1:])
        acknowledgement = self._next()
        assert acknowledgement == bytes([0xC2 | self._sent << 2]), acknowledgement.hex()
        self._sent = (self._sent + 1) % 16

    def wait_for_disconnect(self):
        assert self._next() == b"\x81"

    def disconnect(self):
        self._transmit(b"\x81")
        self.close()

    def _transmit(self, tpdu):
        self.send(self._device + tpdu)

    def _next(self):
        while True:
            message = self.receive()
            assert message is not None, "the device does not answer"
            # The device's group telegrams come here, too: their data is neither numbered nor control.
            if message[:2] == self._device and message[2] & 0xC0:
                return message[2:]
