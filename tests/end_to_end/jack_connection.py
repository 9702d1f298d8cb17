#!/usr/bin/python3
"""jack_connection.py BIN: plays to an instrument on a JACK server of its own, which has a pedal that steers the player
and sends what a desk does; instrument and server go and come back meanwhile.

The server runs with its dummy driver and without real-time priority, so that any user and machine can have it. ALSA's
devices need the kernel's sequencer, which build machines lack, and are no part of this. Needs python3-mido for the song
and python3-jack-client for the instrument. Ends with "N passed, N failed", or with one line "LEFT OUT: REASON".
"""

import contextlib
import importlib.util
import json
import os
import pathlib
import queue
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import time

import mido

import player_under_test
from player_under_test import PATIENCE, Fault, passes, same, told, wait_for

BIN = pathlib.Path(sys.argv[1]).resolve()
ROOT = pathlib.Path(__file__).resolve().parents[2]
SONG = ROOT / "player/demo/2_attic_waltz.mid"
SERVER = f"vemo_test_{os.getpid()}"
ENVIRONMENT = {**os.environ, "JACK_DEFAULT_SERVER": SERVER, "JACK_NO_AUDIO_RESERVATION": "1",
               "TSAN_OPTIONS": f"suppressions={ROOT}/tools/tsan_suppressions.txt"}
RATE = 48000
# The first waits for its clients in every cycle, so that none misses anything on a busy machine; but none must then go
# without farewell.
PATIENT = ["-S", "-t", "5000"], 256
USUAL = [], 1024


def be_instrument(name):
    """A program of its own: prints "ready"; then, asked "what", for every message the moment in nanoseconds and its
    bytes, and asked to "press" these bytes of its pedal, the moment at which they were sent."""
    import jack
    end = time.monotonic() + PATIENCE
    while True:
        try:
            client = jack.Client(name, no_start_server=True, servername=SERVER)
            break
        except jack.JackOpenError:
            if time.monotonic() > end:
                raise
            time.sleep(0.2)
    port = client.midi_inports.register("in")
    pedal = client.midi_outports.register("pedal")
    heard = []
    to_send = queue.SimpleQueue()
    sent = queue.SimpleQueue()

    @client.set_process_callback
    def process(_frames):
        now = time.monotonic_ns()
        for _offset, message in port.incoming_midi_events():
            heard.append((now, bytes(message)))
        pedal.clear_buffer()
        while not to_send.empty():
            pedal.write_midi_event(0, to_send.get())
            sent.put(now)

    client.activate()
    print("ready", flush=True)
    for line in sys.stdin:
        if line == "what\n":
            while heard:
                moment, message = heard.pop(0)
                print(moment, message.hex())
            print("end", flush=True)
        else:
            to_send.put(bytes.fromhex(line.removeprefix("press ")))
            print(sent.get(timeout=PATIENCE), flush=True)
    client.close()


