"""What the scripts of this folder have in common: the player of the folder BIN, their first argument, steered through
its socket, and how they judge it."""

import json
import pathlib
import socket
import subprocess
import sys
import threading
import time

PLAYER = pathlib.Path(sys.argv[1]).resolve() / "vemo_player"
PATIENCE = 30


class Fault(AssertionError):
    pass


def same(found, wanted, what=""):
    if found != wanted:
        raise Fault(f"{what} {found!r} instead of {wanted!r}")


def wait_for(condition, what, patience=PATIENCE):
    end = time.monotonic() + patience
    while not condition():
        if time.monotonic() > end:
            raise Fault(f"in vain waited for {what}")
        time.sleep(0.02)


def passes(test, *arguments):
    try:
        test(*arguments)
        return True
    except (Fault, OSError, ValueError, KeyError, EOFError, subprocess.SubprocessError) as fault:
        print(f"FAILED {test.__name__}: {fault}")
        return False


def told(passed, failed):
    """The last line of a script, and its status."""
    print(f"{passed} passed, {failed} failed")
    return 1 if failed else 0


class Player:
    """A player that plays in the background."""

    def __init__(self, socket_path, *arguments, **options):
        self.socket_path = socket_path
        self.process = subprocess.Popen([PLAYER, "play", *arguments, "--serve", socket_path], text=True,
                                        stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE,
                                        **options)
        # Read all the time: a full pipe would hold the player's main thread.
        self.said = []
        threading.Thread(target=lambda: self.said.extend(self.process.stderr), daemon=True).start()
        self.connection = None

    def connect(self, until):
        """Whether it listens by then."""
        while time.monotonic() < until:
            if self.process.poll() is not None:
                raise Fault(f"ended with {self.process.returncode}: {''.join(self.said)!r}")
            connection = socket.socket(socket.AF_UNIX)
            connection.settimeout(PATIENCE)
            try:
                connection.connect(str(self.socket_path))
            except OSError:
                connection.close()
                time.sleep(0.01)
                continue
            self.connection = connection
            self.lines = connection.makefile("r")
            return True
        return False

    def do(self, command):
        self.connection.sendall(f"{command}\n".encode())
        line = self.lines.readline()
        if not line:
            raise Fault(f"no answer to {command}: {''.join(self.said)!r}")
        return json.loads(line)
