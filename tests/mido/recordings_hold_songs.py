#!/usr/bin/python3
"""Plays the demo songs and generated songs offline, and has mido confirm the recordings.

    recordings_hold_songs.py BIN [--seed N] [--count N] [SONG...]

BIN is the folder with vemo_player and write_generated_songs. Other songs than the demo's and generated ones, as those
of the system's packages, may be given; nothing is kept of them.
"""

import argparse
import pathlib
import subprocess
import sys
import tempfile

sys.path.insert(0, str(pathlib.Path(__file__).parent))
import check_recording  # noqa: E402

DEMO = pathlib.Path(__file__).resolve().parent.parent.parent / "player" / "demo"


def faults_of(binaries, songs, recording):
    run = subprocess.run([binaries / "vemo_player", "play", "--offline", "--record", recording, *songs],
                         stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=300)
    if run.returncode != 0:
        return [f"the player's status is {run.returncode}: {run.stderr.strip()[-500:]}"]
    return check_recording.check(recording, songs)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("binaries", type=pathlib.Path, metavar="BIN")
    parser.add_argument("songs", nargs="*", metavar="SONG")
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--count", type=int, default=16)
    options = parser.parse_args()
    passed = failed = 0
    with tempfile.TemporaryDirectory() as folder:
        folder = pathlib.Path(folder)
        subprocess.run([options.binaries / "write_generated_songs", folder, str(options.seed), str(options.count)],
                       check=True)
        generated = sorted(folder.glob("*.mid"))
        demo = sorted(DEMO.glob("*.mid"))
        shows = [[song] for song in demo + generated + options.songs] + [demo, generated[:4]]
        for show in shows:
            name = " ".join(pathlib.Path(song).name for song in show)
            faults = faults_of(options.binaries, show, folder / "recording.out")
            passed += not faults
            failed += bool(faults)
            for fault in faults:
                print(f"{name}: {fault}")
    print(f"seed {options.seed}")
    print(f"{passed} passed, {failed} failed")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
