"""KNXnet/IP tunnels in raw bytes (KNX Standard 3/8/2 and 3/8/4), to see what the server sends and when."""

import socket
import struct
import threading
import time

SEARCH_REQUEST, SEARCH_RESPONSE = 0x0201, 0x0202
CONNECT_REQUEST, CONNECT_RESPONSE = 0x0205, 0x0206
STATE_REQUEST, STATE_RESPONSE = 0x0207, 0x0208
DISCONNECT_REQUEST, DISCONNECT_RESPONSE = 0x0209, 0x020A
TUNNELLING_REQUEST, TUNNELLING_ACK = 0x0420, 0x0421
FEATURE_GET, FEATURE_RESPONSE, FEATURE_SET, FEATURE_INFO = 0x0422, 0x0423, 0x0424, 0x0425
BUS_CONNECTION, INFO_SERVICE_ENABLE = 0x03, 0x08  # features of the interface
L_DATA_REQ, L_DATA_CON, L_DATA_IND = 0x11, 0x2E, 0x29
NAT_HPAI = bytes.fromhex("080100000000" "0000")
TCP_HPAI = bytes.fromhex("080200000000" "0000")


def frame(service, body):
    return struct.pack(">BBHH", 6, 0x10, service, 6 + len(body)) + body


def group_write(destination, data):
    """cEMI L_Data.req: A_GroupValue_Write of whole octets to a raw group address, source left to the tunnel."""
    return bytes([L_DATA_REQ, 0, 0xBC, 0xE0, 0, 0]) + struct.pack(">HB", destination, 1 + len(data)) + b"\0\x80" + data


class Tunnel:
    """Connects, acknowledges what it gets, and notes how long each acknowledgement of the server took."""

    def __init__(self, port, own_port=0):
        """`own_port`: 0 for any. What comes there for a connection of somebody who had it before is not ours."""
        self._socket = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self._socket.bind(("127.0.0.1", own_port))
        self._socket.connect(("127.0.0.1", port))
        self._socket.settimeout(5)
        self._socket.send(frame(CONNECT_REQUEST, NAT_HPAI + NAT_HPAI + b"\x04\x04\x02\0"))
        answer = self._socket.recv(512)
        while own_port and answer[2:4] != struct.pack(">H", CONNECT_RESPONSE):
            answer = self._socket.recv(512)
        assert answer[2:4] == struct.pack(">H", CONNECT_RESPONSE) and answer[7] == 0, answer.hex()
        self.channel = answer[6]
        self.received = []       # cEMI frames, in order
        self.features = []       # (FEATURE_RESPONSE or FEATURE_INFO; feature, return code, value), in order
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
        self._request(TUNNELLING_REQUEST, cemi)

    def ask(self, feature):
        """For a feature of the server's interface; its answer comes into `features`."""
        self._request(FEATURE_GET, bytes([feature, 0]))

    def set(self, feature, value):
        self._request(FEATURE_SET, bytes([feature, 0]) + value)

    def _request(self, service, body):
        self._acknowledged.clear()
        start = time.monotonic()
        self._socket.send(frame(service, bytes([4, self.channel, self._sequence, 0]) + body))
        if not self._acknowledged.wait(1):
            raise RuntimeError(f"no acknowledgement of request {self._sequence} within 1 s")
        if self._status != 0:
            raise RuntimeError(f"request {self._sequence} was refused with status {self._status:02x}h")
        self.ack_seconds.append(time.monotonic() - start)
        self._sequence = (self._sequence + 1) & 0xFF

    def read_property(self, device, object_index, property_id):
        """The octets of a property that a device (raw individual address) answers with; a RuntimeError after 20 s."""
        heard = len(self.received)
        which = bytes([object_index, property_id, 0x10, 0x01])  # one element, the first
        self.send(bytes([L_DATA_REQ, 0, 0xB0, 0x60, 0, 0]) + struct.pack(">H", device) + b"\x05\x03\xd5" + which)
        end = time.monotonic() + 20
        while time.monotonic() < end:
            for cemi in self.received[heard:]:
                if cemi[0] == L_DATA_IND and cemi[4:6] == struct.pack(">H", device) and cemi[9:15] == b"\x03\xd6" + which:
                    return cemi[15:]
            time.sleep(0.02)
        raise RuntimeError(f"no answer with property {property_id} of object {object_index} within 20 s")

    def vanish(self, last_words=None):
        """The client is gone without a disconnect request, right after a telegram (a cEMI frame) if there is one."""
        self._open = False
        self._thread.join()
        if last_words:
            self._socket.send(frame(TUNNELLING_REQUEST, bytes([4, self.channel, self._sequence, 0]) + last_words))
        self._socket.close()

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
                    self._take(data[8], data[10:], self.received)
            elif service in (FEATURE_RESPONSE, FEATURE_INFO):
                if data[7] == self.channel:
                    self._take(data[8], (service, data[10:]), self.features)
            elif service == STATE_RESPONSE:
                if data[6:8] == bytes([self.channel, 0]):
                    self._state.set()
            elif service == DISCONNECT_REQUEST and data[6] == self.channel:
                self.disconnected = True

    def _take(self, sequence, content, received):
        """A repetition, because our acknowledgement came late, is acknowledged again and counts once."""
        if sequence not in (self._expected, (self._expected - 1) & 0xFF):
            return
        self._socket.send(frame(TUNNELLING_ACK, bytes([4, self.channel, sequence, 0])))
        if sequence == self._expected:
            self._expected = (self._expected + 1) & 0xFF
            received.append(content)


