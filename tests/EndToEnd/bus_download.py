"""A tool that loads the device over the bus: tables from a list of group objects, memory from files.

The formats are those of a System B device (KNX Standard 3/5/1).
"""

import struct

ADDRESSES, ASSOCIATIONS, OBJECTS, PROGRAM, DATA = 1, 2, 3, 4, 5
# Octets of a group object to the code of its size, where that is not the number of octets and six more.
SIZE_CODES = {1: 7, 2: 8, 3: 9, 4: 10, 6: 11, 8: 12, 10: 13, 14: 14, 5: 15, 7: 16, 9: 17, 11: 18, 12: 19, 13: 20}
FLAGS = {"U": 0x80, "T": 0x40, "I": 0x20, "W": 0x10, "R": 0x08, "C": 0x04}
LOW_PRIORITY = 0x03
BLOCK = 200  # octets per memory write: extended frames


def raw(address):
    main, middle, sub = map(int, address.split("/"))
    return main << 11 | middle << 8 | sub


def tables(group_objects, bits):
    """The three tables of a list of group objects as knxstackd.json has them. `bits`: the size of each by number."""
    addresses = sorted({raw(a) for o in group_objects for a in o["addresses"]})
    associations = [(addresses.index(raw(a)) + 1, o["number"]) for o in group_objects for a in o["addresses"]]
    descriptors = {}
    for o in group_objects:
        size = bits[o["number"]]
        code = size - 1 if size < 8 else SIZE_CODES.get(size // 8, size // 8 + 6)
        descriptors[o["number"]] = bytes([sum(FLAGS[f] for f in o["flags"]) | LOW_PRIORITY, code])
    count = max(descriptors)
    return {
        ADDRESSES: struct.pack(f">H{len(addresses)}H", len(addresses), *addresses),
        ASSOCIATIONS: struct.pack(">H", len(associations)) + b"".join(struct.pack(">HH", *a) for a in associations),
        OBJECTS: struct.pack(">H", count) + b"".join(descriptors.get(n, b"\0\xff") for n in range(1, count + 1)),
    }


def _control(connection, load_object, event, state):
    answer = connection.ask(f"03d7{load_object:02x}051001{event.ljust(20, '0')}")
    assert answer == f"03d6{load_object:02x}051001{state:02x}", answer


def download(connection, content):
    """Loads `content`, octets by object, and restarts the device."""
    for load_object in content:
        _control(connection, load_object, "04", 0)
    for load_object, octets in content.items():
        _control(connection, load_object, "01", 2)
        _control(connection, load_object, f"030b{len(octets):08x}0100", 2)
        address = int(connection.ask(f"03d5{load_object:02x}071001")[12:], 16)
        for start in range(0, len(octets), BLOCK):
            part = octets[start:start + BLOCK]
            place = f"{address + start:06x}"
            answer = connection.ask(f"01fb{len(part):02x}{place}{part.hex()}")
            assert answer == f"01fc00{place}", answer
        _control(connection, load_object, "02", 1)
    connection.tell("0380")
    connection.wait_for_disconnect()
