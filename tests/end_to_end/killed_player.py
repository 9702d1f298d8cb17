#!/usr/bin/python3
"""killed_player.py BIN [ROUNDS [SEED]]: a show's player is killed at random moments and comes back to where it was.

Every round starts where the round before was cut off, and judges that no file is broken, that the player stands
stopped within two seconds, and that bar and settings are those of the moment. Needs python3-mido. Ends with
"N passed, N failed".
"""

import json
import pathlib
import random
import signal
import sys
import tempfile
import time

import mido

import player_under_test
from player_under_test import Fault, same

ROUNDS = int(sys.argv[2]) if len(sys.argv) > 2 else 8
SEED = int(sys.argv[3]) if len(sys.argv) > 3 else 1
SLOW = 4 if player_under_test.PLAYER.parents[1].name in ("asan", "tsan") else 1

# A look, the least time between two writes, the write itself on a busy disk: what was so for longer must be saved.
GRACE = 0.7 * SLOW
COMES_BACK_WITHIN = 2.0 * SLOW
SONGS = 3
BARS = 30
BAR_SECONDS = 0.5


def write_show(folder):
    """Songs of two beats a bar at 240, on channels 1 to 3, that go over into each other at once and with a wait."""
    for number in range(1, SONGS + 1):
        midi = mido.MidiFile(type=1, ticks_per_beat=96)
        head = mido.MidiTrack([mido.MetaMessage("time_signature", numerator=2, denominator=4),
                               mido.MetaMessage("set_tempo", tempo=250_000)])
        midi.tracks.append(head)
        for channel in range(3):
            track = mido.MidiTrack()
            for _ in range(2 * BARS):
                track.append(mido.Message("note_on", channel=channel, note=50 + 10 * channel, velocity=80))
                track.append(mido.Message("note_off", channel=channel, note=50 + 10 * channel, velocity=64, time=96))
            midi.tracks.append(track)
        midi.save(folder / f"{number}.mid")
    songs = [{"key": f"song{number}", "file": f"{number}.mid"} for number in range(1, SONGS + 1)]
    set_list = [{"song": song["key"], "then": then} for song, then in zip(songs, ("go", "wait", "go"))]
    show = folder / "show.json"
    show.write_text(json.dumps({"title": "Cut off", "kind": "ranges", "songs": songs, "setList": set_list}))
    return show


class Player(player_under_test.Player):
    """What it told of itself is kept with the moment."""

    def __init__(self, show, resume):
        self.started = time.monotonic()
        super().__init__(show.parent / "control", show, *["--resume"] * resume, cwd=show.parent)
        self.told = []  # (moment before asking, what was told)

    def look(self):
        moment = time.monotonic()
        answer = self.do("state")
        self.told.append((moment, facts(answer)))
        return answer["state"]["state"]

    def kill(self):
        self.process.send_signal(signal.SIGKILL)
        self.process.wait()
        if self.connection:
            self.connection.close()


def facts(answer):
    """What has to come back."""
    state, position = answer["state"], answer["position"]
    return {
        "key": state.get("key"),
        "place": state["place"],
        "bar": position.get("bar"),
        "tempoScale": round(state["tempoScale"], 6),
        "transposition": state["transposition"],
        "holds": state["holds"],
        "mutes": state["mutedChannels"],
        "trims": {track["channel"]: track["trim"] for track in state["tracks"]},
        "programs": {track["channel"]: track["program"] for track in state["tracks"] if track["programIsUsers"]},
        "setList": [(entry["key"], entry["then"]) for entry in state["setList"]],
    }


def saved_facts(state):
    """The same, as the file says it."""
    trims = {int(channel): trim for channel, trim in state["trims"].items()}
    programs = state["programs"].get(state.get("song"), {})
    return {
        "key": state.get("song"),
        "place": state.get("entry", 0),
        "bar": int(state["bar"].split(":")[0]),
        "tempoScale": round(state["tempoScale"], 6),
        "transposition": state["transposition"],
        "holds": state["holds"],
        "mutes": state["mutes"],
        "trims": {channel: trims.get(channel, 100) for channel in (1, 2, 3)},
        "programs": {int(channel): program for channel, program in programs.items()},
        "setList": [(entry["song"], entry["then"]) for entry in state["setList"]],
    }


