"""Does a recording hold every channel message of its songs, once, in order and in time?

The songs play one after another at once. Per channel, the messages of a song stand without a gap, controllers 120 to
127 left out and a note-on of velocity 0 taken for a note-off of velocity 64, each within a MIDI clock of its ideal
time. What the player adds before and after them is only pitch bends, controllers, program changes and (after)
note-offs. In the end no note sounds, without the help of controllers 120 to 127. Read by mido, which shares nothing
with the player.
"""

import bisect
import collections
import math

import mido

CLOCKS_PER_QUARTER = 24
BEFORE = {0xB0, 0xC0, 0xE0}  # status bytes of controllers, programs and bends
AFTER = BEFORE | {0x80}
SLACK = 0.0002  # seconds beyond a MIDI clock; the recording's own ticks are 0.0001 s


def events_of(midi):
    """Of all tracks, as (tick, message) in the order of playing; and the tick at which the last track ends."""
    events = []
    end = 0
    for track in midi.tracks:
        tick = 0
        for message in track:
            tick += message.time
            events.append((tick, message))
        end = max(end, tick)
    return sorted(events, key=lambda event: event[0]), end  # stable: track by track


class Song:
    """A file as its composer meant it: messages by channel as (seconds, seconds of a clock there, bytes)."""

    def __init__(self, path):
        midi = mido.MidiFile(path)
        events, end = events_of(midi)
        self.set_times(midi.ticks_per_beat, events)
        self.channels = [[] for _ in range(16)]
        for tick, message in events:
            if message.type in ("sysex", "sysex_end") or message.is_meta:
                continue
            data = bytes(message.bytes())
            if data[0] & 0xF0 == 0xB0 and data[1] >= 120:
                continue
            if data[0] & 0xF0 == 0x90 and data[2] == 0:
                data = bytes((0x80 | data[0] & 0x0F, data[1], 64))
            seconds, clock = self.time(tick)
            self.channels[data[0] & 0x0F].append((seconds, clock, data))
        self.end = end

    def next_start(self):
        """When another song starts: at the clock that ends this one."""
        clock = self.quarter / CLOCKS_PER_QUARTER
        return self.time((math.floor(self.end / clock + 1e-6) + 1) * clock)[0]

    def set_times(self, division, events):
        if division < 0 or division >= 0x8000:  # SMPTE: two bytes, the first one negative
            rate = 256 - (division >> 8 & 0xFF)
            second = (30000 / 1001 if rate == 29 else rate) * (division & 0xFF)
            self.quarter = second / 2 * (1001 / 1000 if rate == 29 else 1)
            tempos = {0: 0.5005 if rate == 29 else 0.5}
        else:
            self.quarter = division
            tempos = {0: 0.5}
            for tick, message in events:
                if message.type == "set_tempo":
                    tempos[tick] = message.tempo / 1e6
        tempos = self.tempos_by_clock(tempos)
        self.starts = []  # (tick, seconds, seconds of a quarter note)
        seconds = 0.0
        for tick in sorted(tempos):
            if self.starts:
                last = self.starts[-1]
                seconds = last[1] + (tick - last[0]) / self.quarter * last[2]
            self.starts.append((tick, seconds, tempos[tick]))

    def tempos_by_clock(self, tempos):
        """From which tick on each tempo shapes the engine's clock: it holds for the clock that leads to its place."""
        if len(tempos) == 1:  # among them SMPTE time, whose ticks need not be whole
            return tempos
        clock = self.quarter / CLOCKS_PER_QUARTER
        steps = self.quarter
        while round(steps) % CLOCKS_PER_QUARTER != 0 or steps != round(steps):
            steps += self.quarter
        song_tick = self.quarter / (steps if steps <= 65535 else 960)  # the song's ticks, where they are rounded ones
        effective = {}
        for tick in sorted(tempos):
            clocks = round(tick / song_tick) * song_tick / clock
            effective[max(0, math.ceil(clocks - 1e-6) - 1) * clock] = tempos[tick]
        return effective

    def time(self, tick):
        at = bisect.bisect_right(self.starts, tick, key=lambda start: start[0]) - 1
        start, seconds, quarter = self.starts[at]
        # The clock that carries a message may have begun under the tempo before.
        longest = max(quarter, self.starts[at - 1][2]) if at > 0 else quarter
        return seconds + (tick - start) / self.quarter * quarter, longest / CLOCKS_PER_QUARTER


