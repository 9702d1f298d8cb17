#!/usr/bin/python3
"""Does a show tell its place as MIDI Time Code, and does the player's own receiver follow it?

    time_code_of_a_show.py BIN

Plays shows offline with their time code recorded, decodes the messages with a receiver of this script's own, which
knows nothing of the player's, and compares what both found.
"""

import json
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parents[2]
RATES = {"24": (24, 0), "25": (25, 1), "29.97df": (30, 2), "30": (30, 3)}
failures = []
passed = 0


def check(what, holds, shown=""):
    global passed
    if holds:
        passed += 1
    else:
        failures.append(f"{what}: {shown}")


def run(binary, *arguments, status=0):
    result = subprocess.run([binary, *map(str, arguments)], capture_output=True, text=True, timeout=120,
                            stdin=subprocess.DEVNULL)
    check(f"{' '.join(map(str, arguments))}: status", result.returncode == status,
          f"{result.returncode}: {result.stderr}")
    return result


def real_frame(hours, minutes, seconds, frames, rate):
    """Counted from midnight, by walking the minutes and leaving out what is dropped."""
    per_second, code = RATES[rate]
    if code != 2:
        return ((hours * 60 + minutes) * 60 + seconds) * per_second + frames
    count = 0
    for minute in range(hours * 60 + minutes):
        count += 1800 if minute % 10 == 0 else 1798
    within = seconds * 30 + frames
    return count + within - (0 if minutes % 10 == 0 else 2)


def frame_seconds(rate):
    return 1 / 29.97 if rate == "29.97df" else 1 / RATES[rate][0]


class Receiver:
    def __init__(self, rate):
        self.rate = rate
        self.full = []
        self.cycles = []  # (time of piece 0, real frame told)
        self.codes = set()
        self.gaps = 0
        self.bursts = 0
        self.nibbles = {}
        self.start = 0.0
        self.next = None
        self.latest = []

    def take(self, seconds, data):
        if data[0] == 0xF0:
            hours = data[5] & 0x1F
            self.codes.add(data[5] >> 5)
            self.full.append((seconds, real_frame(hours, data[6], data[7], data[8], self.rate)))
            self.next = None
            self.nibbles = {}
            self.latest = []
            return
        self.latest = [time for time in self.latest if seconds - time < 1e-9] + [seconds]
        self.bursts = max(self.bursts, len(self.latest))
        piece, nibble = data[1] >> 4, data[1] & 0x0F
        if self.next is not None and piece != self.next:
            self.gaps += 1
            self.nibbles = {}
        self.next = (piece + 1) % 8
        if piece == 0:
            self.nibbles = {}
            self.start = seconds
        self.nibbles[piece] = nibble
        if piece == 7 and len(self.nibbles) == 8:
            n = self.nibbles
            self.codes.add(n[7] >> 1)
            self.cycles.append((self.start, real_frame(n[6] | (n[7] & 1) << 4, n[4] | n[5] << 4, n[2] | n[3] << 4,
                                                       n[0] | n[1] << 4, self.rate)))


def read(path, rate):
    receiver = Receiver(rate)
    for line in path.read_text().splitlines():
        message = json.loads(line)
        receiver.take(message["seconds"], bytes.fromhex(message["bytes"]))
    return receiver


def play_song(binary, folder, rate, start):
    song = sorted((ROOT / "player/demo").glob("*.mid"))[0]
    path = folder / f"{rate}.jsonl"
    run(binary, "play", "--offline", "--mtc", rate, "--mtc-start", start, "--mtc-record", path, song)
    receiver = read(path, rate)
    first = receiver.full[0][1]
    hours, minutes, seconds, frames = map(int, re.split("[:;]", start))
    check(f"{rate}: begins at {start}", first == real_frame(hours, minutes, seconds, frames, rate), first)
    check(f"{rate}: its code alone", receiver.codes == {RATES[rate][1]}, receiver.codes)
    check(f"{rate}: no gaps", receiver.gaps == 0, receiver.gaps)
    # Up to three that reach the place within its frame, and the clock's first.
    check(f"{rate}: no burst", receiver.bursts <= 4, receiver.bursts)
    steps = {after[1] - before[1] for before, after in zip(receiver.cycles, receiver.cycles[1:])}
    check(f"{rate}: every cycle two frames on", steps == {2}, steps)
    # The song plays as written, so that its time is the clock's: within the span of a MIDI clock.
    worst = max(abs((frame - first) * frame_seconds(rate) - seconds) for seconds, frame in receiver.cycles)
    check(f"{rate}: the time is told when it is", worst < 0.1, worst)

    followed = run(binary, "timecode", path).stdout
    check(f"{rate}: the player's receiver finds no fault", re.search(r" 0 missing, 0 jumps$", followed, re.M),
          followed[-300:])
    pieces = sum(1 for line in path.read_text().splitlines() if '"F1' in line)
    check(f"{rate}: and every piece", f"{pieces} pieces, {len(receiver.full)} full frames" in followed, followed[-300:])
    label = start if rate != "29.97df" else ";".join(start.rsplit(":", 1))
    check(f"{rate}: and the beginning", f"  {label}  " in followed, followed[:200])


