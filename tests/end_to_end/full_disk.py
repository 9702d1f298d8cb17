#!/usr/bin/python3
"""full_disk.py BIN: what a show keeps beside its file outlives a full disk, a small tmpfs, and is written once there
is room again. Also where a folder stands in a file's place, or the pedals cannot be read.

Mounts the tmpfs in a namespace of its own where it may, else says "LEFT OUT: reason". Ends with "N passed, N failed".
"""

import os
import pathlib
import shutil
import subprocess
import sys
import tempfile

from player_under_test import PLAYER, told

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
MTC = b"\x14MidiTimeCodeSettings\x00\x01\x02\x00\x00\x00\x02"
COMMANDS = b"\x14MidiCommandsSettings\x00\x00\x00\x00\x00\x01\x00\x02\x90\x00\x3c"
passed = failed = 0


def check(what, got, wanted):
    global passed, failed
    passed, failed = passed + (got == wanted), failed + (got != wanted)
    if got != wanted:
        print(f"FAILED {what}: {got!r} instead of {wanted!r}")


def run(*arguments):
    return subprocess.run([PLAYER, *map(str, arguments)], stdin=subprocess.DEVNULL, capture_output=True, text=True,
                          timeout=120)


def put_show(folder):
    shutil.copy(ROOT / "shows/10_last_bow.mid", folder)
    show = folder / "show.json"
    show.write_text('{"title": "Small", "kind": "programs", "songs": [{"key": "bow", "file": "10_last_bow.mid"}]}')
    return show


def on_a_small_disk(disk):
    show = put_show(disk)
    mtc, commands = disk / "show.json.mtc", disk / "show.json.commands"
    mtc.write_bytes(MTC)
    commands.write_bytes(COMMANDS)
    filler = disk / "filler"
    try:
        with filler.open("wb", buffering=0) as file:
            while file.write(b"x" * 512):
                pass
    except OSError:
        pass
    played = run("play", "--offline", "--mtc", "25", show)
    check("status on a full disk, where " + played.stderr, played.returncode, 0)
    check("its time code's settings", mtc.read_bytes(), MTC)
    forgotten = run("learn", show, "--forget", "play")
    check("told that a pedal cannot be forgotten there",
          ("show.json.commands" in forgotten.stderr, forgotten.returncode), (True, 1))
    check("its pedals", commands.read_bytes(), COMMANDS)
    check("what is left", sorted(os.listdir(disk)),
          ["10_last_bow.mid", "filler", "show.json", "show.json.commands", "show.json.mtc"])
    filler.unlink()
    run("play", "--offline", "--mtc", "25", show)
    run("learn", show, "--forget", "play")
    check("the rate, with room again", mtc.read_bytes(), MTC[:-1] + b"\x01")
    check("the pedals, with room again", commands.read_bytes(), COMMANDS[:26] + b"\x00\x00")


def with_folders_for_files(folder):
    show = put_show(folder)
    for name in ("mtc", "commands", "commands.pedals"):
        (folder / f"show.json.{name}").mkdir()
    played = run("play", "--offline", "--mtc", "25", show)
    check("status where its settings cannot be read, where " + played.stderr, played.returncode, 0)
    listed = run("learn", show)
    check("its pedals are listed", (listed.returncode, "Next Song" in listed.stdout), (0, True))
    check("the folders that stay", [(folder / f"show.json.{name}").is_dir() for name in ("mtc", "commands.pedals")],
          [True, True])


def with_pedals_that_cannot_be_read(folder):
    show = put_show(folder)
    commands = folder / "show.json.commands"
    commands.write_bytes(COMMANDS)
    commands.chmod(0o200)
    # Root reads everything unless it gives that up.
    without = ["setpriv", "--bounding-set=-dac_override,-dac_read_search"] if os.geteuid() == 0 else []
    listed = subprocess.run([*without, PLAYER, "learn", show], stdin=subprocess.DEVNULL, capture_output=True, text=True,
                            timeout=120)
    check("told that the pedals cannot be read",
          (f"{commands}: cannot be read" in listed.stderr, listed.returncode), (True, 1))
    commands.chmod(0o600)
    check("the pedals that cannot be read", commands.read_bytes(), COMMANDS)


def main():
    for case in (with_folders_for_files, with_pedals_that_cannot_be_read):
        with tempfile.TemporaryDirectory() as folder:
            case(pathlib.Path(folder))
    if os.environ.get("VEMO_SMALL_DISK"):
        on_a_small_disk(pathlib.Path(os.environ["VEMO_SMALL_DISK"]))
    else:
        with tempfile.TemporaryDirectory() as folder:
            # The mount is gone with the namespace, whatever becomes of this program.
            inner = f'mount -t tmpfs -o size=64k none "{folder}" && exec "$@"'
            command = ["unshare", "--mount", "/bin/sh", "-c", inner, "sh", sys.executable, __file__, sys.argv[1]]
            again = subprocess.run(command, env={**os.environ, "VEMO_SMALL_DISK": folder}, capture_output=True,
                                   text=True)
            if " passed, " in again.stdout:
                print(again.stdout, end="")
                return again.returncode
            print(f"LEFT OUT: no small tmpfs is to be had: {again.stderr.strip()}")
    return told(passed, failed)


if __name__ == "__main__":
    sys.exit(main())
