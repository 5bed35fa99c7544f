"""The results of script/bench as tables, plots and a verdict."""

import subprocess
import sys

from measures import FLOOR, HOST

# What a measure may be at most, for the column beside it.
TARGETS = {
    "blast": 1.00, "pace": 1.10, "text": 1.25, "JSON": 1.25, "control": 1.02, "others": 1.02,
    "downstream": 900, "allocations": 1, "system calls": 1.00, "round trip": 1.08,
    "reader start": 1.25, "owner change": 1.15, "camera start": 5.5e6, "memory": 4, "idle": 0,
}


def measured(results):
    """(key, what it is, value, unit or what it is a ratio to) of each measure that was made."""
    signals = results["signals"]

    def ratio(name, mode, base=FLOOR):
        return signals[name][mode]["median"] / signals[base][mode]["median"]

    others = list(results["others"].values())
    rows = [
        ("blast", "signals in a blast, no lines", ratio(HOST, "blast"), "× floor"),
        ("pace", "one signal at a time, no lines", ratio(HOST, "pace"), "× floor"),
        ("text", "signals in a blast, lines of text", ratio("fenwa, text", "blast"), "× floor"),
        ("JSON", "signals in a blast, lines of JSON", ratio("fenwa, JSON", "blast"), "× floor"),
        ("control", "--control with nobody watching",
         ratio("fenwa, --control", "pace", HOST), "× without"),
        ("others", "the same beside more and more other blocks", max(others) / min(others),
         "largest / smallest"),
        ("downstream", "each further block behind the reader",
         results["downstream"]["instructions"], "instructions"),
        ("allocations", "allocations for a signal",
         signals[HOST]["allocations"]["median"] - signals[FLOOR]["allocations"]["median"],
         "more than the floor"),
        ("reader start", "exchanges of a reader at its start",
         results["reader starts"]["fenwa"] / results["reader starts"]["sd-bus"], "× sd-bus"),
        ("owner change", "each block, when a name's owner changes",
         results["owner changes"]["fenwa"] / results["owner changes"]["sd-bus"], "× sd-bus"),
        ("camera start", "start of the camera's graph", results["camera start"]["instructions"],
         "instructions"),
    ]
    if "system calls" in results:
        calls = results["system calls"]
        rows.append(("system calls", "system calls for a signal", calls[HOST] / calls[FLOOR],
                     "× floor"))
        trips = results["round trips"]
        rows += [("round trip", f"round trip, {title}",
                  trips[HOST][key]["median"] / trips["sd-bus"][key]["median"], "× sd-bus")
                 for key, title in (("median", "median"), ("p99", "99th percentile"))]
        rows.append(("memory", "memory of each further reader", results["memory"]["reader"], "KiB"))
        idle = results["idle"]
        rows.append(("idle", f"wake-ups in {idle['seconds']:.0f} s with nothing to do",
                     idle["wake-ups"], ""))
    return rows


def number(value):
    return f"{value:,.0f}" if value >= 100 else f"{value:.2f}"


def with_range(made, form):
    """The median of the turns, and the least and the most where they differ."""
    least, most = (form.format(value) for value in made["range"])
    median = form.format(made["median"])
    return median if least == most else f"{median} ({least} to {most})"


def tables(results):
    signals = results["signals"]
    trips = results.get("round trips", {})
    columns = [("in a blast", "blast"), ("one at a time", "pace")]
    lines = ["Instructions for one signal" + (", and microseconds of a round trip" if trips else "")
             + ": medians of the turns, with the least and the most",
             "", "| | in a blast | × floor | one at a time | × floor |"
             + (" median, µs | 99th percentile, µs |" if trips else ""),
             "|---|" + "---|" * (6 if trips else 4)]
    for name, row in signals.items():
        cells = [name]
        for _, key in columns:
            cells += [with_range(row[key], "{:,.0f}"),
                      f"{row[key]['median'] / signals[FLOOR][key]['median']:.2f}"]
        if trips:
            cells += [with_range(trips[name][key], "{:.0f}") for key in ("median", "p99")]
        lines.append("| " + " | ".join(cells) + " |")
    lines += ["", "| measure | measured | | aim |", "|---|---|---|---|"]
    lines += [f"| {title} | {number(value)} | {unit} | {number(TARGETS[key])} |"
              for key, title, value, unit in measured(results)]
    return "\n".join(lines)


def above(results, limits):
    """Names the measures above their limits, which are given by key, on stderr. @returns their number."""
    found = 0
    for key, title, value, unit in measured(results):
        if key in limits and value > limits[key]:
            print(f"script/bench: {title}: {number(value)} {unit} is above the limit of "
                  f"{number(limits[key])}", file=sys.stderr)
            found += 1
    return found


PLOT = """
set terminal svg size 760,{height} font "DejaVu Sans,13" background "white"
set output "{path}"
set title "{title}"
set xrange [0:{limit}]
set rmargin 4
set yrange [-0.6:{rows}.{tenth}]
set style fill solid
set boxwidth 0.6
set ytics ({labels})
set grid xtics
unset key
$data << EOD
{data}
EOD
plot $data using ($2/2):0:($2/2):(0.3) with boxxyerror linecolor rgb "#4477aa", \\
     $data using 2:0:(sprintf(" %s", strcol(3))) with labels left
"""


def bars(path, title, values, form):
    """A bar for each of the values, by name, the first one on top."""
    rows = list(reversed(values.items()))
    script = PLOT.format(
        path=path, title=title, height=90 + 30 * len(rows), rows=len(rows) - 1, tenth=6,
        limit=1.15 * max(values.values()),  # with room for the number behind the longest bar
        labels=", ".join(f'"{name}" {at}' for at, (name, _) in enumerate(rows)),
        data="\n".join(f'"{name}" {value} "{form.format(value)}"' for name, value in rows))
    subprocess.run(["gnuplot"], input=script, text=True, check=True)


def draw(results, folder):
    folder.mkdir(parents=True, exist_ok=True)
    signals = results["signals"]
    for mode, title in (("blast", "in a blast"), ("pace", "one at a time")):
        bars(folder / f"performance-{mode}.svg", f"Instructions for a signal, {title}",
             {name: row[mode]["median"] for name, row in signals.items()}, "{:,.0f}")
    if "round trips" in results:
        bars(folder / "performance-round-trip.svg", "Round trip on one core, median, microseconds",
             {name: row["median"]["median"] for name, row in results["round trips"].items()}, "{:.0f}")