class TcpTunnel:
    """A tunnel over TCP: nothing is acknowledged, and the stream may be cut anywhere on its way."""

    def __init__(self, port):
        self._socket = socket.create_connection(("127.0.0.1", port), 20)
        self._socket.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        self._buffer = b""
        self._waiting = []       # cEMI frames that came while something else was waited for
        self.request(CONNECT_REQUEST, TCP_HPAI + TCP_HPAI + b"\x04\x04\x02\0")
        answer = self._read_frame()
        assert answer[2:4] == struct.pack(">H", CONNECT_RESPONSE) and answer[7] == 0, answer.hex()
        assert answer[8:16] == TCP_HPAI, answer.hex()
        self.channel = answer[6]

    def request(self, service, body):
        self._socket.sendall(frame(service, body))

    def send(self, *cemis, pieces_of=None):
        """Requests in one go, or in pieces of so many octets. Numbers do not count over TCP: all are 0."""
        octets = b"".join(frame(TUNNELLING_REQUEST, bytes([4, self.channel, 0, 0]) + cemi) for cemi in cemis)
        for start in range(0, len(octets), pieces_of or len(octets)):
            self._socket.sendall(octets[start:start + (pieces_of or len(octets))])

    def receive(self):
        """The next cEMI frame; an error after 20 s or when the stream ends."""
        if self._waiting:
            return self._waiting.pop(0)
        return self._next_of(TUNNELLING_REQUEST)[10:]

    def receive_indication(self):
        while True:
            cemi = self.receive()
            if cemi[0] == L_DATA_IND:
                return cemi

    def heartbeat(self):
        self.request(STATE_REQUEST, bytes([self.channel, 0]) + TCP_HPAI)
        while True:
            answer = self._read_frame()
            if answer[2:4] == struct.pack(">H", STATE_RESPONSE):
                return answer[7]
            self._waiting.append(answer[10:])

    def break_off(self):
        """The stream ends without a word."""
        self._socket.close()

    def _next_of(self, service):
        answer = self._read_frame()
        assert answer[2:4] == struct.pack(">H", service), answer.hex()
        return answer

    def _read_frame(self):
        header = self._read(6)
        assert header[:2] == b"\x06\x10", header.hex()
        return header + self._read(struct.unpack(">H", header[4:6])[0] - 6)

    def _read(self, size):
        while len(self._buffer) < size:
            octets = self._socket.recv(4096)
            if not octets:
                raise EOFError("the server has closed the stream")
            self._buffer += octets
        octets, self._buffer = self._buffer[:size], self._buffer[size:]
        return octets
