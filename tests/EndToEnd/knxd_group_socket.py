"""A group socket of knxd: many telegrams over one connection, as fast as knxd takes them."""

import struct

from knxd_socket import KnxdSocket

OPEN_GROUP_CONNECTION = 0x0026
GROUP_PACKET = 0x0027
RESPONSE = 0x0040
WRITE = 0x0080


def parse_address(text):
    main, middle, sub = map(int, text.split("/"))
    return main << 11 | middle << 8 | sub


class GroupSocket:
    def __init__(self, path):
        self._socket = KnxdSocket.to(path)
        self._socket.open(OPEN_GROUP_CONNECTION)

    def write(self, address, data):
        """A group write of a value of whole octets."""
        self._socket.send(GROUP_PACKET, struct.pack(">HH", parse_address(address), WRITE) + data)

    def respond(self, address, data):
        """A group response of a value of whole octets."""
        self._socket.send(GROUP_PACKET, struct.pack(">HH", parse_address(address), RESPONSE) + data)

    def close(self):
        self._socket.close()
