#!/usr/bin/python3
"""lost_terminals.py BIN [COUNT]: plays a show as its operator does, on COUNT terminals that get lost, and finds the
music going on.

Needs python3-mido for the song. Ends with "N passed, N failed".
"""

import fcntl
import json
import os
import pathlib
import pty
import random
import select
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import termios
import time

import mido

from player_under_test import PATIENCE, PLAYER, passes, same, told, wait_for

COUNT = int(sys.argv[2]) if len(sys.argv) > 2 else 10
SEED = 4


class Terminal:
    """A program at a terminal of its own, which nobody reads unless told to."""

    def __init__(self, stage, *arguments, columns=80, rows=24, term="xterm-256color"):
        self.shown = b""
        self.pid, self.master = pty.fork()
        if self.pid == 0:
            os.chdir(stage.folder)
            os.execve(PLAYER, [str(PLAYER), *map(str, arguments)], {**stage.environment, "TERM": term})
        self.resize(columns, rows)

    def resize(self, columns, rows):
        fcntl.ioctl(self.master, termios.TIOCSWINSZ, struct.pack("HHHH", rows, columns, 0, 0))

    def press(self, keys):
        os.write(self.master, keys.encode())

    def wait_for(self, text, patience=PATIENCE):
        """Reads until the text has been written since the last call."""
        end = time.monotonic() + patience
        while text.encode() not in self.shown:
            if time.monotonic() > end:
                raise AssertionError(f"the terminal never shows {text!r}, but {self.shown[-600:]!r}")
            if select.select([self.master], [], [], 0.1)[0]:
                try:
                    self.shown += os.read(self.master, 65536)
                except OSError:
                    raise AssertionError(f"the terminal ended before {text!r}: {self.shown[-600:]!r}") from None
        self.shown = self.shown.split(text.encode(), 1)[1]

    def lose(self):
        os.close(self.master)

    def wait_for_end(self, patience=PATIENCE):
        """The exit status; what is written meanwhile is read."""
        end = time.monotonic() + patience
        while True:
            pid, status = os.waitpid(self.pid, os.WNOHANG)
            if pid == self.pid:
                return os.waitstatus_to_exitcode(status)
            if time.monotonic() > end:
                os.kill(self.pid, signal.SIGKILL)
                os.waitpid(self.pid, 0)
                raise AssertionError("the screen does not end")
            try:
                if select.select([self.master], [], [], 0.05)[0]:
                    self.shown += os.read(self.master, 65536)
            except (OSError, ValueError):
                time.sleep(0.02)


class Stage:
    """A folder with a long show, and whatever runs in it."""

    def __init__(self, folder):
        self.folder = pathlib.Path(folder)
        self.socket = self.folder / "vemo_player.sock"
        self.environment = {**os.environ, "XDG_RUNTIME_DIR": str(folder), "LC_ALL": "C.UTF-8"}
        midi = mido.MidiFile(type=1, ticks_per_beat=96)
        track = mido.MidiTrack()
        for beat in range(4 * 400):
            track.append(mido.Message("note_on", note=60 + beat % 12, velocity=80, time=48 if beat else 0))
            track.append(mido.Message("note_off", note=60 + beat % 12, velocity=64, time=48))
        midi.tracks.append(track)
        midi.save(self.folder / "song.mid")
        same(self.run("new", "show.json", "song.mid").returncode, 0, "status of new:")

    def run(self, *arguments):
        return subprocess.run([PLAYER, *map(str, arguments)], stdin=subprocess.DEVNULL, capture_output=True, text=True,
                              timeout=60, cwd=self.folder, env=self.environment)

    def send(self, *words):
        answer = self.run("send", *words)
        return json.loads(answer.stdout) if answer.stdout else {"done": False, "message": answer.stderr}

    def player(self):
        """The player's process, as its socket names it; None where none listens."""
        with socket.socket(socket.AF_UNIX) as client:
            try:
                client.connect(str(self.socket))
            except OSError:
                return None
            credentials = client.getsockopt(socket.SOL_SOCKET, socket.SO_PEERCRED, struct.calcsize("3i"))
            return struct.unpack("3i", credentials)[0]

    def place(self):
        """Seconds of the song, of music that plays."""
        answer = self.send("state")
        same(answer["state"]["state"], "playing", "the music is")
        return answer["position"]["seconds"]

    def goes_on(self, what):
        """The music moves, about as fast as time does."""
        before, start = self.place(), time.monotonic()
        time.sleep(0.3)
        moved, took = self.place() - before, time.monotonic() - start
        if not 0.1 < moved < took + 0.5:
            raise AssertionError(f"{what}: the music moved by {moved:.2f} s in {took:.2f} s")

    def start(self):
        terminal = Terminal(self, "play", "show.json")
        terminal.wait_for("STOPPED")
        terminal.press(" ")
        terminal.wait_for("PLAYING")
        # What is heard follows what is played by a display's delay.
        wait_for(lambda: self.place() > 0, "the music to move")
        return terminal

    def wait_for_no_player(self):
        wait_for(lambda: self.player() is None and not self.socket.exists(), "the player's end")

    def close(self):
        if (player := self.player()) is not None:
            os.kill(player, signal.SIGKILL)


