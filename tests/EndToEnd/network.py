"""Networks of a test's own: namespaces, cables between them, and what stands in between.

A test that needs them calls enter() before anything else. It then runs anew as the first process of namespaces for
processes, mounts and the network. When it ends, even by SIGKILL, the system ends every process that it started, and with
the last of them every network is gone; nothing is left behind, and the machine's own network is never touched.
"""

import ctypes
import os
import subprocess
import sys
import threading

from processes import run

SKIPPED = 77  # what ctest takes for "not run"
_INSIDE = "KNX_TEST_NAMESPACES"
_CLONE_NEWNET = 0x40000000
_libc = ctypes.CDLL(None, use_errno=True)


def enter():
    """Runs the test again where it may make networks; ends it as skipped where the machine does not allow that."""
    if os.environ.get(_INSIDE) == "1":
        run(["ip", "link", "set", "lo", "up"])
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


class Cable:
    """A pair of Ethernet interfaces, one in each of two namespaces: `name` with the first address and its peer with the
    second one (192.0.2.1/24 or the like). Multicast goes this way."""

    def __init__(self, name, first, first_address, second, second_address):
        self._name = name
        self._ends = ((first, first_address), (second, second_address))
        self.plug_in()

    def plug_in(self):
        """The interfaces are made, with their addresses."""
        (first, _), (second, _) = self._ends
        first.ip(f"link add {self._name} type veth peer name {self._name} netns {second.path}")
        for namespace, address in self._ends:
            namespace.ip(f"addr add {address} dev {self._name}")
            namespace.ip(f"link set {self._name} up")
            namespace.ip(f"route add 224.0.0.0/4 dev {self._name}")

    def pull_out(self):
        """Both interfaces are gone, with their addresses."""
        self._ends[0][0].ip(f"link del {self._name}")

    def down(self, end=0):
        """One interface is switched off; the other one sees that it has no carrier."""
        self._ends[end][0].ip(f"link set {self._name} down")

    def up(self, end=0):
        namespace, _ = self._ends[end]
        namespace.ip(f"link set {self._name} up")
        namespace.ip(f"route replace 224.0.0.0/4 dev {self._name}")

