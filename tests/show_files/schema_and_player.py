#!/usr/bin/python3
"""Do docs/show.schema.json and the player agree on what a show file is?

    schema_and_player.py BIN [--seed N] [--count N]

The schema is judged by python3-jsonschema, which shares nothing with the player; the player by its `verify`. Good shows
pass both. Bad ones are refused by both, the player naming the place; what no schema can say is refused by the player
alone. Then shows that were changed at random: what the schema refuses the player refuses, and what the player refuses
alone is of the kinds that no schema can say.
"""

import argparse
import copy
import json
import pathlib
import random
import shutil
import subprocess
import sys
import tempfile

import jsonschema

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
GONE = object()
SMALLEST = {"title": "Small", "kind": "programs", "songs": [{"key": "bow", "file": "10_last_bow.mid"}]}

# Which show, {where: what to put there}, and where the player's first fault is to be.
GOOD = [
    ("evening", {}),
    ("band", {}),
    ("band", {"showControl": {"input": "Desk"}}),
    ("evening", {"showControl": {"input": "Desk", "deviceId": 111, "cueList": "2"}}),
    ("evening", {"setList": GONE, "timeCode": GONE}),
    ("evening", {"mutes": [1, 16], "songs/0/countInBars": 8, "songs/0/number": 999999, "songs/4/clickTrack": {}}),
    ("evening", {"songs/0/markers": [{"at": 0, "text": "Größe \u2665"}], "songs/0/pages": [], "songs/0/pauses": [1]}),
    ("evening", {"songs/0/tempoScales": [{"from": 0, "to": "17", "factor": 2}], "songs/0/countInBars": 1.0}),
    ("evening", {"songs/0/file": "./01_curtain_up.mid", "songs/0/start": "0000000016:002"}),
    ("band", {"trims": {}, "mutes": [], "groups": []}),
    ("band", {"trims/16": 127, "trims/1": 0, "groups/0/number": 255, "songs/0/tracks/2/range": [0, 127]}),
]
# Which show, where, and what is bad there; the player's first fault is to be at that place.
BAD_VALUES = {
    "evening": {
        "title": [GONE, "", " Evening", "Even\u0007ing", "Even\u009bing", None], "kind": [GONE, "Programs", 1],
        "songs": [GONE, {}], "songs/0": ["01_curtain_up.mid"], "songs/9/key": [GONE],
        "songs/9/file": [GONE, "", "a\nb.mid"], "songs/0/number": [0, 1000000, "1"], "songs/0/title": [""],
        "songs/0/start": ["0", "1:0", "1:1:1", "1:", "+1", "1000000", "1:1000", -1, 4294901761, 1.5, True],
        "songs/0/countInBars": [9, -1, 1.5], "songs/1/tempoScales/0/factor": [0.49, 2.01, "1"],
        "songs/1/tempoScales/0/to": [GONE], "songs/1/tempoScales": [{}],
        "songs/2/transpositions/0/semitones": [13, -13], "songs/2/clicks/0/notated32": [0, 256],
        "songs/0/markers/0/text": [""], "songs/0/markers/0/at": [GONE], "songs/0/pages/0/number": [0],
        "songs/1/pauses": ["5"], "songs/1/pauses/0": [[5]], "songs/1/tracks/17": [{}], "songs/1/tracks/01": [{}],
        "songs/1/tracks/3/program": [0, 129], "songs/1/tracks/3/range": [[0, 127]], "songs/1/patches/0/name": [GONE],
        "songs/1/patches/0/programs": [{}], "songs/1/patches/0/programs/0": [1], "songs/0/clickTrack/channel": [17],
        "songs/0/clickTrack/note": [128], "songs/0/clickTrack/muted": ["yes"], "songs/0/clickTrack": [True],
        "setList": [[]], "setList/0/song": [GONE], "setList/0/then": ["pause"], "timeCode": [True],
        "timeCode/active": [GONE, 1], "trims": [{}], "groups": [[]], "songs/0/tempoScale": [[]],
        "songs/0/markers/0/colour": [1], "songs/1/tracks/3/colour": [1], "songs/1/patches/0/colour": [1],
        "songs/1/tempoScales/0/colour": [1], "songs/0/clickTrack/colour": [1], "setList/0/colour": [1],
        "timeCode/colour": [1], "showControl": [True],
    },
    "band": {
        "trims/3": [128], "trims/0": [100], "trims/a~1b": [100], "groups/0/number": [0, 256],
        "groups/0/channels": [[]], "groups/0/name": [GONE], "songs/0/tracks/2/range": [[0], [0, 64, 127]],
        "colour": [1], "groups/0/colour": [1],
    },
}
# The same where the fault is at another place.
BAD = [
    ("evening", {"": []}, "the show"),
    ("evening", {"songs": [], "setList": GONE}, "/songs"),
    ("evening", {"mutes": [3, 3]}, "/mutes/1"),
    ("evening", {"mutes": [0]}, "/mutes/0"),
    ("evening", {"showControl": {}}, "/showControl/input"),
    ("evening", {"showControl": {"input": ""}}, "/showControl/input"),
    ("evening", {"showControl": {"input": "Desk", "deviceId": 112}}, "/showControl/deviceId"),
    ("evening", {"showControl": {"input": "Desk", "colour": 1}}, "/showControl/colour"),
    ("band", {"groups/0/channels": [2, 2]}, "/groups/0/channels/1"),
    ("band", {"songs/0/tracks/2/range": [0, 255]}, "/songs/0/tracks/2/range/1"),
]
# Beyond the schema.
REFUSED_BY_THE_PLAYER = [
    ("evening", {"songs/1/key": "curtain", "setList": GONE}, "/songs/1/key"),
    ("band", {"groups/1/number": 1}, "/groups/1/number"),
    ("band", {"songs/0/tracks/2/range": [60, 24]}, "/songs/0/tracks/2/range"),
    ("evening", {"songs/0/start": "17"}, "/songs/0/start"),
]
BEYOND_THE_SCHEMA = [
    "has it already", "are the keys of the songs", "is a place behind the start", "is no overlap with",
    "are the lowest and the highest note", "are the beats of the song", "to the song's end", "may overlap another",
    "allowed are ticks after its start", "are places behind the start of the song", "no track of the song plays",
    "are paths to below the folder", "cannot be opened", "it is a folder", "a MIDI clock of its meter", "nonsense.mid",
    "show control could mean either"
]
RANDOM_VALUES = [None, True, 0, 1, 2, 9, 64, 128, -1, 0.5, 1.25, 1e9, "", "1", "3", "2:2", "9:1", "99", "stop", "go",
                 "bow", "market", "programs", "ranges", "nonsense.mid", [], [1], [36, 96], ["2"], {}, {"1": 1},
                 {"at": "2"}]


