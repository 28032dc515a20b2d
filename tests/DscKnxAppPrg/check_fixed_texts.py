#!/usr/bin/env python3
"""Compares the fixed texts in the library's sources with the texts that its tests assert.

usage: check_fixed_texts.py <directory of the library> <directory of its tests>

Every log message must stand whole in a test, as "LEVEL logger | text" in one line of a string literal; parts that the
program computes may be anything. Every other string literal of the library must be part of some literal of the tests.
Exit status 1 and one line per text that no test asserts.
"""

import pathlib
import re
import sys

# Guards that nothing around the program can make true, each with its reason. One that a test asserts after all, or
# that is gone from the sources, is reported too.
UNREACHABLE = {
    "Exit(): failed.": "the KNX side's Exit always succeeds",
    "OnDeviceRestart(): OXN Client is NULL!": "Connect succeeds only with a client",
    "~DscKnxAppPrg(): ": "only memory or a lock may fail there",
}

TOKEN = re.compile(
    r"""(?P<comment>//[^\n]*|/\*.*?\*/)
      | (?P<raw>R"(?P<delimiter>[^(\s]*)\((?P<content>.*?)\)(?P=delimiter)")
      | (?P<include>^[ \t]*\#[ \t]*include[^\n]*)
      | (?P<text>"(?:[^"\\\n]|\\.)*")
      | (?P<character>'(?:[^'\\\n]|\\.)+')
      | (?P<word>[A-Za-z_][A-Za-z_0-9]*|[0-9][0-9A-Za-z_.']*)
      | (?P<shift><<)
      | (?P<other>\S)""",
    re.VERBOSE | re.DOTALL | re.MULTILINE,
)
PLACE = re.compile(r"(?<!\{)\{(?::[^{}]*)?\}(?!\})")  # of an argument in a format string
ESCAPES = {"n": "\n", "t": "\t", "0": "\0"}


def unescape(literal):
    return re.sub(r"\\(.)", lambda m: ESCAPES.get(m.group(1), m.group(1)), literal[1:-1])


def tokens(path):
    """(kind, value) of each token; literals that follow each other are one."""
    result = []
    for match in TOKEN.finditer(path.read_text(encoding="utf-8")):
        kind = match.lastgroup
        if match.group("raw") is not None:
            kind, value = "text", match.group("content")
        elif kind == "text":
            value = unescape(match.group("text"))
        else:
            value = match.group()
        if kind in ("comment", "include", "character"):
            continue
        if kind == "text" and result and result[-1][0] == "text":
            result[-1] = ("text", result[-1][1] + value)
        else:
            result.append((kind, value))
    return result


def call_arguments(stream, start):
    """Token lists of the arguments of the call whose opening parenthesis is at `start`, and where it ends."""
    depth, arguments = 0, [[]]
    for position in range(start, len(stream)):
        kind, value = stream[position]
        if kind == "other" and value in "([{":
            depth += 1
            if depth == 1:
                continue
        elif kind == "other" and value in ")]}":
            depth -= 1
            if depth == 0:
                return arguments, position
        elif kind == "other" and value == "," and depth == 1:
            arguments.append([])
            continue
        arguments[-1].append((kind, value))
    raise ValueError("a call without an end")


def message_parts(expression):
    """The operands of `a << b << c`: a text, or None for what is computed."""
    depth, operands = 0, [[]]
    for kind, value in expression:
        if kind == "other" and value in "([{":
            depth += 1
        elif kind == "other" and value in ")]}":
            depth -= 1
        if kind == "shift" and depth == 0:
            operands.append([])
        else:
            operands[-1].append((kind, value))
    return [operand[0][1] if len(operand) == 1 and operand[0][0] == "text" else None for operand in operands]


def is_asserted(text, everything):
    """True when the tests' texts hold it; of a format string, its fixed parts."""
    if not PLACE.search(text):
        return text in everything
    parts = [re.escape(part.replace("{{", "{").replace("}}", "}")) for part in PLACE.split(text)]
    return re.search(".*".join(parts), everything) is not None


def library_texts(directory):
    """Log messages as (level, parts), and all other literals."""
    messages, others = [], []
    for path in sorted(directory.glob("*.cpp")) + sorted(directory.glob("*.h")):
        stream = tokens(path)
        position = 0
        while position < len(stream):
            kind, value = stream[position]
            if kind == "word" and value.startswith("LOG4CPLUS_"):
                arguments, end = call_arguments(stream, position + 1)
                messages.append((path.name, value.removeprefix("LOG4CPLUS_"), message_parts(arguments[-1])))
                for part, text in arguments[-1]:
                    if part == "text":
                        others.append((path.name, text))
                position = end
            elif kind == "text" and stream[position - 1] != ("word", "extern"):
                others.append((path.name, value))
            position += 1
    return messages, others


def main():
    library, tests = (pathlib.Path(argument) for argument in sys.argv[1:3])
    asserted = []
    for path in sorted(tests.glob("*.cpp")) + sorted(tests.glob("*.h")):
        asserted += [value for kind, value in tokens(path) if kind == "text"]
    lines = {line.strip(" ") for text in asserted for line in text.split("\n")}
    everything = "\n".join(asserted)

    messages, others = library_texts(library)
    if not messages or not others or not asserted:
        sys.exit(f"{library} or {tests} holds no texts")

    complaints, excused = [], set()
    for name, level, parts in messages:
        pattern = "".join(".*" if part is None else re.escape(part) for part in parts)
        if any(re.fullmatch(rf"{level} [A-Za-z.]+ \| {pattern}", line) for line in lines):
            continue
        if parts[0] in UNREACHABLE:
            excused.add(parts[0])
            continue
        complaints.append(f"{name}: {level} {''.join('…' if part is None else part for part in parts)}")
    for name, text in others:
        if text.strip() and text not in excused and not is_asserted(text, everything):
            complaints.append(f"{name}: \"{text}\"")
    for text in UNREACHABLE.keys() - excused:
        complaints.append(f"no longer without a test, or gone: {text}")

    for complaint in complaints:
        print(f"no test asserts {complaint}" if ": " in complaint else complaint)
    print(f"{len(messages)} messages and {len(others)} literals compared, {len(complaints)} complaints")
    return 1 if complaints else 0


if __name__ == "__main__":
    sys.exit(main())
