#!/usr/bin/python3
"""Does a show leave the player whole, from its first song to its last?

    show_is_recorded_whole.py BIN [SHOW.json]

Plays the show offline, past pauses and from song to song, and reads the recording with mido: every note of the set list
is struck, in order on its channel and at the pitch that the show file transposes it to; what is struck beside them is
the click, or what a change of pitch or a start in mid-song strikes again; and nothing sounds in the end.
"""

import json
import pathlib
import subprocess
import sys
import tempfile

import mido

sys.path.insert(0, str(pathlib.Path(__file__).parent))
import check_recording  # noqa: E402

PERCUSSION = 9


def bar_tick(place, beats):
    """Of "BAR[:BEAT]" or of a tick of the file."""
    if not isinstance(place, str):
        return place
    bar, _, beat = place.partition(":")
    return beats[(int(bar), int(beat or 1))]


def lay_out_beats(midi, events, end):
    meters = {0: (4, 4)}
    for tick, message in events:
        if message.type == "time_signature":
            meters[tick] = (message.numerator, message.denominator)
    beats = {}
    changes = sorted(meters) + [end]
    bar = 0
    for start, stop in zip(changes, changes[1:]):
        numerator, denominator = meters[start]
        step = midi.ticks_per_beat * 4 // denominator
        tick, beat = start, numerator
        while tick < stop:
            if beat == numerator:
                bar, beat = bar + 1, 0
            beat += 1
            beats[(bar, beat)] = tick
            tick += step
    beats[(bar + 1, 1)] = end
    return beats


def notes_of_song(path, entry):
    """Note-ons by channel as (note, note that is held)."""
    midi = mido.MidiFile(path)
    events, end = check_recording.events_of(midi)
    beats = lay_out_beats(midi, events, end)
    spans = [(bar_tick(span["from"], beats), bar_tick(span["to"], beats), span["semitones"])
             for span in entry.get("transpositions", [])]
    start = bar_tick(entry.get("start", 0), beats)
    channels = [[] for _ in range(16)]
    for tick, message in events:
        if message.type != "note_on" or message.velocity == 0 or tick < start:
            continue
        shift = sum(semitones for first, stop, semitones in spans if first <= tick < stop)
        channels[message.channel].append(message.note + (0 if message.channel == PERCUSSION else shift))
    return channels


def check(show_path, recording):
    show = json.loads(show_path.read_text())
    songs = {song["key"]: song for song in show["songs"]}
    expected = [[] for _ in range(16)]
    click_channels = set()
    for place in show["setList"]:
        entry = songs[place["song"]]
        if "clickTrack" in entry:
            click_channels.add(entry["clickTrack"].get("channel", 10) - 1)
        for channel, notes in enumerate(notes_of_song(show_path.parent / entry["file"], entry)):
            expected[channel] += notes
    channels, faults = check_recording.read_recording(recording)
    for channel, notes in enumerate(expected):
        faults += check_recording.sounding(channels[channel], channel)
        strikes = [data[1] for _, data in channels[channel] if data[0] & 0xF0 == 0x90 and data[2] > 0]
        heard = iter(strikes)
        missing = next((index for index, note in enumerate(notes) if not any(note == other for other in heard)), None)
        if missing is not None:
            faults.append(f"channel {channel + 1}: note {missing + 1} of {len(notes)} is missing")
        extra = len(strikes) - len(notes)
        if channel not in click_channels and extra > len(notes) // 10:
            faults.append(f"channel {channel + 1}: {extra} strikes too many")
    if sum(map(len, expected)) < 500:
        faults.append("the show has too few notes to prove anything")
    return faults


def main():
    binaries = pathlib.Path(sys.argv[1])
    show = pathlib.Path(sys.argv[2]) if len(sys.argv) > 2 else pathlib.Path(__file__).parents[2] / "shows/evening.json"
    with tempfile.TemporaryDirectory() as folder:
        recording = pathlib.Path(folder) / "show.mid"
        played = subprocess.run([binaries / "vemo_player", "play", show, "--offline", "--record", recording],
                                stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True, timeout=300, check=False)
        faults = check(show, recording) if played.returncode == 0 else [f"status {played.returncode}: {played.stderr}"]
    for fault in faults:
        print(fault)
    print(f"{int(not faults)} passed, {int(bool(faults))} failed")
    return int(bool(faults))


if __name__ == "__main__":
    sys.exit(main())
