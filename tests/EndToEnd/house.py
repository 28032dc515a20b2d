"""examples/house as a running installation: device stack, KNX stack host, and an independent KNX/IP client.

The paths come from the environment: KNX_BIN_DIR (the built programs) and KNX_EXAMPLE (examples/house).
"""

import csv
import json
import os
import pathlib
import re
import shutil
import socket
import sys
import tempfile

from processes import Failure, Process, run, wait_until

BIN = pathlib.Path(os.environ["KNX_BIN_DIR"])
EXAMPLE = pathlib.Path(os.environ["KNX_EXAMPLE"])
DAEMONS = ("devicestackd", "knxstackd")


def free_port():
    """A port that nobody has, neither by UDP nor by TCP."""
    while True:
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as udp, socket.socket() as tcp:
            udp.bind(("127.0.0.1", 0))
            try:
                tcp.bind(udp.getsockname())
            except OSError:
                continue
            return udp.getsockname()[1]


def all_group_addresses():
    """The rows of group-addresses.csv: address, name, dpt, data point."""
    with open(EXAMPLE / "group-addresses.csv", newline="", encoding="utf-8") as file:
        return list(csv.DictReader(file))


def is_named(row):
    """Whether the row's data point is one of the project, not one that has a life of its own (the clock, the state
    of the device)."""
    return "." in row["data point"]


def group_addresses():
    """The rows of the project's own data points."""
    return [row for row in all_group_addresses() if is_named(row)]


def load_json(file):
    """A configuration file of ours: JSON with // comments and trailing commas."""
    text = re.sub(r"//.*", "", pathlib.Path(file).read_text(encoding="utf-8"))
    return json.loads(re.sub(r",(\s*[}\]])", r"\1", text))


def sending_addresses():
    """Data point name to (address that a set value is sent to, datapoint type), from the configuration files."""
    objects = {o["number"]: o for o in load_json(EXAMPLE / "knxstackd.json")["groupObjects"]}
    addresses = {}
    for point in load_json(EXAMPLE / "project.json")["dataPoints"]:
        co = point.get("knx", {}).get("co")
        if "name" in point and co is not None:
            target = objects[co["write"] if isinstance(co, dict) else co]
            addresses[point["name"]] = (target["addresses"][0], point["dpt"])
    return addresses