class Judges:
    def __init__(self, player, folder):
        schema = json.loads((ROOT / "docs" / "show.schema.json").read_text())
        jsonschema.Draft202012Validator.check_schema(schema)
        self.validator = jsonschema.Draft202012Validator(schema)
        self.player = player
        self.folder = folder
        (folder.parent / "outside.mid").write_bytes((folder / "10_last_bow.mid").read_bytes())

    def player_faults(self, text):
        """None for a good show, else what the player says of a bad one."""
        path = self.folder / "judged.json"
        path.write_text(text)
        # Where the songs of the show before started is no fault of this one.
        (self.folder / "judged.json.starts").unlink(missing_ok=True)
        run = subprocess.run([self.player, "verify", "judged.json"], cwd=self.folder, stdin=subprocess.DEVNULL,
                             capture_output=True, text=True, timeout=60)
        if run.returncode == 0 and run.stdout and not run.stderr:
            return None
        faults = run.stderr.splitlines()
        prefix = "vemo_player: judged.json: "
        if run.returncode != 2 or run.stdout or not faults or not all(line.startswith(prefix) for line in faults):
            raise AssertionError(f"verify: status {run.returncode}, {run.stdout!r}, {run.stderr!r}")
        return [line[len(prefix):] for line in faults]

    def schema_refuses(self, show):
        return not self.validator.is_valid(show)


