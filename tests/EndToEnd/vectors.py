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
    21: (b"\x06", "6"),                       # bits 1 and 2: fault, overridden
    22: (b"\x01\x20", "288"),                 # bits 8 and 5: heating, start optimisation
    26: (b"\x45", '{"b":1,"scene":6}'),       # bit 6; 5 on the bus is scene 6
    # 2 octets each for the third and fourth character, and a NUL for each octet that is left of the 30
    28: (b"Gr\xc3\xbc\xc3\x9fe aus Wien" + 14 * b"\0", "Gr\u00fc\u00dfe aus Wien"),
    # 2 * 2^32 = 8589934592, 540BE400h = 1410065408
    29: (b"\0\0\0\x02\x54\x0b\xe4\0", "10000000000"),
    206: (b"\x00\x3c\x03", '{"delayTime":60,"mode":3}'),
    # as 9.xxx: exponent 1, mantissa 433h = 1075: 0.01 * 1075 * 2; 076Ch = 1900, 06A4h = 1700 with exponent 0
    222: (b"\x0c\x33\x07\x6c\x06\xa4", '{"comfort":21.5,"standby":19,"economy":17}'),
    225: (b"\x00\x0a\x80", '{"timePeriod":10,"percent":50.2}'),  # 128 * 100 / 255 = 50.196
    229: (b"\x00\x01\xe2\x40\x06\x01", '{"countVal":123456,"valInfField":6,"status":1}'),
    232: (b"\xff\x80\x00", '{"r":255,"g":128,"b":0}'),
    # 3039h = 12345; tariff 2; e is bit 1, t bit 0
    235: (b"\x00\x00\x30\x39\x02\x01", '{"activeEnergy":12345,"tariff":2,"e":0,"t":1}'),
    238: (b"\x85", '{"s":1,"sa":0,"scene":5}'),  # 1, 0, 000101
    # 255 is 100 %, 128 is 50.2 %; the height alone is valid: bit 0
    240: (b"\xff\x80\x01",
          '{"heightPosition":100,"slatsPosition":50.2,"validSlatsPos":0,"validHeightPos":1}'),
    # 5000h / 65535 = 0.312504, 547Ah / 65535 = 0.329991, 128 * 100 / 255; c is bit 1
    242: (b"\x50\x00\x54\x7a\x80\x02", '{"x":0.3125,"y":0.32999,"brightness":50.2,"c":1,"b":0}'),
    # 5 * 100 ms; 0A8Ch = 2700 K; bits 2 and 1 of the last octet: time and colour temperature are valid
    249: (b"\x00\x05\x0a\x8c\xff\x06",
          '{"timePeriod":500,"colourTemperature":2700,"brightness":100,'
          '"validTime":1,"validColourTemperature":1,"validBrightness":0}'),
    # a reserved octet; 1101b: red, green and white are valid
    251: (b"\xff\x80\x00\x01\x00\x0d", '{"r":255,"g":128,"b":0,"w":1,"mR":1,"mG":1,"mB":0,"mW":1}'),
    # Twice a date and time as 19.001: 1900 + 124, July, 1st, Monday (1), 8 h; 14th, Sunday (7), 20 h, 30 min;
    # bit 0 of the seventh octet: summer time. 16 octets
    256: (b"\x7c\x07\x01\x28\x00\x00\x01\x00" b"\x7c\x07\x0e\xf4\x1e\x00\x01\x00",
          '{"start_year":2024,"start_month":7,"start_day":1,"start_dow":1,"start_hour":8,"start_minute":0,'
          '"start_second":0,"start_f":0,"start_wd":0,"start_nwd":0,"start_ny":0,"start_nd":0,"start_ndow":0,'
          '"start_nt":0,"start_suti":1,"start_clq":0,"start_src":0,'
          '"stop_year":2024,"stop_month":7,"stop_day":14,"stop_dow":7,"stop_hour":20,"stop_minute":30,'
          '"stop_second":0,"stop_f":0,"stop_wd":0,"stop_nwd":0,"stop_ny":0,"stop_nd":0,"stop_ndow":0,'
          '"stop_nt":0,"stop_suti":1,"stop_clq":0,"stop_src":0}'),
    # as 222; 02BCh = 700; 7FFFh is no value
    275: (b"\x0c\x33\x07\x6c\x7f\xff\x02\xbc",
          '{"comfort":21.5,"standby":19,"economy":null,"buildingProtection":7}'),
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