class House:
    """Use as a context manager: everything started in it is ended, everything made in it is removed."""

    def __init__(self, interface=None, host_environment=None, time_mode=0, image=False, configure=None, network=None):
        """`interface`: (address, port) of a KNX/IP interface that the host attaches to. `image`: what tools change in
        the device is kept. `configure`: changes the host's configuration, given as a dict, last of all. `network`: the
        namespace that the host runs in. Every data point may be set and every group object may be read, so that each
        type can be tried in each direction."""
        self._image = image
        self._configure = configure
        self._network = network
        self._interface = interface
        self._time_mode = time_mode
        self._host_environment = host_environment
        self._processes = []

    def __enter__(self):
        self.directory = pathlib.Path(tempfile.mkdtemp(prefix="knx-house-"))
        self.configuration = self.directory / "house"
        shutil.copytree(EXAMPLE, self.configuration)
        self._hosts_socket = self.directory / "devicestack.sock"
        self._hidden_socket = self.directory / "hidden.sock"
        self.state = self.directory / "state"
        self.port = free_port()
        self._change_configuration()
        try:
            self.start_device_stack()
            self.start_host()
        except BaseException:
            self.__exit__(*sys.exc_info())
            raise
        return self

    def __exit__(self, failure, *_):
        complaints = []
        for process in reversed(self._processes):
            try:
                if process.is_running() and process.name in DAEMONS and failure is None and not complaints:
                    process.stop_cleanly()
            except Failure as complaint:
                complaints.append(complaint)
            if process.is_running():
                process.kill()
            process.close()
        shutil.rmtree(self.directory, ignore_errors=True)
        if complaints:
            raise complaints[0]

    def start(self, name, arguments, **options):
        process = Process(name, arguments, **options)
        self._processes.append(process)
        return process

    def start_device_stack(self, hidden=False):
        """`hidden`: at a socket that dsctl is told of, but the host is not, until show_device_stack()."""
        self.socket = self._hidden_socket if hidden else self._hosts_socket
        self.device_stack = self.start("devicestackd", [
            BIN / "devicestackd", "--config", self.configuration / "devicestackd.json",
            "--socket", self.socket, "--state-dir", self.state])
        self.device_stack.wait_for_line("Ready:")

    def show_device_stack(self):
        """The hidden device stack is where the host looks for it."""
        self.socket = self._hidden_socket.replace(self._hosts_socket)

    def _change_configuration(self):
        project = load_json(self.configuration / "project.json")
        for point in project["dataPoints"]:
            point.pop("access", None)
        (self.configuration / "project.json").write_text(json.dumps(project), encoding="utf-8")

        host = load_json(self.configuration / "knxstackd.json")
        for group_object in host["groupObjects"]:
            group_object["flags"] = "CRWTU"
        time_mode, = (p for o in host["interfaceObjects"] for p in o["properties"] if p["id"] == 201)
        time_mode["value"] = f"{self._time_mode << 6:02x}"
        if self._interface:
            host["interface"] = {"host": self._interface[0], "port": self._interface[1]}
        host["device"].pop("image", None)
        if self._image:
            host["device"]["image"] = str(self.directory / "device.image")
        if self._configure:
            self._configure(host)
        self.address = host["device"]["individualAddress"]
        (self.configuration / "knxstackd.json").write_text(json.dumps(host), encoding="utf-8")

    def start_host(self):
        command = [
            BIN / "knxstackd", "--config", self.configuration / "knxstackd.json",
            "--knx-port", self.port, "--device-stack-socket", self._hosts_socket]
        if self._network:
            command = self._network.command(command)
        self.host = self.start("knxstackd", command, environment=self._host_environment)
        self.wait_until_running()

    def wait_until_running(self, seconds=30):
        """Until the application program has finished its start and may be asked."""
        wait_until(self.is_ready, seconds, "the application program is ready")

    def is_ready(self):
        return self.value("ready") == "1"

    def dsctl(self, *arguments, check=True):
        return run([BIN / "dsctl", "--socket", self.socket, *arguments], check=check)

    def knxstackctl_command(self):
        return [BIN / "knxstackctl", "--socket", self.configuration / "knxstackd.sock", "--json"]

    def knxstackctl(self, *arguments):
        """The result as an object, where there is one."""
        _, output, _ = run([*self.knxstackctl_command(), *arguments])
        return json.loads(output) if output.strip() else None

    def value(self, name):
        """The value's text as dsctl prints it for other programs; None without a value."""
        status, output, _ = self.dsctl("--json", "get", name, check=False)
        if status != 0:
            return None
        return json.loads(output.splitlines()[0])["value"]

    def set(self, name, value):
        self.dsctl("set", name, value)

    def watch(self, *patterns):
        """Changes from now on of the data points whose names match a pattern, and what applications announce."""
        return Changes(self, patterns)


class Monitor:
    """What "knxstackctl monitor" prints of a house's host: every telegram, each once."""

    def __init__(self, house):
        self._house = house
        self._process = house.start("knxstackctl", [*house.knxstackctl_command(), "monitor"])
        wait_until(self._hears, 20, "knxstackctl monitors")

    def _hears(self):
        self._house.knxstackctl("inject", "2900bce0fffeffff010000")  # 15.15.254 asks for 31/7/255, which nobody has
        return self._process.count("31/7/255")

    def all(self):
        """The "params" of the control protocol's telegrams, in order."""
        telegrams = [json.loads(text) for text in self._process.texts()]
        return [t for t in telegrams if t["destination"] != "31/7/255"]

    def numbers(self, address, via):
        """Values of the GroupValue_Writes to the address that came `via` (a prefix), as numbers."""
        return [int(t["value"]) for t in self.all()
                if t["destination"] == address and t["via"].startswith(via) and t["service"] == "GroupValue_Write"]


