"""A KNXnet/IP tunnel in raw bytes (KNX Standard 3/8/2 and 3/8/4), to see what the server sends and when."""

import socket
import struct
import threading
import time

CONNECT_REQUEST, CONNECT_RESPONSE = 0x0205, 0x0206
STATE_REQUEST, STATE_RESPONSE = 0x0207, 0x0208
DISCONNECT_REQUEST, DISCONNECT_RESPONSE = 0x0209, 0x020A
TUNNELLING_REQUEST, TUNNELLING_ACK = 0x0420, 0x0421
L_DATA_REQ, L_DATA_CON, L_DATA_IND = 0x11, 0x2E, 0x29
NAT_HPAI = bytes.fromhex("080100000000" "0000")


def frame(service, body):
    return struct.pack(">BBHH", 6, 0x10, service, 6 + len(body)) + body


def group_write(destination, data):
    """cEMI L_Data.req: A_GroupValue_Write of whole octets to a raw group address, source left to the tunnel."""
    return bytes([L_DATA_REQ, 0, 0xBC, 0xE0, 0, 0]) + struct.pack(">HB", destination, 1 + len(data)) + b"\0\x80" + data


class Tunnel:
    """Connects, acknowledges what it gets, and notes how long each acknowledgement of the server took."""

    def __init__(self, port):
        self._socket = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self._socket.connect(("127.0.0.1", port))
        self._socket.settimeout(5)
        self._socket.send(frame(CONNECT_REQUEST, NAT_HPAI + NAT_HPAI + b"\x04\x04\x02\0"))
        answer = self._socket.recv(512)
        assert answer[2:4] == struct.pack(">H", CONNECT_RESPONSE) and answer[7] == 0, answer.hex()
        self.channel = answer[6]
        self.received = []       # cEMI frames, in order
        self.ack_seconds = []    # one per telegram sent
        self.disconnected = False
        self._sequence = 0       # of the next request to the server
        self._expected = 0       # of the next request of the server
        self._status = 0         # in the acknowledgement of the last request
        self._acknowledged = threading.Event()
        self._state = threading.Event()
        self._open = True
        self._socket.settimeout(0.2)
        self._thread = threading.Thread(target=self._receive, daemon=True)
        self._thread.start()

    def send(self, cemi):
        """One request; a RuntimeError when the server does not acknowledge it without an error within 1 s."""
        self._acknowledged.clear()
        start = time.monotonic()
        self._socket.send(frame(TUNNELLING_REQUEST, bytes([4, self.channel, self._sequence, 0]) + cemi))
        if not self._acknowledged.wait(1):
            raise RuntimeError(f"no acknowledgement of request {self._sequence} within 1 s")
        if self._status != 0:
            raise RuntimeError(f"request {self._sequence} was refused with status {self._status:02x}h")
        self.ack_seconds.append(time.monotonic() - start)
        self._sequence = (self._sequence + 1) & 0xFF

    def heartbeat(self):
        """Seconds until the server answered that the connection lives; a RuntimeError after 10 s."""
        self._state.clear()
        start = time.monotonic()
        self._socket.send(frame(STATE_REQUEST, bytes([self.channel, 0]) + NAT_HPAI))
        if not self._state.wait(10):
            raise RuntimeError("no answer to the connection state request within 10 s")
        return time.monotonic() - start

    def close(self):
        self._socket.send(frame(DISCONNECT_REQUEST, bytes([self.channel, 0]) + NAT_HPAI))
        self._open = False
        self._thread.join()
        self._socket.close()

    def _receive(self):
        while self._open:
            try:
                data = self._socket.recv(512)
            except (TimeoutError, ConnectionRefusedError):
                continue
            service = struct.unpack(">H", data[2:4])[0]
            if service == TUNNELLING_ACK:
                if data[7:9] == bytes([self.channel, self._sequence]):
                    self._status = data[9]
                    self._acknowledged.set()
            elif service == TUNNELLING_REQUEST:
                if data[7] == self.channel:
                    self._take(data[8], data[10:])
            elif service == STATE_RESPONSE:
                if data[6:8] == bytes([self.channel, 0]):
                    self._state.set()
            elif service == DISCONNECT_REQUEST and data[6] == self.channel:
                self.disconnected = True

    def _take(self, sequence, cemi):
        """A repetition, because our acknowledgement came late, is acknowledged again and counts once."""
        if sequence not in (self._expected, (self._expected - 1) & 0xFF):
            return
        self._socket.send(frame(TUNNELLING_ACK, bytes([4, self.channel, sequence, 0])))
        if sequence == self._expected:
            self._expected = (self._expected + 1) & 0xFF
            self.received.append(cemi)
