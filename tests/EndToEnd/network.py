"""Networks of a test's own: namespaces, cables between them, and what stands in between.

A test that needs them calls enter() before anything else. It then runs anew as the first process of namespaces for
processes, mounts and the network. When it ends, even by SIGKILL, the system ends every process that it started, and with
the last of them every network is gone, and temporary files with it. Nothing is left behind, and the machine's own
network is never touched.
"""

import ctypes
import os
import pathlib
import select
import socket
import subprocess
import sys
import tempfile
import threading

from processes import Failure, run

SKIPPED = 77  # what ctest takes for "not run"
_INSIDE = "KNX_TEST_NAMESPACES"
_TEMPORARY = "/dev/shm"  # a directory that every machine has and no test needs
_CLONE_NEWNET = 0x40000000
_libc = ctypes.CDLL(None, use_errno=True)


def enter():
    """Runs the test again where it may make networks; ends it as skipped where the machine does not allow that."""
    if os.environ.get(_INSIDE) == "1":
        run(["ip", "link", "set", "lo", "up"])
        run(["mount", "-t", "tmpfs", "tmpfs", _TEMPORARY])
        tempfile.tempdir = _TEMPORARY
        return
    map_root = [] if os.geteuid() == 0 else ["--user", "--map-root-user"]
    command = ["unshare", *map_root, "--net", "--mount", "--pid", "--fork", "--kill-child", "--mount-proc"]
    try:
        tried = subprocess.run([*command, "ip", "link", "add", "knx0", "type", "veth", "peer", "name", "knx1"],
                               stdin=subprocess.DEVNULL, capture_output=True, text=True, check=False)
        reason = tried.stderr.strip() if tried.returncode != 0 else None
    except OSError as error:
        reason = str(error)
    if reason is not None:
        print(f"skipped: this machine lets nobody make network namespaces with veth pairs: {reason}")
        sys.exit(SKIPPED)
    os.execvpe(command[0], [*command, sys.executable, *sys.argv], dict(os.environ, **{_INSIDE: "1"}))


def _call(name, *arguments):
    if getattr(_libc, name)(*arguments) != 0:
        raise OSError(ctypes.get_errno(), f"{name}: {os.strerror(ctypes.get_errno())}")


def _in_thread(work):
    """What `work` returns or raises. A thread may change its network namespace without any other noticing."""
    outcome = []

    def call():
        try:
            outcome.append((work(), None))
        except BaseException as error:  # handed to the caller
            outcome.append((None, error))
    thread = threading.Thread(target=call)
    thread.start()
    thread.join()
    result, error = outcome[0]
    if error is not None:
        raise error
    return result


def set_hosts(**addresses):
    """Names that the programs of this test find, instead of those in /etc/hosts; may be called again."""
    file = pathlib.Path(_TEMPORARY, "hosts")
    is_new = not file.exists()
    file.write_text("127.0.0.1 localhost\n" + "".join(f"{address} {name}\n" for name, address in addresses.items()),
                    encoding="ascii")
    if is_new:
        run(["mount", "--bind", file, "/etc/hosts"])


class Namespace:
    """A network that has nothing but its loopback interface. It lasts as long as this object or a process in it."""

    def __init__(self):
        def make():
            _call("unshare", _CLONE_NEWNET)
            return os.open("/proc/thread-self/ns/net", os.O_RDONLY)
        self.descriptor = _in_thread(make)
        self.path = f"/proc/{os.getpid()}/fd/{self.descriptor}"
        self.ip("link set lo up")

    def command(self, arguments):
        """The command that runs a program in here, with the process id of whoever starts it."""
        return ["nsenter", f"--net={self.path}", *arguments]

    def ip(self, arguments):
        run(self.command(["ip", *arguments.split()]))

    def call(self, work):
        """Runs `work` in a thread in here: sockets that it makes belong to this network for ever."""
        def enter_and_work():
            _call("setns", self.descriptor, _CLONE_NEWNET)
            return work()
        return _in_thread(enter_and_work)

    def close(self):
        os.close(self.descriptor)


class Translator:
    """A router that translates addresses, as far as the two sides can tell: what clients send to `inner` by UDP comes to
    `server` from a port of its own for each of them, and answers go back. What comes from elsewhere is dropped."""

    def __init__(self, namespace, inner, outer, server):
        """`inner`: endpoint that clients take for the server. `outer`: address that the server sees. `server`: its
        endpoint."""
        self._namespace = namespace
        self._outer = outer
        self._server = server
        self._inner = namespace.call(lambda: self._bound(inner))
        self._mappings = {}  # client: socket
        self._open = True
        self._remembers = threading.Event()
        self._remembers.set()
        self._thread = threading.Thread(target=self._translate, daemon=True)
        self._thread.start()

    def forget(self):
        """Clients get other ports with what they send next, and nothing comes in by the old ones."""
        self._remembers.clear()
        if not self._remembers.wait(20):
            raise Failure("the translator does not forget")

    def close(self):
        self._open = False
        self._thread.join()

    @staticmethod
    def _bound(endpoint):
        udp = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        udp.bind(endpoint)
        return udp

    def _mapping_of(self, client):
        if client not in self._mappings:
            mapping = self._namespace.call(lambda: self._bound((self._outer, 0)))
            mapping.connect(self._server)
            self._mappings[client] = mapping
        return self._mappings[client]

    def _translate(self):
        while self._open:
            readable, _, _ = select.select([self._inner, *self._mappings.values()], [], [], 0.1)
            for udp in readable:
                self._pass_on(udp)
            if not self._remembers.is_set():
                self._close_mappings()
                self._remembers.set()
        self._close_mappings()
        self._inner.close()

    def _pass_on(self, udp):
        try:
            if udp is self._inner:
                data, client = udp.recvfrom(2048)
                self._mapping_of(client).send(data)
            else:
                client = next(c for c, mapping in self._mappings.items() if mapping is udp)
                self._inner.sendto(udp.recv(2048), client)
        except OSError:
            pass  # nobody is there: lost

    def _close_mappings(self):
        for mapping in self._mappings.values():
            mapping.close()
        self._mappings.clear()


class Cable:
    """A pair of Ethernet interfaces, one in each of two namespaces: `name` with the first address and its peer with the
    second one (192.0.2.1/24 or the like). Multicast goes this way."""

    def __init__(self, name, first, first_address, second, second_address, second_name=None):
        """`second_name`: of the interface of the second namespace, if not the same."""
        self._ends = ((name, first, first_address), (second_name or name, second, second_address))
        self.plug_in()

    def plug_in(self):
        """The interfaces are made, with their addresses."""
        (name, first, _), (second_name, second, _) = self._ends
        first.ip(f"link add {name} type veth peer name {second_name} netns {second.path}")
        for end, namespace, address in self._ends:
            namespace.ip(f"addr add {address} dev {end}")
            namespace.ip(f"link set {end} up")
            namespace.ip(f"route append 224.0.0.0/4 dev {end}")

    def pull_out(self):
        """Both interfaces are gone, with their addresses."""
        name, namespace, _ = self._ends[0]
        namespace.ip(f"link del {name}")

    def down(self, end=0):
        """One interface is switched off; the other one sees that it has no carrier."""
        name, namespace, _ = self._ends[end]
        namespace.ip(f"link set {name} down")

    def up(self, end=0):
        name, namespace, _ = self._ends[end]
        namespace.ip(f"link set {name} up")
        namespace.ip(f"route replace 224.0.0.0/4 dev {name}")

