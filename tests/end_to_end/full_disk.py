#!/usr/bin/python3
"""full_disk.py BIN: what a show keeps beside its file outlives a full disk, a small tmpfs, and is written once there
is room again. Also where a folder stands in a file's place.

Mounts the tmpfs in a namespace of its own where it may, else says "LEFT OUT: reason". Ends with "N passed, N failed".
"""

import os
import pathlib
import shutil
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
PLAYER = pathlib.Path(sys.argv[1]).resolve() / "vemo_player"
MTC = b"\x14MidiTimeCodeSettings\x00\x01\x02\x00\x00\x00\x02"
COMMANDS = b"\x14MidiCommandsSettings\x00\x00\x00\x00\x00\x01\x00\x02\x90\x00\x3c"
passed = failed = 0


def check(what, good, got):
    global passed, failed
    passed, failed = passed + bool(good), failed + (not good)
    if not good:
        print(f"FAILED {what}: {got!r}")


def run(*arguments):
    return subprocess.run([PLAYER, *map(str, arguments)], stdin=subprocess.DEVNULL, capture_output=True, text=True,
                          timeout=120)


def on_a_small_disk(disk):
    shutil.copy(ROOT / "shows/10_last_bow.mid", disk)
    show = disk / "show.json"
    show.write_text('{"title": "Small", "kind": "programs", "songs": [{"key": "bow", "file": "10_last_bow.mid"}]}')
    (disk / "show.json.mtc").write_bytes(MTC)
    (disk / "show.json.commands").write_bytes(COMMANDS)
    filler = disk / "filler"
    try:
        with filler.open("wb", buffering=0) as file:
            while file.write(b"x" * 512):
                pass
    except OSError:
        pass
    played = run("play", "--offline", "--mtc", "25", show)
    check("the show plays on a full disk", played.returncode == 0, played.stderr)
    check("its time code's settings are the old ones", (disk / "show.json.mtc").read_bytes() == MTC,
          (disk / "show.json.mtc").read_bytes())
    forgotten = run("learn", show, "--forget", "play")
    check("a pedal cannot be forgotten for good there, which is said", "show.json.commands" in forgotten.stderr,
          forgotten.stderr)
    check("its pedals are the old ones", (disk / "show.json.commands").read_bytes() == COMMANDS,
          (disk / "show.json.commands").read_bytes())
    check("nothing half written is left", sorted(os.listdir(disk)) ==
          ["10_last_bow.mid", "filler", "show.json", "show.json.commands", "show.json.mtc"], os.listdir(disk))
    filler.unlink()
    run("play", "--offline", "--mtc", "25", show)
    run("learn", show, "--forget", "play")
    check("with room again the rate is kept", (disk / "show.json.mtc").read_bytes() == MTC[:-1] + b"\x01",
          (disk / "show.json.mtc").read_bytes())
    check("and the pedal forgotten", (disk / "show.json.commands").read_bytes() == COMMANDS[:26] + b"\x00\x00",
          (disk / "show.json.commands").read_bytes())


def with_folders_for_files(folder):
    show = folder / "show.json"
    shutil.copy(ROOT / "shows/10_last_bow.mid", folder)
    show.write_text('{"title": "Small", "kind": "programs", "songs": [{"key": "bow", "file": "10_last_bow.mid"}]}')
    for name in ("mtc", "commands", "commands.pedals"):
        (folder / f"show.json.{name}").mkdir()
    played = run("play", "--offline", "--mtc", "25", show)
    check("the show plays where its settings cannot be read", played.returncode == 0, played.stderr)
    listed = run("learn", show)
    check("and its pedals are listed", listed.returncode == 0 and "Next Song" in listed.stdout, listed)
    check("the folders stay", all((folder / f"show.json.{name}").is_dir() for name in ("mtc", "commands.pedals")),
          os.listdir(folder))


def main():
    with tempfile.TemporaryDirectory() as folder:
        with_folders_for_files(pathlib.Path(folder))
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
    print(f"{passed} passed, {failed} failed")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