class Instrument:
    def __init__(self, name):
        self.process = subprocess.Popen([sys.executable, __file__, str(BIN), "--be", name], env=ENVIRONMENT, text=True,
                                        stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
        self.is_ready = self.process.stdout.readline() == "ready\n"

    def take(self):
        """What was heard since the last call, as (nanoseconds, bytes)."""
        self.process.stdin.write("what\n")
        self.process.stdin.flush()
        heard = []
        for line in iter(self.process.stdout.readline, ""):
            if line == "end\n":
                return heard
            moment, message = line.split()
            heard.append((int(moment), bytes.fromhex(message)))
        raise Fault("the instrument has ended")

    def press(self, message):
        """Presses or lets go the pedal; returns when, in nanoseconds."""
        self.process.stdin.write(f"press {message}\n")
        self.process.stdin.flush()
        return int(self.process.stdout.readline())

    def unplug(self):
        self.process.kill()
        self.process.wait()

    def end(self):
        self.process.stdin.close()
        try:
            self.process.wait(5)
        except subprocess.TimeoutExpired:  # its server may wait for one that went without farewell
            self.unplug()


class Server:
    def __init__(self, kind):
        options, self.frames = kind
        self.process = subprocess.Popen(["jackd", "-n", SERVER, "-r", *options, "-d", "dummy", "-r", str(RATE),
                                         "-p", str(self.frames)],
                                        stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, env=ENVIRONMENT)

    def die(self):
        self.process.kill()
        self.process.wait()

    def end(self):
        """In good order: the machine keeps a place for one that was killed, and has eight."""
        self.process.terminate()
        try:
            self.process.wait(5)
        except subprocess.TimeoutExpired:
            self.die()


class Player(player_under_test.Player):
    def __init__(self, folder, song):
        super().__init__(folder / "control", song, env=ENVIRONMENT)

    def do(self, command):
        answer = super().do(command)
        if not answer["done"]:
            raise Fault(f"{command}: {answer['message']}")
        return answer

    def bindings(self):
        commands = self.do("state")["state"]["commandInput"]["commands"]
        return {command["name"]: command["binding"] for command in commands if command["binding"]}

    def device(self):
        return self.do("state")["state"]["device"]

    def processor_seconds(self):
        fields = pathlib.Path(f"/proc/{self.process.pid}/stat").read_text().rsplit(")", 1)[1].split()
        return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")

    def end(self):
        self.process.terminate()
        try:
            status = self.process.wait(8)
        except subprocess.TimeoutExpired:
            raise Fault("the player does not end") from None
        finally:
            self.process.kill()
        same(status, 130, "status of an interrupted player")


@contextlib.contextmanager
def playing(folder, song=SONG):
    """A player on the server, which ends with the block."""
    player = Player(folder, song)
    try:
        same(player.connect(time.monotonic() + PATIENCE), True, "the player listens:")
        yield player
    finally:
        player.end()


def held(note):
    """A song."""
    return mido.MidiFile(tracks=[mido.MidiTrack([mido.Message("note_on", note=note, velocity=90),
                                                 mido.Message("note_off", note=note, time=40 * 480)])])


def show_of(folder, songs, **more):
    """Of these songs, by their numbers; pedals and desks belong to a show."""
    for number, song in songs.items():
        song.save(folder / f"{number}.mid")
    show = folder / "show.json"
    entries = [{"key": f"song {number}", "file": f"{number}.mid", "number": number} for number in songs]
    show.write_text(json.dumps({"title": "Steered", "kind": "programs", "songs": entries, **more}))
    return show


@contextlib.contextmanager
def listening(*arguments):
    """A player that listens to the pedal until Ctrl-C; it catches that as soon as its input is open."""
    with subprocess.Popen([BIN / "vemo_player", *arguments], env=ENVIRONMENT, stdin=subprocess.PIPE,
                          stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True) as process:
        try:
            def caught():
                if process.poll() is not None:
                    raise Fault(f"{arguments} ended: {process.stderr.read()!r}")
                status = pathlib.Path(f"/proc/{process.pid}/status").read_text()
                return int(status.split("SigCgt:")[1].split()[0], 16) >> signal.SIGINT - 1 & 1
            wait_for(caught, f"{arguments} to listen")
            yield process
        finally:
            process.kill()


@contextlib.contextmanager
def resumed_at_last(server):
    try:
        yield
    finally:
        os.kill(server.process.pid, signal.SIGCONT)


def messages_of(file):
    return [bytes(message.bytes()) for message in mido.MidiFile(file).tracks[0] if not message.is_meta]


def the_song_arrives_whole(_server, instrument, folder):
    recording = folder / "offline.mid"
    arguments = [BIN / "vemo_player", "play", SONG, "--tempo-scale", "2"]
    subprocess.run([*arguments, "--offline", "--record", recording], check=True, stdout=subprocess.DEVNULL, timeout=60)
    instrument.take()
    played = subprocess.run(arguments, env=ENVIRONMENT, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True,
                            timeout=120, check=True)
    same("plays on 'instrument:in'" in played.stderr, True, f"told where it plays, among {played.stderr!r}")
    wanted = messages_of(recording)
    heard = [message for _, message in instrument.take()]
    for number, (one, other) in enumerate(zip(heard, wanted)):
        same(one.hex(), other.hex(), f"message {number}")
    same(len(heard), len(wanted), "number of messages")
    print(f"{len(heard)} messages of a song, every one as rendered")


def messages_arrive_soon_and_long_ones_whole(server, instrument, _folder):
    instrument.take()
    sender = subprocess.run([BIN / "send_on_layer", "instrument:in"], env=ENVIRONMENT, stdout=subprocess.PIPE,
                            text=True, timeout=60, check=True)
    sent = dict(map(int, line.split()) for line in sender.stdout.splitlines())
    heard = instrument.take()
    notes = [(moment, message[1] | message[2] - 1 << 7) for moment, message in heard if message[0] == 0x90]
    disorder = [number for number, (_, note) in enumerate(notes) if note != number]
    same((len(notes), disorder[:1]), (2001, []), "notes, and the first that is not in its place")
    long_one = b"".join(message for _, message in heard[2000:-1])
    same(len(long_one), 20000, "bytes of the long message, between the last two notes")
    same(long_one, bytes([0xF0, *(i * 7 % 127 for i in range(1, 19999)), 0xF7]), "the long message")
    late = sorted((moment - sent[number]) / 1e6 for moment, number in notes[:2000])
    median, most = late[len(late) // 2], late[len(late) * 99 // 100]
    cycle = 1000 * server.frames / RATE
    print(f"measured: from the engine's call to the instrument: median {median:.2f} ms, 99th percentile {most:.2f} ms "
          f"(a cycle of the server takes {cycle:.2f} ms)")
    same(median < 4 * cycle, True, f"median of {median} ms is soon")


def a_pedal_plays_what_it_was_taught(server, instrument, folder):
    with playing(folder, show_of(folder, {1: held(60)})) as player:
        player.do("command input instrument:pedal")
        for command, message, binding in (("Play", "b0407f", "controller 64, channel 1"),
                                          ("Stop", "9c247f", "note 36, channel 13")):
            player.do(f"learn {command}")
            instrument.press(message)
            wait_for(lambda: player.bindings().get(command) == binding, f"{command} to be learned")
        instrument.press("b04000")
        late = []
        for _ in range(100):
            instrument.take()
            pressed = instrument.press("b0407f")
            heard = []
            wait_for(lambda: heard.extend(instrument.take()) or any(one[0] == 0x90 for _, one in heard), "the note")
            late.append((next(moment for moment, one in heard if one[0] == 0x90) - pressed) / 1e6)
            for message in ("b04000", "9c247f", "8c2400"):
                instrument.press(message)
            wait_for(lambda: any(one[0] == 0x80 for _, one in instrument.take()), "the note to end")
    late.sort()
    print(f"measured: from the pedal to the first note: median {late[49]:.2f} ms, 99th percentile {late[98]:.2f} ms, "
          f"both by way of the server (a cycle takes {1000 * server.frames / RATE:.2f} ms)")
    same(late[49] < 100, True, f"median of {late[49]} ms is soon")


def a_pedal_is_taught_at_the_command_line(_server, instrument, folder):
    show = show_of(folder, {1: held(60)})
    kept = folder / "show.json.commands"
    one = b"\x14MidiCommandsSettings\1\0\0\0\0\1\0\5\xb0\0\x40"
    both = b"\x14MidiCommandsSettings\1\0\0\0\0\2\0\4\x90\x0c\x24\5\xb0\0\x40"
    listed = "\n".join(["input: instrument:pedal", "  Play              -", "  Pause             -",
                        "  Stop              %s", "  Next Song         controller 64, channel 1",
                        "  Previous Song     -", "  Next Marker       -", "  Previous Marker   -",
                        "  Continue          -", ""])
    for command, message, status, said, binding, written in (
            ("Next Song", "b0407f", 0, "Next Song: controller 64, channel 1", "-", one),
            ("Stop", None, 1, "nothing was learned for Stop", "-", one),
            ("Stop", "9c247f", 0, "Stop: note 36, channel 13", "note 36, channel 13", both),
            ("Stop", None, 1, "nothing was learned for Stop", "note 36, channel 13", both)):
        with listening("learn", show, "--input", "instrument:pedal", *command.lower().split()) as learning:
            if message:
                instrument.press(message)
            else:
                learning.send_signal(signal.SIGINT)
            out, errors = learning.communicate(timeout=PATIENCE)
        same((learning.returncode, out), (status, listed % binding), f"{command}, {message}:")
        asked = f"press the pedal or key for {command}; until then no other one fires (10 seconds; Enter gives up)"
        same(errors.splitlines(), [asked, f"vemo_player: {said}"], "standard error")
        same(kept.read_bytes(), written, "what was kept")


def what_arrives_is_printed(_server, instrument, _folder):
    with listening("monitor", "instrument:pedal") as monitor:
        for message in ("903c5a", "80 3c 40", "b2 07 64", "cf 7f", "e1 01 40", "f8", "f0 7d 01 02 f7",
                        "f0 7f 01 02 11 01 31 32 2e 33 00 32 f7"):
            instrument.press(message)
        impatience = threading.Timer(PATIENCE, monitor.kill)
        impatience.start()
        lines = [monitor.stdout.readline() for _ in range(8)]
        impatience.cancel()
        monitor.send_signal(signal.SIGINT)
        same(monitor.communicate(timeout=PATIENCE), ("", ""), "what else was said")
    same(monitor.returncode, 0, "status")
    same([line[12:] for line in lines],
         ["note on  C4 (60)  velocity 90  channel 1\n", "note off  C4 (60)  velocity 64  channel 1\n",
          "controller 7  value 100  channel 3\n", "program 128  channel 16\n", "pitch bend  1  channel 2\n", "clock\n",
          "system exclusive  5 bytes  F0 7D 01 02 F7\n",
          "show control  GO '12.3'  list '2'  path ''  device 1  format 11\n"], "printed behind the time")
    times = [float(line[:10]) for line in lines]
    same(times, sorted(times), "times")


def a_desk_starts_the_song_that_it_names(_server, instrument, folder):
    show = show_of(folder, {number: held(number) for number in (50, 60, 70)},
                   showControl={"input": "instrument:pedal", "deviceId": 1, "cueList": "2"})
    with playing(folder, show) as player:
        def control():
            return player.do("state")["state"]["showControl"]

        wait_for(lambda: control()["state"] == "on", "the desk to be heard")
        refused = subprocess.run([BIN / "vemo_player", "learn", show, "--input", "instrument:pedal"], env=ENVIRONMENT,
                                 stderr=subprocess.PIPE, text=True, timeout=60, check=False)
        same((refused.returncode, "is the input of show control" in refused.stderr), (2, True), refused.stderr)
        newest = ""
        for what, sent, number, cues, refused, said in (
                ("GO 60", b"\1\2\x11\1" b"60\0" b"2", 60, 1, 0, ""),
                ("GO 70, lighting", b"\1\2\1\1" b"70", None, 1, 1, "Invalid MSC command format type"),
                ("STOP", b"\1\2\x11\2", None, 1, 2, "Invalid Msc command"),
                ("GO 70 of list 3", b"\1\2\x11\1" b"70\0" b"3", None, 1, 3, "cue list '3' is not this show's"),
                ("GO 70 of another device", b"\2\2\x11\1" b"70", None, 1, 3, ""),
                ("GO while it plays", b"\1\2\x11\1", None, 2, 4, "the music plays already"),
                ("GO 50, all-call, audio effects", b"\x7f\2\x17\1" b"50", 50, 3, 4, ""),
                ("stop", None, None, 3, 4, ""),
                ("GO", b"\1\2\x11\1", 50, 4, 4, "")):
            newest = said or newest
            instrument.take()
            if sent:
                instrument.press((b"\xf0\x7f" + sent + b"\xf7").hex())
            else:
                player.do(what)
            heard = []

            def struck():
                heard.extend(instrument.take())
                return [message[1] for _, message in heard if message[0] >> 4 == 9]
            if number:
                wait_for(struck, f"{what}: the note")
            wait_for(lambda: (control()["cues"], control()["refused"]) == (cues, refused), f"{what}: to be counted")
            time.sleep(0.3)
            same((struck(), control()["newestRefusal"]), ([number] if number else [], newest), what)


def an_unplugged_instrument_is_shown_and_comes_back_with_its_state(_server, instrument, folder):
    with playing(folder) as player:
        same(player.device(), {"name": "instrument:in", "state": "ok"}, "device")
        player.do("play")
        time.sleep(2)
        instrument.unplug()
        wait_for(lambda: player.device()["state"] == "lost", "the loss to be shown")
        clocks = player.do("state")["position"]["bar"]
        time.sleep(1.5)
        same(player.do("state")["position"]["bar"] > clocks, True, "the music goes on")
        instrument.__init__("instrument")
        wait_for(lambda: player.device()["state"] == "ok", "the return to be shown")
        heard = []
        wait_for(lambda: heard.extend(instrument.take()) or sum(one[0] >> 4 == 9 for _, one in heard) > 10, "notes")
        known = set()
        for _, message in heard:
            channel, kind = message[0] & 15, message[0] >> 4
            if kind == 0xC or kind == 0xB and message[1] == 7:
                known.add((channel, kind))
            elif kind == 9:
                same({(channel, 0xB), (channel, 0xC)} <= known, True, f"volume and program before a note of {channel}")


def an_instrument_that_is_away_for_a_moment_is_heard_again(_server, instrument, folder):
    with playing(folder) as player:
        player.do("play")
        for _ in range(3):  # the player looks once a second, and may see it gone
            instrument.unplug()
            instrument.__init__("instrument")
            wait_for(lambda: any(one[0] >> 4 == 9 for _, one in instrument.take()), "notes")


def a_monitor_tells_when_its_input_goes_and_comes_back(_server, instrument, folder):
    said, heard = folder / "said", folder / "heard"
    with said.open("w") as errors, heard.open("w") as output:
        monitor = subprocess.Popen([BIN / "vemo_player", "monitor", "instrument:pedal"], env=ENVIRONMENT,
                                   stdout=output, stderr=errors)
    try:
        wait_for(lambda: instrument.press("903c40") and "note on  C4 " in heard.read_text(), "a note")
        instrument.unplug()
        wait_for(lambda: "lost" in said.read_text(), "the loss to be told")
        instrument.__init__("instrument")
        wait_for(lambda: "is there" in said.read_text(), "the return to be told")
        wait_for(lambda: instrument.press("903d40") and "note on  C#4 " in heard.read_text(), "a note again")
        monitor.send_signal(signal.SIGINT)
        same(monitor.wait(5), 0, "status of a monitor that is interrupted")
    finally:
        monitor.kill()
    text = said.read_text()
    same((text.count("' is lost"), text.count("' is there")), (1, 1), "told once each")


def a_server_that_dies_or_hangs_hangs_no_player(server, instrument, folder):
    show = show_of(folder, {1: mido.MidiFile(SONG)})

    def steered():
        return player.do("state")["state"]["commandInput"]["state"]

    with resumed_at_last(server), playing(folder, show) as player:
        player.do("command input instrument:pedal")
        player.do("play")
        time.sleep(1)
        server.die()
        instrument.unplug()
        wait_for(lambda: player.device()["state"] == "lost" and steered() == "missing", "the loss to be shown")
        before = player.processor_seconds()
        time.sleep(2)
        same(player.processor_seconds() - before < 1, True, "a processor is not kept busy without a server")
        server.__init__(USUAL)
        instrument.__init__("instrument")
        for _ in range(2):
            wait_for(lambda: player.device()["state"] == "ok" and steered() == "on", "the return to be shown")
            instrument.take()
            wait_for(instrument.take, "the music to be heard again")
            os.kill(server.process.pid, signal.SIGSTOP)
            wait_for(lambda: player.device()["state"] == "lost", "a server that hangs to be shown")
            os.kill(server.process.pid, signal.SIGCONT)
        os.kill(server.process.pid, signal.SIGSTOP)


def run_on(kind, tests):
    """How many passed and failed; None where no server can run."""
    server = Server(kind)
    try:
        instrument = Instrument("instrument")
        if not instrument.is_ready:
            if server.process.poll() is not None:
                return None
            print("FAILED: the instrument cannot be played")
            return 0, 1
        passed = 0
        for test in tests:
            with tempfile.TemporaryDirectory() as name:
                passed += passes(test, server, instrument, pathlib.Path(name))
        instrument.end()
        return passed, len(tests) - passed
    finally:
        server.end()


def main():
    if not shutil.which("jackd") or not importlib.util.find_spec("jack"):
        print("LEFT OUT: jackd2 or python3-jack-client is not installed")
        return 0
    counts = [run_on(PATIENT, [the_song_arrives_whole, messages_arrive_soon_and_long_ones_whole,
                                a_pedal_plays_what_it_was_taught, a_pedal_is_taught_at_the_command_line,
                                what_arrives_is_printed, a_desk_starts_the_song_that_it_names]),
              run_on(USUAL, [an_unplugged_instrument_is_shown_and_comes_back_with_its_state,
                             an_instrument_that_is_away_for_a_moment_is_heard_again,
                             a_monitor_tells_when_its_input_goes_and_comes_back,
                             a_server_that_dies_or_hangs_hangs_no_player])]
    ran = [count for count in counts if count]
    passed, failed = sum(one for one, _ in ran), sum(one for _, one in ran)
    if len(ran) < len(counts) and not failed:
        print("LEFT OUT: no JACK server with the dummy driver can run here")
        return 0
    return told(passed, failed)


if __name__ == "__main__":
    if "--be" in sys.argv:
        SERVER = os.environ["JACK_DEFAULT_SERVER"]
        be_instrument(sys.argv[-1])
    else:
        sys.exit(main())
