"""A group socket of knxd: many telegrams over one connection, as fast as knxd takes them.

knxd's own protocol: two octets of length, two of message type, the data; big endian.
"""

import socket
import struct

OPEN_GROUP_CONNECTION = 0x0026
GROUP_PACKET = 0x0027
RESPONSE = 0x0040
WRITE = 0x0080


def parse_address(text):
    main, middle, sub = map(int, text.split("/"))
    return main << 11 | middle << 8 | sub


class GroupSocket:
    def __init__(self, path):
        self._socket = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self._socket.connect(str(path))
        self._send(OPEN_GROUP_CONNECTION, b"\0\0\0")
        length, kind = struct.unpack(">HH", self._receive(4))
        self._receive(length - 2)
        assert kind == OPEN_GROUP_CONNECTION

    def write(self, address, data):
        """A group write of a value of whole octets."""
        self._send(GROUP_PACKET, struct.pack(">HH", parse_address(address), WRITE) + data)

    def respond(self, address, data):
        """A group response of a value of whole octets."""
        self._send(GROUP_PACKET, struct.pack(">HH", parse_address(address), RESPONSE) + data)

    def close(self):
        self._socket.close()

    def _send(self, kind, data):
        self._socket.sendall(struct.pack(">HH", len(data) + 2, kind) + data)

    def _receive(self, count):
        received = b""
        while len(received) < count:
            part = self._socket.recv(count - len(received))
            if not part:
                raise ConnectionError("knxd closed the group socket")
            received += part
        return received
