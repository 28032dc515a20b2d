"""The part of knxd that Debian leaves out of its build: managing devices for knxtool.

knxtool's commands for a device (maskver, progmodeon, mpropread, writeaddress, ...) leave the telegrams to knxd. Debian's
knxd is configured without that and closes the connection. A Management takes the commands at a socket of its own, as
knxd would, and sends every telegram through the knxd beside it: knxtool, knxd and the device are those that a user has.
"""

import pathlib
import socket
import threading
import time

from knxd_socket import KnxdSocket
from knxd_transport import Broadcast, Connection, Individual, NoAnswer

# Message types, of requests and of their answers.
INVALID_REQUEST, PROCESSING_ERROR, RESET_CONNECTION = 0x0000, 0x0002, 0x0004
ADDRESS_EXISTS, MORE_THAN_ONE_DEVICE, TIMEOUT, VERIFY_ERROR = 0x0041, 0x0042, 0x0043, 0x0044
DEVICE_PROGRAMMING_MODE, DEVICE_MASK_VERSION, READ_ADDRESSES, WRITE_ADDRESS = 0x0030, 0x0031, 0x0032, 0x0040
OPEN_CONNECTIONLESS, OPEN_CONNECTION = 0x0049, 0x0050
READ, WRITE, PROPERTY_READ, PROPERTY_WRITE = 0x0051, 0x0052, 0x0053, 0x0054
AUTHORIZE, KEY_WRITE, MASK_VERSION, RESTART, WRITE_PLAIN = 0x0057, 0x0058, 0x0059, 0x005A, 0x005B
PROGRAMMING_MODE, PROPERTY_DESCRIPTION, PROPERTY_SCAN = 0x0060, 0x0061, 0x0062

PROGRAMMING_MODE_MEMORY = 0x0060  # where devices of old keep it: 1 in bit 0, even parity in bit 7
MEMORY_AT_ONCE = 12  # octets that fit every frame
READ_ADDRESSES_S = 3  # as long as knxd listens


class Refused(Exception):
    def __init__(self, kind=PROCESSING_ERROR):
        super().__init__(kind)
        self.kind = kind


class Management:
    """Serves knxtool at `url` until close()."""

    def __init__(self, knxd, path):
        """`knxd`: path of its socket. `path`: of the new one."""
        self.url = f"local:{path}"
        self._knxd = pathlib.Path(knxd)
        self._listener = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self._listener.bind(str(path))
        self._listener.listen()
        threading.Thread(target=self._accept, daemon=True).start()

    def close(self):
        self._listener.shutdown(socket.SHUT_RDWR)
        self._listener.close()

    def _accept(self):
        while True:
            try:
                client, _ = self._listener.accept()
            except OSError:  # closed
                return
            _Session(KnxdSocket(client), self._knxd).serve()  # one after the other, as a person works


class _Session:
    """One run of knxtool."""

    def __init__(self, client, knxd):
        self._client = client
        self._knxd = knxd
        self._device = None
        self._handlers = {
            DEVICE_PROGRAMMING_MODE: self._device_programming_mode,
            DEVICE_MASK_VERSION: lambda data: self._with_connection(data[:2], mask_version),
            READ_ADDRESSES: self._read_addresses,
            WRITE_ADDRESS: self._write_address,
            OPEN_CONNECTIONLESS: self._open_connectionless,
            OPEN_CONNECTION: self._open_connection,
        }

    def serve(self):
        try:
            while True:
                kind, data = self._client.receive(None)
                if kind == RESET_CONNECTION:
                    self._close_device()
                else:
                    self._answer(kind, data)
        except ConnectionError:  # knxtool has ended
            pass
        finally:
            self._close_device()
            self._client.close()

    def _answer(self, kind, data):
        try:
            self._client.send(kind, self._carry_out(kind, data) or b"")
        except Refused as refusal:
            self._client.send(refusal.kind)
        except NoAnswer:
            self._client.send(PROCESSING_ERROR)

    def _carry_out(self, kind, data):
        if kind in self._handlers:
            return self._handlers[kind](data)
        if self._device and kind in ON_A_DEVICE:
            return ON_A_DEVICE[kind](self._device, data)
        raise Refused(INVALID_REQUEST)

    def _close_device(self):
        if isinstance(self._device, Connection):
            self._device.disconnect()
        elif self._device:
            self._device.close()
        self._device = None

    def _open_connection(self, data):
        self._device = Connection(self._knxd, address_text(data))
        mask_version(self._device)

    def _open_connectionless(self, data):
        self._device = Individual(self._knxd, address_text(data))

    def _with_connection(self, device, work):
        connection = Connection(self._knxd, address_text(device))
        try:
            return work(connection)
        finally:
            connection.disconnect()

    def _device_programming_mode(self, data):
        return self._with_connection(data[:2], lambda connection: programming_mode(connection, data[2:]))

    def _read_addresses(self, _=None):
        broadcast = Broadcast(self._knxd)
        try:
            answers = broadcast.ask_all("0100", READ_ADDRESSES_S)
        finally:
            broadcast.close()
        return b"".join(source.to_bytes(2, "big") for source, octets in answers if octets == "0140")

    def _write_address(self, device):
        try:
            self._with_connection(device, mask_version)
        except NoAnswer:
            pass  # nobody has it
        else:
            raise Refused(ADDRESS_EXISTS)
        found = self._read_addresses()
        if len(found) != 2:
            raise Refused(MORE_THAN_ONE_DEVICE if found else TIMEOUT)
        broadcast = Broadcast(self._knxd)
        broadcast.send(b"\x00\xc0" + device)
        time.sleep(0.1)  # as knxd waits
        broadcast.close()
        self._with_connection(device, lambda connection: programming_mode(connection, b"\0"))


