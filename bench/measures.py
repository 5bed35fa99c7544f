"""What script/bench measures, as functions that return plain dictionaries."""

import statistics
import time

from harness import (BIN, PERIOD, ROOT, Bus, count_until, counting, private_memory, running, say,
                     settle, system_calls, wake_ups)

FLOOR = "floor"
HOST = "fenwa, no lines"

READER = """
[blocks.{}]
type = "TemperatureReader"
sensor_name = "main"
delta_chg = 0.5
"""
MONITOR = """
[blocks.{}]
type = "PowerMonitor"
requested_power = 5.0
"""
RELAY = """
[blocks.{}]
type = "Relay"
[[connections]]
from = "{}"
to = "{}.in"
"""


def graph(folder, *blocks):
    """The options of a host that runs a reader, behind these blocks."""
    path = folder / "graph.toml"
    # With so many runs saved up, the block runs for each signal of a blast.
    head = 'plugins = ["libfenwa-temperature.so", "libbench-relay.so"]\n[host]\nrun_burst = 1000000\n'
    path.write_text(head + READER.format("reader") + "".join(blocks), encoding="utf-8")
    return path


def host(path, address, *options):
    return [BIN / "fenwa", "run", path, "--bus", address, *options]


def receivers(folder):
    """All that hear the signal: makers of commands, by name."""
    path = graph(folder)

    def fenwa(*options):
        return lambda address: host(path, address, *options)

    def peer(program, *options):
        return lambda address: [BIN / program, address, *options]

    return {
        "sd-bus": peer("bench-sd-bus"),
        FLOOR: peer("bench-sd-bus", 1),
        HOST: fenwa("--quiet"),
        "fenwa, text": fenwa(),
        "fenwa, JSON": fenwa("--format", "json"),
        "fenwa, --control": fenwa("--quiet", "--control"),
        "sdbus-c++": peer("bench-sdbus-cpp"),
        "libdbus": peer("bench-libdbus"),
        "GDBus": peer("bench-gdbus"),
    }


def count_signals(folder, make_command, signals):
    """Instructions and allocations for one signal, in a blast and one at a time."""
    with Bus(folder) as bus, counting(bus, make_command(bus.address)) as (count, process):
        bus.order("registered")
        settle(process)
        bus.order("pace", 20, PERIOD)  # what is done at the first signals only
        blast = count(lambda: bus.order("blast", 5 * signals))
        pace = count(lambda: bus.order("pace", signals, PERIOD))
    return {"blast": blast.instructions / signals / 5, "pace": pace.instructions / signals,
            "allocations": pace.allocations / signals}


def spread(values):
    """The median of the turns, with the least and the most."""
    return {"median": statistics.median(values), "range": [min(values), max(values)]}


def signals(folder, number, turns):
    counts = {name: [] for name in receivers(folder)}
    for turn in range(turns):
        for name, make_command in receivers(folder).items():
            say(f"instructions for a signal: {name}, turn {turn + 1} of {turns}")
            counts[name].append(count_signals(folder, make_command, number))
    return {name: {mode: spread([count[mode] for count in made]) for mode in made[0]}
            for name, made in counts.items()}


def round_trips(folder, turns, number):
    """Microseconds until a signal is handled and a call behind it answered, all on one core."""
    times = {name: [] for name in receivers(folder)}  # a list for each turn
    for turn in range(turns):
        say(f"round trips: turn {turn + 1} of {turns}")
        for name, make_command in receivers(folder).items():
            with Bus(folder, pin=["taskset", "-c", "0"]) as bus:
                with running(bus, make_command(bus.address)):
                    bus.order("registered")
                    bus.order("trips", 200)
                    times[name].append([float(word) for word in bus.order("trips", number)[:-1]])
    return {name: {"median": spread([statistics.median(turn) for turn in all_turns]),
                   "p99": spread([statistics.quantiles(turn, n=100)[98] for turn in all_turns])}
            for name, all_turns in times.items()}


def calls(folder, number):
    """System calls for a signal, one at a time."""
    results = {}
    for name in (FLOOR, HOST):
        say(f"system calls: {name}")
        make_command = receivers(folder)[name]
        with Bus(folder) as bus:
            made = system_calls(bus, make_command(bus.address),
                                lambda: bus.order("pace", number, PERIOD))
        results[name] = made / number
    return results


def beside_others(folder, number, others):
    """Instructions for a signal to one reader, beside so many blocks of another service."""
    results = {}
    for other in others:
        say(f"instructions for a signal beside {other} other blocks")
        path = graph(folder, *(MONITOR.format(f"other{i}") for i in range(other)))
        results[str(other)] = count_signals(
            folder, lambda address: host(path, address, "--quiet"), number)["pace"]
    return results


