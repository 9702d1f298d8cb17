#!/usr/bin/python3
"""command_line.py BIN: runs vemo_player as its users do, and judges statuses, messages, files and recordings.

Needs python3-mido for songs and recordings. Ends with "N passed, N failed".
"""

import json
import os
import pathlib
import signal
import subprocess
import sys
import tempfile
import time

import mido

from player_under_test import PLAYER, passes, same, told

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
DEMO = sorted((ROOT / "player" / "demo").glob("*.mid"))
sys.path.insert(0, str(ROOT / "tests" / "mido"))
import check_recording  # noqa: E402

REAL_FOLDERS = ("/usr/share/games/openttd", "/usr/share/mma", "/usr/share/games/planetblupi", "/usr/share/planetblupi")
MOST_REAL_FILES = 12


class Case:
    """The checks of one run of the player, in a folder of its own."""

    def __init__(self, folder):
        self.folder = pathlib.Path(folder)
        self.out = self.folder / "out.mid"

    def player(self, *arguments, **options):
        return subprocess.run([PLAYER, *map(str, arguments)], stdin=subprocess.DEVNULL, capture_output=True, text=True,
                              timeout=50, cwd=self.folder, **options)

    def file(self, name, content):
        path = self.folder / name
        path.write_bytes(content)
        return path

    def song(self, name="song.mid", bars=8, resolution=480, program=None, held=False):
        """In 4/4 at 120: on channel 1 a note a quarter, numbered by its bar (of 64); on channel 2 one that is held."""
        midi = mido.MidiFile(type=1, ticks_per_beat=resolution)
        notes = mido.MidiTrack()
        if program is not None:
            notes.append(mido.Message("program_change", channel=0, program=program))
        for beat in range(4 * bars):
            note = 40 + beat // 4 % 64
            notes.append(mido.Message("note_on", note=note, velocity=80, time=resolution // 2 if beat else 0))
            notes.append(mido.Message("note_off", note=note, velocity=64, time=resolution // 2))
        other = mido.MidiTrack()
        if held:
            other.append(mido.Message("note_on", channel=1, note=72, velocity=80))
            other.append(mido.Message("note_off", channel=1, note=72, velocity=64, time=4 * bars * resolution))
        notes.append(mido.MetaMessage("end_of_track", time=resolution // 2))
        midi.tracks += [notes, other]
        midi.save(self.folder / name)
        return self.folder / name

    def recorded(self):
        """(ticks of 0.1 ms, message) of the recording."""
        tick, messages = 0, []
        for message in mido.MidiFile(self.out).tracks[0]:
            tick += message.time
            if not message.is_meta:
                messages.append((tick, message))
        return messages

    def strikes(self, channel=0):
        return [(tick, m.note) for tick, m in self.recorded()
                if m.type == "note_on" and m.velocity > 0 and m.channel == channel]


def refused(case, arguments, *words, lines=1):
    """Status 2, one line that has the words, nothing on standard output, no file left."""
    before = sorted(os.listdir(case.folder))
    run = case.player(*arguments)
    same(run.returncode, 2, f"status of {arguments}, which said {run.stderr!r},")
    same(run.stdout, "", "standard output")
    if lines:
        same(len(run.stderr.splitlines()), lines, f"lines of {run.stderr!r}:")
    for word in words:
        if word not in run.stderr:
            raise AssertionError(f"no {word!r} in {run.stderr!r}")
    same(sorted(os.listdir(case.folder)), before, "files left behind:")


def bad_files_are_refused_in_one_line_and_change_nothing(case):
    song = case.song()
    whole = song.read_bytes()
    header = b"MThd\0\0\0\6\0\1\0\1\1\xe0"
    bad = {
        "empty.mid": b"",
        "truncated.mid": whole[:len(whole) // 2],
        "text.mid": b"this is no music at all, whatever its name says\n" * 20,
        "huge_chunk.mid": header + b"MTrk\xff\xff\xff\xff\0\xff\x2f\0",
        "format2.mid": b"MThd\0\0\0\6\0\2\0\1\1\xe0MTrk\0\0\0\4\0\xff\x2f\0",
        "no_tempo.mid": header + b"MTrk\0\0\0\x0b\0\xff\x51\3\0\0\0\0\xff\x2f\0",
        "no_beats.mid": header + b"MTrk\0\0\0\x0c\0\xff\x58\4\0\2\x18\x08\0\xff\x2f\0",
        "division_0.mid": b"MThd\0\0\0\6\0\1\0\1\0\0MTrk\0\0\0\4\0\xff\x2f\0",
        "endless.mid": header + b"MTrk\0\0\0\x13" + b"\xff\xff\xff\x7f\xff\1\0" * 2 + b"\xff\x7f\xff\x2f\0",
        "random.mid": header + b"MTrk\0\0\0\x40" + bytes((i * 37 + 11) & 0xFF for i in range(64)),
    }
    for name, content in bad.items():
        case.file(name, content)
        refused(case, ["play", "--offline", "--record", case.out, name], name)
        refused(case, ["inspect", name], name)
    (case.folder / "folder.mid").mkdir()
    for name in ("missing.mid", "folder.mid"):
        refused(case, ["play", "--offline", name], name)
        refused(case, ["inspect", name], name)
    case.out.write_bytes(b"the old one")
    refused(case, ["play", "--offline", "--record", case.out, song, "truncated.mid"], "truncated.mid", "byte")
    same(case.out.read_bytes(), b"the old one")


def wrong_requests_are_refused_before_anything_plays(case):
    song = case.song()
    play = ["play", "--offline", "--record", case.out]
    refused(case, [*play, "--no-such-option", song], "--no-such-option", lines=0)
    refused(case, [], lines=0)
    refused(case, ["play"], lines=0)
    for option, values in {"--tempo-scale": ("3", "0.49", "nan"), "--transpose": ("13",), "--mute": ("0", "17"),
                           "--from": ("0",)}.items():
        for value in values:
            refused(case, [*play, option, value, song], option, lines=0)
    refused(case, [*play, "--from", "10", song], "10:1")
    refused(case, [*play, "--to", "3", "--from", "3", song], "--to")
    refused(case, [*play, "--to", "3", song, song], "single file")
    refused(case, [*play, "--output", "Nonesuch", song], "Nonesuch")
    refused(case, [*play, "--output", "7", song], "7")
    refused(case, ["play", "--offline", "--record", case.folder / "no" / "such" / "out.mid", song], "out.mid")
    script = case.file("script", b"at 1:1 play\nat 2:1 tempo 3\n")
    refused(case, [*play, "--script", script, song], "line 2", "tempo scale '3'")
    refused(case, [*play, "--script", case.folder / "missing", song], "missing")


def devices_and_inspect_answer(case):
    run = case.player("devices")
    same((run.returncode, "Virtual MIDI Output" in run.stdout), (0, True))
    run = case.player("inspect", *DEMO)
    same((run.returncode, run.stderr), (0, ""))


def from_and_to_hold_to_the_tick(case):
    song = case.song(program=5, held=True)
    run = case.player("play", "--offline", "--record", case.out, "--from", 3, "--to", 5, song)
    same(run.returncode, 0, run.stderr)
    same(case.strikes(), [(5000 * beat, 42 + beat // 4) for beat in range(8)])
    same(case.strikes(1), [(0, 72)], "the held note")
    programs = [m.program for _, m in case.recorded() if m.type == "program_change" and m.channel == 0]
    same(programs[-1:], [5])
    channels, faults = check_recording.read_recording(case.out)
    for channel, messages in enumerate(channels):
        faults += check_recording.sounding(messages, channel)
    same(faults, [])


def controls_at_the_start_are_heard(case):
    song = case.song(bars=2, held=True)
    run = case.player("play", "--offline", "--record", case.out, "--tempo-scale", 2, "--transpose", -3, "--mute", 2,
                      "--mute", 9, song)
    same((run.returncode, len(run.stderr.splitlines())), (0, 1), run.stderr)
    same("channel 9" in run.stderr, True, run.stderr)
    same(case.strikes(), [(2500 * beat, 37 + beat // 4) for beat in range(8)])
    same(case.strikes(1), [])


def a_script_steers_between_clocks(case):
    song = case.song(bars=4)
    script = case.file("script", b"# rehearsal\nat 2:1 locate 4\nat 4:3 tempo 2\r\nat 1:1 locate 9\n")
    run = case.player("play", "--offline", "--record", case.out, "--script", script, song)
    same(run.returncode, 0, run.stderr)
    same("no beat 9:1" in run.stderr, True, run.stderr)
    same([note for _, note in case.strikes()], [40] * 4 + [43] * 4)
    same([tick for tick, _ in case.strikes()][:7], [0, 5000, 10000, 15000, 20000, 25000, 30000])


def two_offline_runs_are_identical(case):
    script = case.file("script", b"at 2:1 transpose 5\nat 3:2 mute 1\nat 4:1 unmute 1\nat 5:1 stop\nat 5:1 play\n")
    runs = []
    for _ in range(2):
        run = case.player("play", "--offline", "--json", "--record", case.out, "--script", script, *DEMO)
        same(run.returncode, 0, run.stderr)
        runs.append((case.out.read_bytes(), run.stdout))
    same(runs[0] == runs[1], True, "identical:")


def json_lines_tell_the_show_in_order(case):
    songs = [case.song("first.mid", bars=2), case.song("second.mid", bars=3)]
    run = case.player("play", "--offline", "--json", *songs)
    same((run.returncode, run.stderr), (0, ""))
    events = [json.loads(line) for line in run.stdout.splitlines()]
    keys = {"event", "song", "title", "bar", "beat", "tick", "seconds", "tempo", "meter", "key", "marker"}
    same([sorted(keys - event.keys()) for event in events if keys - event.keys()], [], "missing keys")
    for number, bars in ((1, 2), (2, 3)):
        ours = [event for event in events if event["song"] == number]
        same((ours[0]["event"], ours[-1]["event"]), ("song", "end"))
        clicks = [(e["bar"], e["beat"], e["tick"], round(e["seconds"], 4)) for e in ours if e["event"] == "click"]
        wanted = [(1 + beat // 4, 1 + beat % 4, 480 * beat, beat / 2) for beat in range(4 * bars)]
        same(clicks[:4 * bars], wanted)  # a last click may tell the end itself
    same(sorted(events, key=lambda e: (e["song"], e["seconds"])), events, "the order")


def interrupt_ends_with_130_and_a_whole_recording(case):
    song = case.song(bars=60, held=True)
    run = subprocess.Popen([PLAYER, "play", "--json", "--record", case.out, song], stdin=subprocess.DEVNULL,
                           stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
    # With standard output not a terminal, lines come late: the temporary file shows that it runs.
    time.sleep(1.5)
    same(case.out.exists(), False, "written before the end:")
    run.send_signal(signal.SIGINT)
    _, errors = run.communicate(timeout=20)
    same(run.returncode, 130, errors)
    messages = [m for _, m in case.recorded()]
    on = sum(m.type == "note_on" and m.velocity > 0 for m in messages)
    off = sum(m.type == "note_off" for m in messages)
    same((on >= 2, off >= on), (True, True), f"{on} notes, {off} ended:")
    same(os.listdir(case.folder).count("out.mid"), 1)
    same([name for name in os.listdir(case.folder) if name not in ("out.mid", "song.mid")], [], "left behind:")


def a_real_time_run_prints_its_timing(case):
    run = case.player("play", "--tempo-scale", 2, case.song(bars=1))
    same(run.returncode, 0, run.stderr)
    for word in ("97 clocks", "median", "99", "worst", "drift"):
        if word not in run.stderr:
            raise AssertionError(f"no {word!r} in {run.stderr!r}")


def a_show_opened_from_single_songs_is_kept_like_any_other(case):
    show = case.file("show.json", json.dumps({"title": "Later", "kind": "programs",
                                              "songs": [{"key": "one", "file": "song.mid"}]}).encode())
    place = case.folder / "control"
    with subprocess.Popen([PLAYER, "play", case.song(), "--serve", place], stdin=subprocess.DEVNULL,
                          stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True) as player:
        for _ in range(1000):
            if place.exists() or player.poll() is not None:
                break
            time.sleep(0.02)
        for command in (f"load show {show}", "transpose 5", "quit"):
            run = case.player("send", "--socket", place, *command.split(" "))
            same(run.returncode, 0, f"{command}: {run.stdout}{run.stderr}")
        same((player.wait(20), player.stderr.read()), (0, ""), "the player's end:")
    same(json.loads((case.folder / "show.json.state").read_text())["transposition"], 5, "saved:")


def a_closed_or_blocked_standard_output_holds_nothing_up(case):
    songs = [case.song(bars=100)] * 8
    command = [PLAYER, "play", "--offline", "--json", "--record", case.out, *songs]
    reader, writer = os.pipe()  # nobody reads: full after 64 KiB
    run = subprocess.run(command, stdin=subprocess.DEVNULL, stdout=writer, stderr=subprocess.PIPE, timeout=50)
    same(run.returncode, 0, run.stderr)
    same(len(case.strikes()), 8 * 400, "notes with a blocked output:")
    os.close(reader)
    os.close(writer)
    case.out.unlink()
    run = subprocess.run(["/bin/sh", "-c", '"$@" >&-', "sh", *command], stdin=subprocess.DEVNULL,
                         stderr=subprocess.PIPE, timeout=50)
    same((run.returncode, len(case.strikes())), (0, 8 * 400), f"closed, {run.stderr!r}:")
    case.out.unlink()
    reader, writer = os.pipe()
    os.close(reader)
    # Python starts programs with the broken pipe ignored; a shell does not.
    run = subprocess.run(command, stdin=subprocess.DEVNULL, stdout=writer, stderr=subprocess.PIPE, timeout=50,
                         restore_signals=True)
    same((run.returncode, len(case.strikes())), (0, 8 * 400), f"without a reader, {run.stderr!r}:")


def real_files_are_played_whole(case):
    files = [path for folder in REAL_FOLDERS for path in sorted(pathlib.Path(folder).rglob("*.mid"))]
    if not files:
        print("note: no MIDI files of Debian's packages (openttd-openmsx, mma, planetblupi-music-midi) are installed")
    for path in files[::max(1, len(files) // MOST_REAL_FILES)][:MOST_REAL_FILES]:
        run = case.player("play", "--offline", "--record", case.out, path)
        same(run.returncode, 0, f"{path}: {run.stderr}")
        same(check_recording.check(case.out, [path]), [], str(path))


TESTS = [
    bad_files_are_refused_in_one_line_and_change_nothing,
    wrong_requests_are_refused_before_anything_plays,
    devices_and_inspect_answer,
    from_and_to_hold_to_the_tick,
    controls_at_the_start_are_heard,
    a_script_steers_between_clocks,
    two_offline_runs_are_identical,
    json_lines_tell_the_show_in_order,
    interrupt_ends_with_130_and_a_whole_recording,
    a_real_time_run_prints_its_timing,
    a_show_opened_from_single_songs_is_kept_like_any_other,
    a_closed_or_blocked_standard_output_holds_nothing_up,
    real_files_are_played_whole,
]


def main():
    passed = 0
    for test in TESTS:
        with tempfile.TemporaryDirectory() as folder:
            passed += passes(test, Case(folder))
    return told(passed, len(TESTS) - passed)


if __name__ == "__main__":
    sys.exit(main())