def address_text(octets):
    return f"{octets[0] >> 4}.{octets[0] & 15}.{octets[1]}"


def expect(answer, head):
    """The octets behind `head`, which the answer must begin with (both in hexadecimal digits but for the result)."""
    if answer is None or not answer.startswith(head):
        raise Refused
    return bytes.fromhex(answer[len(head):])


def mask_version(device, _=b""):
    return expect(device.ask("0300"), "0340")


def programming_mode(device, wish):
    """`wish`: 0 off, 1 on, 2 the other, 3 what is it. The answer to the last, or 0."""
    octet, = read_memory(device, PROGRAMMING_MODE_MEMORY, 1)
    if wish[0] == 3:
        return bytes([octet & 1])
    if wish[0] == 2 or octet & 1 != wish[0]:
        write_memory(device, PROGRAMMING_MODE_MEMORY, bytes([octet ^ 0x81]), True)
    return b"\0"


def read_memory(device, address, size):
    octets = b""
    while len(octets) < size:
        count = min(size - len(octets), MEMORY_AT_ONCE)
        place = f"{address + len(octets):04x}"
        octets += expect(device.ask(f"{0x0200 + count:04x}{place}"), f"{0x0240 + count:04x}{place}")
    return octets


def write_memory(device, address, octets, verify):
    for start in range(0, len(octets), MEMORY_AT_ONCE):
        part = octets[start:start + MEMORY_AT_ONCE]
        device.tell(f"{0x0280 + len(part):04x}{address + start:04x}{part.hex()}")
        if verify and read_memory(device, address + start, len(part)) != part:
            raise Refused(VERIFY_ERROR)


def read(device, data):
    return read_memory(device, int.from_bytes(data[:2], "big"), int.from_bytes(data[2:4], "big"))


def write(device, data, verify=True):
    write_memory(device, int.from_bytes(data[:2], "big"), data[4:], verify)


def elements(data):
    """Object, property, 12 bits of first element behind four of their number: as they stand in a telegram."""
    count, start = data[4], int.from_bytes(data[2:4], "big")
    return f"{data[:2].hex()}{count << 12 | start:04x}"


def property_read(device, data):
    return expect(device.ask("03d5" + elements(data)), "03d6" + elements(data))


def property_write(device, data):
    return expect(device.ask("03d7" + elements(data) + data[5:].hex()), "03d6" + elements(data))


def describe(device, obj, prop, index):
    """(property, type, most elements, access levels); a property of 0 where there is none."""
    octets = expect(device.ask(f"03d8{obj:02x}{prop:02x}{index:02x}"), f"03d9{obj:02x}")
    return octets[0], octets[2], int.from_bytes(octets[3:5], "big") & 0x0FFF, octets[5]


def property_description(device, data):
    _, kind, count, access = describe(device, data[0], data[1], 0)
    return bytes([kind]) + count.to_bytes(2, "big") + bytes([access])


def property_scan(device, _):
    """Six octets per property. An object's type stands where others have their number of elements."""
    found = b""
    for obj in range(256):
        for index in range(256):
            prop, kind, count, access = describe(device, obj, 0, index)
            if prop == 0:
                break
            if prop == 1:
                count = int.from_bytes(property_read(device, bytes([obj, 1, 0, 1, 1])), "big")
            found += bytes([obj, prop, kind]) + count.to_bytes(2, "big") + bytes([access])
        if index == 0:
            break
    return found


def authorize(device, key):
    return expect(device.ask("03d100" + key.hex()), "03d2")


def key_write(device, data):
    expect(device.ask(f"03d3{data[4:].hex()}{data[:4].hex()}"), f"03d4{data[4:].hex()}")


ON_A_DEVICE = {
    READ: read,
    WRITE: write,
    WRITE_PLAIN: lambda device, data: write(device, data, verify=False),
    PROPERTY_READ: property_read,
    PROPERTY_WRITE: property_write,
    PROPERTY_DESCRIPTION: property_description,
    PROPERTY_SCAN: property_scan,
    AUTHORIZE: authorize,
    KEY_WRITE: key_write,
    MASK_VERSION: mask_version,
    PROGRAMMING_MODE: programming_mode,
    RESTART: lambda device, _: device.tell("0380"),
}