def lost_terminals_leave_the_music_alone(stage):
    terminal = stage.start()
    player = stage.player()
    terminal.lose()
    terminal.wait_for_end()
    stage.goes_on("after the first terminal was lost")
    chance = random.Random(SEED)
    ways = ["hang-up", "killed", "stopped", "blocked", "resized", "left"]
    for number in range(COUNT):
        way = ways[number % len(ways)]
        terminal = Terminal(stage, "attach", columns=chance.randrange(20, 200), rows=chance.randrange(5, 60))
        terminal.wait_for("PLAYING")
        if way == "killed":
            os.kill(terminal.pid, signal.SIGKILL)
        elif way == "stopped":
            terminal.press("\x1a")
            time.sleep(0.1)
        elif way == "blocked":
            for _ in range(20):
                terminal.press("?x")
                terminal.resize(chance.randrange(80, 300), chance.randrange(24, 100))
                time.sleep(0.02)
        elif way == "resized":
            for _ in range(30):
                terminal.resize(chance.randrange(1, 200), chance.randrange(1, 60))
                time.sleep(0.005)
        elif way == "left":
            terminal.press("l")
            same(terminal.wait_for_end(), 0, "status of a screen that was left:")
        stage.goes_on(f"terminal {number}, {way}")
        terminal.lose()
        if way != "left":
            if way == "stopped":
                os.kill(terminal.pid, signal.SIGCONT)
            terminal.wait_for_end()
    same(stage.player(), player, "the player is")
    stage.goes_on("at last")
    terminal = Terminal(stage, "attach")
    terminal.wait_for("PLAYING")
    terminal.press("q")
    terminal.wait_for("The music plays.")
    terminal.press("n")
    stage.goes_on("after quitting was not meant")
    terminal.press("q")
    terminal.wait_for("The music plays.")
    terminal.press("y")
    same(terminal.wait_for_end(), 0, "status:")
    stage.wait_for_no_player()


def ctrl_c_asks_and_show_mode_wants_every_key_twice(stage):
    terminal = stage.start()
    terminal.press("\x03")
    terminal.wait_for("The music plays.")
    terminal.press(" ")
    terminal.press("s")
    terminal.wait_for("Press s again to stop")
    stage.goes_on("after s")
    terminal.press("x")
    stage.goes_on("after panic")
    terminal.press("\tn")
    terminal.wait_for("REHEARSAL")
    terminal.press("s")
    terminal.wait_for("STOPPED")
    terminal.press("g9:3\r")
    terminal.press(":tempo 0.5\r")
    terminal.wait_for("scale 50%")
    same([stage.send("state")["position"][name] for name in ("bar", "beat")], [9, 3], "the place is")
    terminal.press("q")
    same(terminal.wait_for_end(), 0, "status:")
    stage.wait_for_no_player()


def a_terminal_without_colours_or_utf8_is_enough(stage):
    stage.environment["LC_ALL"] = "C"
    terminal = Terminal(stage, "play", "show.json", term="vt100")
    terminal.wait_for("NEXT")
    terminal.press(" ")
    terminal.wait_for("PLAYING")
    terminal.press("qy")
    same(terminal.wait_for_end(), 0, "status:")
    if any(byte >= 0x80 for byte in terminal.shown):
        raise AssertionError("bytes beyond ASCII")
    same(Terminal(stage, "attach").wait_for_end(), 2, "status without a player:")


def send_answers_and_one_player_is_enough(stage):
    same(stage.run("send", "state").returncode, 2, "status without a player:")
    terminal = stage.start()
    second = Terminal(stage, "play", "show.json")
    same(second.wait_for_end(), 2, "status of a second player:")
    run = stage.run("send", "tempo", "up")
    same((run.returncode, json.loads(run.stdout)["done"]), (0, True), "send:")
    run = stage.run("send", "quit")
    same((run.returncode, json.loads(run.stdout)["done"]), (1, False), "quit while the music plays:")
    stage.goes_on("after a refused quit")
    same(stage.send("quit", "now")["done"], True, "quit now:")
    terminal.wait_for_end()
    stage.wait_for_no_player()


def what_a_killed_player_leaves_is_in_nobodys_way(stage):
    terminal = stage.start()
    os.kill(stage.player(), signal.SIGKILL)
    same(terminal.wait_for_end(), 1, "status of a screen whose player is killed:")
    same(stage.socket.exists(), True, "the socket is left:")
    terminal = stage.start()
    terminal.press("qy")
    same(terminal.wait_for_end(), 0, "status:")
    (stage.folder / "show.json").write_text("{")
    terminal = Terminal(stage, "play", "show.json")
    same(terminal.wait_for_end(), 2, "status for a broken show:")
    if b"show.json" not in terminal.shown:
        raise AssertionError(f"the terminal does not tell what is wrong: {terminal.shown!r}")


TESTS = [
    lost_terminals_leave_the_music_alone,
    ctrl_c_asks_and_show_mode_wants_every_key_twice,
    a_terminal_without_colours_or_utf8_is_enough,
    send_answers_and_one_player_is_enough,
    what_a_killed_player_leaves_is_in_nobodys_way,
]


def main():
    passed = 0
    for test in TESTS:
        with tempfile.TemporaryDirectory() as folder:
            stage = Stage(folder)
            try:
                passed += passes(test, stage)
            finally:
                stage.close()
    return told(passed, len(TESTS) - passed)


if __name__ == "__main__":
    sys.exit(main())