def play_show(binary, folder):
    """An evening with songs that follow at once, pauses and songs that start on a key: a full frame where it jumps."""
    path = folder / "evening.jsonl"
    # Its rate is kept beside it.
    shows = shutil.copytree(ROOT / "shows", folder / "shows")
    run(binary, "play", "--offline", "--mtc", "25", "--mtc-record", path, shows / "evening.json")
    receiver = read(path, "25")
    check("evening: no gaps", receiver.gaps == 0, receiver.gaps)
    check("evening: pieces", len(receiver.cycles) > 1000, len(receiver.cycles))
    songs = len(json.loads((ROOT / "shows/evening.json").read_text())["songs"])
    check("evening: a full frame for each song", len(receiver.full) >= songs, len(receiver.full))


def moved_songs(binary, folder):
    shows = shutil.copytree(ROOT / "shows", folder / "moved")
    path = shows / "evening.json"
    check("verify: nothing has moved yet", "when the show was verified" not in run(binary, "verify", path).stderr, "")
    show = json.loads(path.read_text())
    gone = show["songs"].pop(0)["key"]
    show["setList"] = [entry for entry in show["setList"] if entry["song"] != gone]
    path.write_text(json.dumps(show))
    warned = run(binary, "verify", path)
    check("verify: every later song has moved", warned.stderr.count("when the show was verified before it was") ==
          len(show["songs"]), warned.stderr)
    check("verify: the first one to the beginning", " starts at 00:00:00:00 " in warned.stderr.splitlines()[0],
          warned.stderr)
    check("verify: said once", "when the show was verified" not in run(binary, "verify", path).stderr, "")


def refuse(binary, folder):
    song = sorted((ROOT / "player/demo").glob("*.mid"))[0]
    for arguments, text in [(["--mtc", "60"], "frame rate '60' is none of 24, 25, 29.97df and 30"),
                            (["--mtc", "24", "--mtc-start", "01:00:00:24"],
                             "the show cannot begin at 01:00:00:24: there is no such time at 24 fps"),
                            (["--mtc", "29.97df", "--mtc-start", "00:01:00;00"],
                             "the show cannot begin at 00:01:00:00: there is no such time at 29.97 fps drop"),
                            (["--mtc-start", "1:0:0"], "time '1:0:0' is not HH:MM:SS:FF, as 01:00:00:00"),
                            (["--mtc", "24", "--mtc-output", "Nowhere"], "no output device 'Nowhere'; there are "),
                            (["--mtc", "24", "--mtc-record", folder / "no" / "file"], "cannot write ")]:
        result = run(binary, "play", "--offline", *arguments, song, status=2)
        check(f"{arguments}: message", text in result.stderr, result.stderr)
    broken = folder / "broken.jsonl"
    for contents, text in [('{"seconds":1,"bytes":"F1 0"}\n', 'line 1: "bytes" are no pairs of digits'),
                           ('{"seconds":0,"bytes":"F1 00"}\n{"seconds":"x"}\n', "line 2: is no object of"),
                           ("\0", "line 1: ")]:
        broken.write_text(contents)
        result = run(binary, "timecode", broken, status=2)
        check(f"{contents!r}: message", f"broken.jsonl: {text}" in result.stderr, result.stderr)


def main():
    binary = pathlib.Path(sys.argv[1]).resolve() / "vemo_player"
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        for rate, start in [("24", "00:00:00:00"), ("25", "22:00:00:10"), ("29.97df", "01:00:00:00"),
                            ("30", "10:00:00:29")]:
            play_song(binary, folder, rate, start)
        play_show(binary, folder)
        moved_songs(binary, folder)
        refuse(binary, folder)
    for failure in failures:
        print("FAILED", failure)
    print(f"{passed} passed, {len(failures)} failed")
    return 1 if failures else 0


sys.exit(main())
