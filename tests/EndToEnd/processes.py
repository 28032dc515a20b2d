"""Child processes of a test: started with their output kept, ended by their own process id."""

import os
import signal
import subprocess
import threading
import time


class Failure(AssertionError):
    """A test's expectation that did not come true in time."""


def wait_until(condition, seconds, what):
    """Polls `condition` until it is true; its result, or a Failure that says what was waited for."""
    end = time.monotonic() + seconds
    while True:
        result = condition()
        if result:
            return result
        if time.monotonic() > end:
            raise Failure(f"not within {seconds} s: {what}")
        time.sleep(0.02)


class Process:
    """A program with its standard output and error collected line by line, with the time of each line."""

    def __init__(self, name, arguments, directory=None, environment=None):
        self.name = name
        self.lines = []  # (monotonic time, text)
        self._lock = threading.Lock()
        full = dict(os.environ, LC_ALL="C.UTF-8", **(environment or {}))
        self._child = subprocess.Popen(
            [str(a) for a in arguments], cwd=directory, env=full, stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, errors="replace",
            bufsize=1, start_new_session=True)
        self._reader = threading.Thread(target=self._read, daemon=True)
        self._reader.start()

    def _read(self):
        for line in self._child.stdout:
            with self._lock:
                self.lines.append((time.monotonic(), line.rstrip("\n")))

    def texts(self):
        with self._lock:
            return [text for _, text in self.lines]

    def count(self, part):
        return sum(part in text for text in self.texts())

    def wait_for_line(self, part, seconds=20, after=0):
        """The first line from number `after` on that contains `part`."""
        def found():
            for text in self.texts()[after:]:
                if part in text:
                    return text
            if not self.is_running():
                raise Failure(f"{self.name} ended with {self._child.returncode}:\n" + self.log())
            return None
        try:
            return wait_until(found, seconds, f"{self.name} says '{part}'")
        except Failure as failure:
            raise Failure(f"{failure}\n{self.log()}") from None

    def log(self):
        return "\n".join(f"  {self.name}: {text}" for text in self.texts()[-60:])

    @property
    def pid(self):
        return self._child.pid

    def is_running(self):
        return self._child.poll() is None

    def signal(self, number):
        self._child.send_signal(number)

    def kill(self):
        """As a crash would: SIGKILL."""
        self._child.kill()
        self._child.wait()

    def freeze(self):
        self.signal(signal.SIGSTOP)

    def thaw(self):
        self.signal(signal.SIGCONT)

    def resident_bytes(self):
        with open(f"/proc/{self.pid}/status", encoding="ascii") as status:
            for line in status:
                if line.startswith("VmRSS:"):
                    return int(line.split()[1]) * 1024
        raise Failure(f"{self.name} has no VmRSS")

    def stop_cleanly(self, seconds=15):
        """SIGTERM. A Failure when the process does not end in time, not with 0, or complained of itself."""
        self.signal(signal.SIGCONT)
        self.signal(signal.SIGTERM)
        try:
            status = self._child.wait(seconds)
        except subprocess.TimeoutExpired:
            self.kill()
            raise Failure(f"{self.name} did not end within {seconds} s of SIGTERM\n{self.log()}") from None
        self._reader.join(5)
        complaint = any(word in text for text in self.texts()
                        for word in ("AddressSanitizer", "LeakSanitizer", "ThreadSanitizer", "runtime error:"))
        if status != 0 or complaint:
            raise Failure(f"{self.name} ended with {status}\n{self.log()}")

    def close(self):
        """Frees what the test holds of an ended process."""
        self._reader.join(2)
        self._child.stdout.close()


def run(arguments, seconds=20, check=True, environment=None):
    """Runs a program to its end: (exit status, standard output, standard error)."""
    done = subprocess.run([str(a) for a in arguments], stdin=subprocess.DEVNULL, capture_output=True, text=True,
                          errors="replace", timeout=seconds,
                          env=dict(os.environ, LC_ALL="C.UTF-8", **(environment or {})))
    if check and done.returncode != 0:
        raise Failure(f"{' '.join(map(str, arguments))} ended with {done.returncode}: "
                      f"{done.stdout}{done.stderr}")
    return done.returncode, done.stdout, done.stderr
