#!/usr/bin/python3
"""Are the engine's time codes those that one gets by counting frames?

    labels_agree.py BIN

Reads what print_time_codes prints. Labels are counted frame by frame through a day, leaving out the two that the
dropping rate leaves out at the beginning of each minute but every tenth; the bytes follow the MIDI Time Code standard;
seconds become frames by exact fractions. A place closer to the border of two quarter frames than doubles can tell may
be on either side of it.
"""

import pathlib
import subprocess
import sys
from fractions import Fraction

RATES = {0: (24, Fraction(24)), 1: (25, Fraction(25)), 2: (30, Fraction(2997, 100)), 3: (30, Fraction(30))}
DROPPING = 2
WHOLE_HOUR = 10
BORDER = Fraction(1, 10**6)  # of a quarter frame
MOST_FAULTS_SHOWN = 20


def labels_of_day(rate):
    for hour in range(24):
        for minute in range(60):
            for second in range(60):
                for frame in range(RATES[rate][0]):
                    if rate == DROPPING and second == 0 and frame in (0, 1) and minute % 10:
                        continue
                    yield hour, minute, second, frame


def text(rate, label):
    return "{:02}:{:02}:{:02}{}{:02}".format(*label[:3], ";" if rate == DROPPING else ":", label[3])


def expected_label_line(rate, number, label):
    hour, minute, second, frame = label
    full = bytes([0xF0, 0x7F, 0x7F, 1, 1, rate << 5 | hour, minute, second, frame, 0xF7])
    nibbles = [nibble for value in (frame, second, minute, rate << 5 | hour) for nibble in (value & 15, value >> 4)]
    pieces = b"".join(bytes([0xF1, index << 4 | nibble]) for index, nibble in enumerate(nibbles))
    return f"L {rate} {number} {text(rate, label)} {full.hex()} {pieces.hex()}"


def is_printed(label):
    hour, _, second, frame = label
    return hour == WHOLE_HOUR or (second == 59 and frame > 21) or (second == 0 and frame < 4)


def main():
    program = pathlib.Path(sys.argv[1]) / "print_time_codes"
    lines = subprocess.run([program], stdout=subprocess.PIPE, text=True, timeout=600, check=True).stdout.splitlines()
    printed = {rate: [] for rate in RATES}
    seconds = {rate: [] for rate in RATES}
    for line in lines:
        (printed if line[0] == "L" else seconds)[int(line[2])].append(line)
    faults = []
    for rate, (_, frames_per_second) in RATES.items():
        day = list(labels_of_day(rate))
        wanted = [expected_label_line(rate, number, label) for number, label in enumerate(day) if is_printed(label)]
        faults += [f"{line!r} for {want!r}" for line, want in zip(printed[rate], wanted) if line != want]
        if len(printed[rate]) != len(wanted):
            faults.append(f"rate {rate}: {len(printed[rate])} labels for {len(wanted)}")
        for line in seconds[rate]:
            _, _, place, label, quarter = line.split()
            quarters = Fraction(float(place)) * frames_per_second * 4
            near = {int(quarters), int(quarters + BORDER), int(quarters - BORDER)}
            if (label, int(quarter)) not in {(text(rate, day[near_by // 4]), near_by % 4) for near_by in near}:
                faults.append(f"{line!r} is quarter frame {float(quarters)}")
        if len(seconds[rate]) < 50000:
            faults.append(f"rate {rate}: {len(seconds[rate])} places are too few to prove anything")
    for fault in faults[:MOST_FAULTS_SHOWN]:
        print(fault)
    print(f"{len(lines) - len(faults)} passed, {len(faults)} failed")
    return int(bool(faults))


if __name__ == "__main__":
    sys.exit(main())