def downstream(folder, number):
    """What each further block of a chain behind the reader adds to a signal."""
    lengths = (1, 11)
    instructions, made = {}, {}
    for length in lengths:
        say(f"a chain of {length} blocks behind the reader")
        ends = ["reader.temperature_out"] + [f"relay{i}.out" for i in range(length)]
        path = graph(folder, *(RELAY.format(f"relay{i}", ends[i], f"relay{i}")
                               for i in range(length)))

        def command(address):
            return host(path, address, "--quiet")

        instructions[length] = count_signals(folder, command, number)["pace"]
        with Bus(folder) as bus:
            made[length] = system_calls(bus, command(bus.address),
                                        lambda: bus.order("pace", number, PERIOD)) / number
    more = lengths[1] - lengths[0]
    return {"instructions": (instructions[lengths[1]] - instructions[lengths[0]]) / more,
            "system calls": (made[lengths[1]] - made[lengths[0]]) / more}


def owner_changes(folder, number):
    """Instructions of each block that follows an owner, for the change of another name's."""
    few, many = 1, 101

    def slope(make_command):
        counts = []
        for blocks in (few, many):
            with Bus(folder) as bus, counting(bus, make_command(bus.address, blocks)) as (count, process):
                bus.order("registered")
                settle(process)
                bus.order("owners", 20)
                counts.append(count(lambda: bus.order("owners", number)).instructions)
        return (counts[1] - counts[0]) / (many - few) / number

    say("owner changes: sd-bus")
    raw = slope(lambda address, blocks: [BIN / "bench-sd-bus", address, blocks])
    say("owner changes: fenwa")
    ours = slope(lambda address, blocks: host(
        graph(folder, *(READER.format(f"reader{i}") for i in range(1, blocks))), address,
        "--quiet"))
    return {"sd-bus": raw, "fenwa": ours}


def reader_starts(folder):
    """Instructions of each further reader's exchanges with the bus and the service, at the start."""
    few, many = 1, 21

    def slope(make_command, loop):
        counts = []
        for readers in (few, many):
            with Bus(folder) as bus:
                command = make_command(bus.address, readers)
                with counting(bus, command, f"--toggle-collect={loop}") as (count, _):
                    bus.order("registered")
                    bus.order("read", readers)
                    counts.append(count().instructions)
        return (counts[1] - counts[0]) / (many - few)

    say("starts of readers: sd-bus")
    raw = slope(lambda address, readers: [BIN / "bench-sd-bus-readers", address, readers],
                "sd_event_loop")
    say("starts of readers: fenwa")
    ours = slope(lambda address, readers: host(
        graph(folder, *(READER.format(f"reader{i}") for i in range(1, readers))), address,
        "--quiet"), "host::EventLoop::run(*")
    return {"sd-bus": raw, "fenwa": ours}


def camera_start(folder):
    """Instructions until all blocks of the camera's graph are started."""
    say("start of the camera's graph")
    path = ROOT / "examples" / "graphs" / "camera.toml"
    with Bus(folder, service=lambda address: [BIN / "fenwa-camera", "run", "--bus", address]) as bus:
        counts = count_until(bus, host(path, bus.address, "--quiet", "--for", "1"),
                             "host::EventLoop::run(*")
    return {"instructions": counts.instructions}


def memory(folder):
    """KiB that each further reader takes for itself."""
    few, many = 1, 201
    sizes = []
    for readers in (few, many):
        say(f"memory of {readers} readers")
        path = graph(folder, *(READER.format(f"reader{i}") for i in range(1, readers)))
        with Bus(folder) as bus, running(bus, host(path, bus.address, "--quiet")) as process:
            bus.order("registered")
            bus.order("read", readers)
            settle(process)
            sizes.append(private_memory(process))
    return {"reader": (sizes[1] - sizes[0]) / (many - few)}


class IdleHost:
    """A host with nothing to do, whose wake-ups are counted while others are measured."""

    def __init__(self, folder):
        self.folder = folder / "idle"
        self.folder.mkdir()

    def __enter__(self):
        path = graph(self.folder)
        self.bus = Bus(self.folder).__enter__()
        self.run = running(self.bus, host(path, self.bus.address, "--quiet"))
        self.process = self.run.__enter__()
        self.bus.order("registered")
        self.bus.order("read", 1)
        time.sleep(17)  # until the host has seen that nothing happens
        self.since = time.monotonic()
        self.before = wake_ups(self.process)
        return self

    def result(self):
        return {"wake-ups": wake_ups(self.process) - self.before,
                "seconds": time.monotonic() - self.since}

    def __exit__(self, *failure):
        self.run.__exit__(*failure)
        self.bus.__exit__(*failure)
