"""Bus bytes and value texts that belong together, each worked out by hand from the bit layout of its type."""

# Main number: (data for Knxd.write, the text of the value). An int stands for a value of up to 6 bits.
BY_MAIN = {
    1: (1, "1"),
    2: (0b11, '{"c":1,"v":1}'),               # control, value
    3: (0b1011, '{"c":1,"stepcode":3}'),      # increase by 2^(3-1) intervals
    4: (b"A", "A"),
    6: (b"\xf6", "-10"),                      # two's complement: 0xF6 - 0x100
    7: (b"\x01\xf4", "500"),                  # 1 * 256 + 244
    8: (b"\xff\x38", "-200"),                 # 0xFF38 - 0x10000
    9: (b"\x0c\x1a", "21"),                   # exponent 1, mantissa 0x41A = 1050: 0.01 * 1050 * 2
    10: (b"\x6c\x1e\x0f", "Wed 12:30:15"),    # day 3, hour 12; minute 30; second 15
    11: (b"\x01\x05\x18", "2024-05-01"),      # day 1, month 5, year 24
    12: (b"\x00\x01\xe2\x40", "123456"),      # 1 * 65536 + 0xE240 = 57920
    13: (b"\xff\xff\xff\x9c", "-100"),
    14: (b"\x3f\xc0\x00\x00", "1.5"),         # sign 0, exponent 127, fraction 0.5
    # digits 1 to 6; detection error 0, permission 1, direction 0, encrypted 0; index 5
    15: (b"\x12\x34\x56\x45", '{"code":"123456","e":0,"p":1,"d":0,"c":0,"index":5}'),
    16: (b"Guten Tag\0\0\0\0\0", "Guten Tag"),
    17: (b"\x04", "5"),                       # scenes are counted from 0 on the bus, from 1 for people
    18: (b"\x04", "5"),                       # activate
    20: (b"\x01", "1"),
}

# Types whose sub number changes the text.
BY_TYPE = {
    "5.001": (b"\x80", "50.2"),               # 128 * 100 / 255 = 50.196
    "5.003": (b"\x80", "180.7"),              # 128 * 360 / 255 = 180.705
    "5.004": (b"\x80", "128"),
    "5.010": (b"\x80", "128"),
    # year 1900 + 124, May, 1st; Wednesday (3), 12 h; 30 min; 15 s; no flag set
    "19.001": (b"\x7c\x05\x01\x6c\x1e\x0f\x00\x00", "2024-05-01T12:30:15"),
}


def vector(dpt):
    """(data, text) for a datapoint type as group-addresses.csv spells it."""
    return BY_TYPE.get(dpt) or BY_MAIN[int(dpt.split(".")[0])]


def octets(data):
    """The data as knxtool prints it: values of up to 6 bits are one octet."""
    return bytes([data]) if isinstance(data, int) else data