def read_recording(path):
    """Messages by channel as (seconds, bytes)."""
    midi = mido.MidiFile(path)
    faults = []
    if midi.type != 0 or len(midi.tracks) != 1 or midi.ticks_per_beat != 5000:
        faults.append(f"format {midi.type} with {len(midi.tracks)} tracks and {midi.ticks_per_beat} ticks, "
                      "not format 0 with 5000 ticks a quarter note")
    channels = [[] for _ in range(16)]
    tick = 0
    for message in midi.tracks[0]:
        tick += message.time
        if message.type == "set_tempo" and message.tempo != 500000:
            faults.append(f"a tempo of {message.tempo}")
        if not message.is_meta and message.type != "sysex":
            data = bytes(message.bytes())
            channels[data[0] & 0x0F].append((tick / 10000, data))
    return channels, faults


def text(data):
    return " ".join(f"{byte:02X}" for byte in data)


def first_place(recorded, wanted, start):
    """Where the wanted messages stand from start on, one after another; None if nowhere."""
    for place in range(start, len(recorded) - len(wanted) + 1):
        if all(recorded[place + index][1] == wanted[index][2] for index in range(len(wanted))):
            return place
    return None


def places_from(recorded, wanted, place, start):
    """Where the messages of a later song stand, and the extra ones before and among them.

    At its first clock the player adds what the song before left set and this one does not set itself; an extra message
    may be the same as one of the song's, so that the most is tried that the first clock can hold, and then less.
    """
    most = len(wanted)
    while True:
        places, extra = [], []
        at = place
        while at < len(recorded) and recorded[at][0] <= start + SLACK:
            if recorded[at][0] >= start - SLACK and len(places) < most and recorded[at][1] == wanted[len(places)][2]:
                places.append(at)
            else:
                extra.append(recorded[at])
            at += 1
        most = len(places) - 1
        while len(places) < len(wanted) and at < len(recorded) and recorded[at][1] == wanted[len(places)][2]:
            places.append(at)
            at += 1
        if len(places) == len(wanted) or most < 0:
            return places, extra


def closest(recorded, wanted, start):
    """The longest beginning of the wanted messages that is there, for the report."""
    best = (0, start)
    for place in range(start, len(recorded)):
        count = 0
        while (count < len(wanted) and place + count < len(recorded)
               and recorded[place + count][1] == wanted[count][2]):
            count += 1
        best = max(best, (count, place))
    return best


def check(recording, songs):
    """A list of faults, each a line."""
    channels, faults = read_recording(recording)
    songs = [Song(path) for path in songs]
    for channel, recorded in enumerate(channels):
        place = 0
        offset = 0.0
        for number, song in enumerate(songs, 1):
            wanted = song.channels[channel]
            name = f"song {number}, channel {channel + 1}"
            if number == 1:
                found = first_place(recorded, wanted, place) if wanted else place
                places = range(found, found + len(wanted)) if found is not None else []
                faults += extras(recorded[:places[0]] if places else [], BEFORE, f"{name}, before it")
            else:
                places, extra = places_from(recorded, wanted, place, offset)
                faults += extras(extra, AFTER, f"{name}, before it")
            if len(places) < len(wanted):
                count, at = (len(places), places[-1] + 1 - len(places)) if places else closest(recorded, wanted, place)
                got = text(recorded[at + count][1]) if at + count < len(recorded) else "the end"
                faults.append(f"{name}: after {count} of {len(wanted)} messages {got} instead of "
                              f"{text(wanted[count][2])} at {wanted[count][0]:.4f} s")
                break
            for (seconds, clock, data), index in zip(wanted, places):
                late = recorded[index][0] - offset - seconds
                # Nothing leaves after its time; a fiftieth of a clock is what rounded ticks make of it.
                if not -clock - SLACK <= late <= clock / 50 + SLACK:
                    faults.append(f"{name}: {text(data)} at {seconds + late:.4f} s instead of {seconds:.4f} s, "
                                  f"a clock being {clock:.4f} s")
                    break
            if len(places) > 0:
                place = places[-1] + 1
            offset += song.next_start()
        else:
            faults += extras(recorded[place:], AFTER, f"channel {channel + 1}, after the last song")
            faults += sounding(recorded, channel)
    return faults


def extras(messages, allowed, where):
    return [f"{where}: {text(data)} at {at:.4f} s, which is no message of the song"
            for at, data in messages if data[0] & 0xF0 not in allowed][:1]


def sounding(messages, channel):
    strikes = collections.Counter()  # some devices stack the strikes of a note
    for _, data in messages:
        kind = data[0] & 0xF0
        if kind == 0x90 and data[2] > 0:
            strikes[data[1]] += 1
        elif kind in (0x80, 0x90):
            strikes[data[1]] = max(0, strikes[data[1]] - 1)
    notes = sorted(+strikes)
    return [f"channel {channel + 1}: notes {notes} sound to the end"] if notes else []