def some_command(dice):
    channel = dice.randint(1, 3)
    return dice.choice([
        f"mute {channel}", f"unmute {channel}", "unmute all", f"trim {channel} {dice.randint(0, 127)}",
        f"tempo {dice.randint(80, 150) / 100}", f"transpose {dice.randint(-12, 12)}", "tempo reset",
        f"hold {dice.choice(['on', 'off'])}", f"program {channel} {dice.randint(1, 128)}", "follow programs",
        f"locate {dice.randint(1, BARS)}", f"locate {BARS}:2", "next song", "previous song",
        f"select song song{dice.randint(1, SONGS)}", "skip", f"insert song{dice.randint(1, SONGS)} 1", "move 1 2",
        "stop", "pause", "play", "play", "play",
    ])


def use(player, dice, until):
    """Steers it until then. The last moments are busy in half of the rounds and quiet in the others."""
    if not player.connect(until):
        return
    quiet_from = until - (dice.random() * 2 * GRACE if dice.random() < 0.5 else 0)
    player.look()
    player.do("play")
    while time.monotonic() < until:
        if time.monotonic() < quiet_from and dice.random() < 0.4:
            player.do(some_command(dice))
        player.look()
        time.sleep(max(0, min(0.02 + 0.1 * dice.random(), until - time.monotonic())))


def judge_files(folder, originals):
    for name, content in originals.items():
        same((folder / name).read_bytes() == content, True, f"{name} is as it was")
    for path in folder.iterdir():
        # What a write leaves that was cut off; and the socket.
        if path.name in originals or path.name.startswith((".vemo-", "control")) or path.name == "show.json.state":
            continue
        raise Fault(f"{path.name} was left behind")
    state = folder / "show.json.state"
    if not state.exists():
        return None
    try:
        return saved_facts(json.loads(state.read_text()))
    except (ValueError, KeyError, TypeError) as broken:
        raise Fault(f"the state is broken: {broken!r} in {state.read_text()!r}") from broken


def judge_saved(saved, told, killed):
    """Each fact was so at some time since the grace began. A bar that began after the last look may be saved too."""
    since = max((index for index, (moment, _) in enumerate(told) if moment < killed - GRACE), default=0)
    window = [one for _, one in told[since:]]
    if not window:
        return
    for name in saved:
        allowed = [one[name] for one in window]
        if name == "bar":
            # Where the old song's last bar was, the next one's first may be by now.
            allowed += [bar + 1 for bar in allowed if bar] + [1 for bar in allowed if bar and bar >= BARS - 1]
        elif name in ("key", "place") and any(one["bar"] and one["bar"] >= BARS - 1 for one in window):
            continue
        elif name in ("tempoScale", "transposition", "trims", "programs") and \
                any(one["bar"] and one["bar"] >= BARS - 1 for one in window):
            continue
        if saved[name] not in allowed:
            raise Fault(f"{name} is saved as {saved[name]!r}; since {GRACE:.1f} s before, it was {allowed!r}")


def one_round(folder, show, originals, dice, before):
    """Returns what the file says afterwards."""
    player = Player(show, before is not None)
    try:
        if before is not None:
            until = player.started + COMES_BACK_WITHIN
            if not player.connect(until):
                raise Fault(f"was not back after {COMES_BACK_WITHIN} s")
            same(player.look() in ("stopped", "waiting"), True, "stands")
            same(time.monotonic() < until, True, f"back within {COMES_BACK_WITHIN} s")
            same(player.told[0][1], before, "where it came back")
            player.connection.close()
        use(player, dice, time.monotonic() + dice.random() * 2.5 * SLOW)
        killed = time.monotonic()
    finally:
        player.kill()
    saved = judge_files(folder, originals)
    if saved is None:
        # It takes a bar, or a command, to have a state.
        played = [moment for moment, _ in player.told if moment < killed - GRACE]
        same((before, len(played) > 1), (None, False), "no state, though there was one, or it was played")
        return None
    if player.told:
        judge_saved(saved, player.told, killed)
    else:
        same(saved, before if before is not None else saved, "saved without a command")
    return saved


def main():
    print(f"{ROUNDS} rounds, seed {SEED}")
    passed = failed = 0
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        show = write_show(folder)
        originals = {path.name: path.read_bytes() for path in folder.iterdir()}
        before = None
        for number in range(1, ROUNDS + 1):
            dice = random.Random(SEED * 1_000_003 + number)
            try:
                before = one_round(folder, show, originals, dice, before)
                passed += 1
            except (Fault, OSError, ValueError, KeyError) as fault:
                failed += 1
                print(f"FAILED round {number} of seed {SEED}: {fault}")
                # From the beginning: the next rounds judge anew.
                for path in folder.iterdir():
                    if path.name not in originals:
                        path.unlink()
                for file, content in originals.items():
                    (folder / file).write_bytes(content)
                before = None
    return player_under_test.told(passed, failed)


if __name__ == "__main__":
    sys.exit(main())