class KnxTool:
    """knxtool as the person at the bus: it speaks to the knxd at the URL."""

    PROBE = "31/7/255"  # no group object of the example

    def __init__(self, house, url):
        self._house = house
        self.url = url

    def write(self, address, data):
        """A group write. `data`: an int for values of up to 6 bits, bytes for longer ones."""
        if isinstance(data, int):
            run(["knxtool", "groupswrite", self.url, address, f"{data:x}"])
        else:
            run(["knxtool", "groupwrite", self.url, address, *[f"{byte:02x}" for byte in data]])

    def read(self, address):
        """A group read without waiting for the answer."""
        run(["knxtool", "groupread", self.url, address])

    def listen(self):
        """Every group telegram that reaches knxd from now on, and those of its clients."""
        telegrams = Telegrams(self._house.start("knxtool", [
            "stdbuf", "-oL", "knxtool", "groupsocketlisten", self.url]))

        def hears():
            self.write(self.PROBE, 0)
            return telegrams.process.count(self.PROBE)
        wait_until(hears, 20, "knxtool listens")
        return telegrams


class Knxd(KnxTool):
    """knxd attached to the house as a tunnelling client. `filters`: arguments for what its telegrams pass on the way."""

    def __init__(self, house, filters=()):
        super().__init__(house, f"local:{house.directory}/knxd.sock")
        self.process = house.start("knxd", [
            "knxd", "-e", "1.1.20", "-E", "1.1.21:8", "-u", f"{house.directory}/knxd.sock",
            *filters, "-b", f"ipt:127.0.0.1:{house.port}"])
        wait_until((house.directory / "knxd.sock").exists, 20, "knxd listens")
        house.host.wait_for_line("connected by", 20)


class KnxdInterface(KnxTool):
    """knxd as the KNX/IP interface of a house, in a `network` whose knx0 has an address and a default route. knxtool
    speaks to the same knxd, from the other side of the tunnel."""

    CLIENTS = [f"1.1.{number}" for number in range(31, 39)]

    def __init__(self, house, network=None):
        self.socket = house.directory / "interface.sock"
        self._network = network
        super().__init__(house, f"local:{self.socket}")

    def start(self):
        self.socket.unlink(missing_ok=True)
        command = ["knxd", "-e", "1.1.30", "-E", f"{self.CLIENTS[0]}:{len(self.CLIENTS)}", "-u", self.socket,
                   "-D", "-T", "-I", "knx0", "-S224.0.23.12:3671", "-b", "dummy:"]
        self.process = self._house.start("knxd", self._network.command(command) if self._network else command)
        wait_until(self.socket.exists, 20, "knxd listens")


class Telegrams:
    """Group telegrams in the order in which knxtool printed them: (service, source, destination, data)."""

    LINE = re.compile(r"(Write|Response|Read) from (\S+) to ([\d/]+)(?::\s*((?:[0-9A-Fa-f]{2}\s*)*))?")

    def __init__(self, process):
        self.process = process
        self._own_life = {row["address"] for row in all_group_addresses() if not is_named(row)}

    def heard(self):
        telegrams = []
        for text in self.process.texts():
            match = self.LINE.search(text)
            if match and match.group(3) != KnxTool.PROBE:
                data = bytes.fromhex((match.group(4) or "").replace(" ", ""))
                telegrams.append((match.group(1), match.group(2), match.group(3), data))
        return telegrams

    def all(self):
        """Without those of data points that have a life of their own."""
        return [telegram for telegram in self.heard() if telegram[2] not in self._own_life]

    def to(self, address):
        return [telegram for telegram in self.heard() if telegram[2] == address]


class Changes:
    """What "dsctl watch" printed: changes in order, as (name, value, origin), and the names of events in order."""

    PROBE = "House.Scene.Learn"  # bound to no group object

    def __init__(self, house, patterns):
        process = house.start("dsctl watch", [
            BIN / "dsctl", "--socket", house.socket, "--json", "watch", "--events", *patterns, self.PROBE])
        self._process = process

        def watches():
            house.set(self.PROBE, "64")
            return process.count(self.PROBE)
        wait_until(watches, 20, "dsctl watches")

    def _lines(self):
        return [json.loads(text) for text in self._process.texts()]

    def all(self):
        return [(c["name"], c["value"], c["origin"]) for c in self._lines() if c.get("name") not in (None, self.PROBE)]

    def events(self):
        return [line["event"] for line in self._lines() if "event" in line]
