"""knxd's own protocol, which its tools speak to it: two octets of length, two of message type, the data; big endian."""

import socket
import struct
import time


class KnxdSocket:
    """One end of a connection, of knxd or of a client."""

    def __init__(self, connected):
        self._socket = connected
        self._received = b""

    @classmethod
    def to(cls, path):
        connected = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        connected.connect(str(path))
        return cls(connected)

    def open(self, kind, address=0):
        """Makes this a socket of the kind: one of knxd's message types that open one."""
        self.send(kind, struct.pack(">HB", address, 0))
        message = self.receive()
        assert message and message[0] == kind, message

    def send(self, kind, data=b""):
        self._socket.sendall(struct.pack(">HH", len(data) + 2, kind) + data)

    def receive(self, seconds=5):
        """(type, data) of the next message; None when it did not come whole in time; ConnectionError at the end."""
        end = None if seconds is None else time.monotonic() + seconds
        while True:
            size = 2 + int.from_bytes(self._received[:2], "big")
            if len(self._received) >= max(size, 4):
                message, self._received = self._received[:size], self._received[size:]
                return int.from_bytes(message[2:4], "big"), message[4:]
            try:
                self._socket.settimeout(None if end is None else max(end - time.monotonic(), 0.001))
                part = self._socket.recv(4096)
            except TimeoutError:
                return None
            if not part:
                raise ConnectionError("the other end closed the socket")
            self._received += part

    def close(self):
        self._socket.close()