def changed(show, changes):
    show = copy.deepcopy(show)
    for where, value in changes.items():
        if where == "":
            show = value
            continue
        *steps, last = where.replace("~1", "\0").split("/")
        at = show
        for step in steps:
            at = at[int(step) if isinstance(at, list) else step]
        last = int(last) if isinstance(at, list) else last.replace("\0", "/")
        if value is GONE:
            del at[last]
        else:
            at[last] = value
    return show


def places(value):
    """Every container of a show with one of its names or indices."""
    for name in list(value) if isinstance(value, dict) else range(len(value)) if isinstance(value, list) else ():
        yield value, name
        yield from places(value[name])


def changed_at_random(show, generator):
    show = copy.deepcopy(show)
    for _ in range(generator.choice((1, 1, 2))):
        container, name = generator.choice(list(places(show)))
        what = generator.random()
        if what < 0.2:
            del container[name]
        elif what < 0.3 and isinstance(container, dict):
            container[generator.choice(["colour", "17", "range", "key", "at"])] = generator.choice(RANDOM_VALUES)
        else:
            likely = [value for value in RANDOM_VALUES if type(value) is type(container[name])]
            container[name] = copy.deepcopy(generator.choice(likely if what < 0.9 and likely else RANDOM_VALUES))
    return show


def check_all(judges, shows, seed, count):
    """Yields the name of each check and what is wrong with it, if anything."""
    for base, changes in GOOD + [("smallest", {})]:
        show = changed(shows[base], changes)
        faults = judges.player_faults(json.dumps(show))
        yield f"good: {base} {changes}", ("the schema refuses it" if judges.schema_refuses(show) else "") or faults
    bad_values = [(base, {where: value}, "/" + where)
                  for base, table in BAD_VALUES.items() for where, values in table.items() for value in values]
    for wants_schema, rows in ((True, bad_values + BAD), (False, REFUSED_BY_THE_PLAYER)):
        for base, changes, where in rows:
            show = changed(shows[base], changes)
            faults = judges.player_faults(json.dumps(show)) or ["nothing"]
            wrong = []
            if judges.schema_refuses(show) != wants_schema:
                wrong.append("the schema " + ("accepts" if wants_schema else "refuses") + " it")
            if len(faults) != 1 or not faults[0].startswith(where + ": "):
                wrong.append(f"the player says {faults} instead of one fault at {where}")
            yield f"bad: {base} {changes}", wrong
    generator = random.Random(seed)
    refused = 0
    for number in range(count):
        show = changed_at_random(generator.choice(list(shows.values())), generator)
        by_schema = judges.schema_refuses(show)
        faults = judges.player_faults(json.dumps(show))
        wrong = None
        if by_schema and faults is None:
            wrong = "only the schema refuses it"
        elif not by_schema and faults:
            wrong = [fault for fault in faults if not any(text in fault for text in BEYOND_THE_SCHEMA)]
        refused += by_schema
        if wrong:
            yield f"random show {number} of seed {seed}: {json.dumps(show)}", wrong
    print(f"seed {seed}: {refused} of {count} random shows are against the schema")
    yield "random shows", None if 0 < refused < count else "they are all alike"


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("binaries", type=pathlib.Path, metavar="BIN")
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--count", type=int, default=100)
    options = parser.parse_args()
    passed = failed = 0
    with tempfile.TemporaryDirectory() as folder:
        songs = pathlib.Path(folder) / "shows"
        songs.mkdir()
        for song in (ROOT / "shows").glob("*.mid"):
            shutil.copy(song, songs)
        shows = {name: json.loads((ROOT / "shows" / f"{name}.json").read_text()) for name in ("evening", "band")}
        shows["smallest"] = SMALLEST
        judges = Judges((options.binaries / "vemo_player").resolve(), songs)
        for name, wrong in check_all(judges, shows, options.seed, options.count):
            passed += not wrong
            failed += bool(wrong)
            if wrong:
                print(f"{name}: {wrong}")
    print(f"{passed} passed, {failed} failed")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
