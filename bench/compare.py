"""Compares VELK with the compressors installed here, over the files of a folder.

Started by scripts/bench. Writes tables to OUTPUT.md (docs/benchmarks.md) and two charts
beside it. Every file is compressed and restored N times (5) by each program in turn, on
one thread; a time is the median of what the system counts as processor time, so that
other work on the machine disturbs little. Restored files are compared.
"""
import argparse
import math
import os
import platform
import re
import shutil
import statistics
import subprocess
import sys
import tempfile
from pathlib import Path

TOP = Path(__file__).resolve().parent.parent
VELK = TOP / "build/release/VELK"

# name, program, its arguments to compress and to restore {i} to {o} ("<" and ">": through
# the standard streams), how to get its version
PEERS = [
    ("VELK", VELK, "e {i} {o}", "d {i} {o}", ""),
    ("VELK -b16383", VELK, "e {i} {o} -b16383", "d {i} {o}", ""),
    ("bzip2 -9", "bzip2", "-9 -c < >", "-d -c < >", "--version"),
    ("bzip3 -b 2", "bzip3", "-e -c -b 2 < >", "-d -c < >", "--version"),
    ("bzip3 -b 16", "bzip3", "-e -c -b 16 < >", "-d -c < >", "--version"),
    ("xz -9e", "xz", "-9e -T1 -c < >", "-d -T1 -c < >", "--version"),
    ("zstd -19", "zstd", "-19 --single-thread -q -c < >", "-d -q -c < >", "--version"),
    ("7z PPMd", "7z", "a -m0=PPMd -mx=9 -mmt=1 -bd {o} {i}", "e -so -mmt=1 {i} >", ""),
]
SWITCHES = [("EOL", "-e"), ("FLT32", "-f"), ("DELTA", "-l"), ("LZP", "-z"), ("RLE", "-r"),
            ("BWT", "-t")]


def run(program, arguments, source, target):
    """Runs it and returns its processor seconds and its largest memory in bytes."""
    arguments = arguments.split()
    stdin = open(source, "rb") if "<" in arguments else subprocess.DEVNULL
    stdout = open(target, "wb") if ">" in arguments else subprocess.DEVNULL
    words = [w.format(i=source, o=target) for w in arguments if w not in "<>"]
    process = subprocess.Popen([str(program), *words], stdin=stdin, stdout=stdout,
                               stderr=subprocess.DEVNULL)
    _, status, usage = os.wait4(process.pid, 0)
    process.returncode = os.waitstatus_to_exitcode(status)
    if process.returncode != 0:
        sys.exit(f"{program} {' '.join(words)}: status {process.returncode}")
    return usage.ru_utime + usage.ru_stime, usage.ru_maxrss * 1024


def measure(peers, files, rounds, scratch):
    """(peer, file) -> bytes, compression times, restoring times, memory of both."""
    results = {(p[0], f): [0, [], [], 0, 0] for p in peers for f in files}
    for turn in range(rounds):
        for file in files:
            for name, program, compress, restore, _ in peers:
                packed, restored = scratch / "packed.7z", scratch / "restored"
                packed.unlink(missing_ok=True)
                result = results[name, file]
                for step, command, source, target in ((1, compress, file, packed),
                                                      (2, restore, packed, restored)):
                    seconds, memory = run(program, command, source, target)
                    result[step].append(seconds)
                    result[step + 2] = max(result[step + 2], memory)
                result[0] = packed.stat().st_size
                # By another program: the memory of this one is the least that a
                # program it starts is seen to take.
                if turn == 0 and subprocess.run(["cmp", "-s", file, restored]).returncode != 0:
                    sys.exit(f"{name}: {file} came back changed")
        print(f"round {turn + 1} of {rounds}", file=sys.stderr)
    return results


def version(program, argument):
    if program == VELK:
        text = subprocess.run([program], capture_output=True, text=True, errors="replace").stderr
    else:
        text = subprocess.run([program, *argument.split()], capture_output=True, text=True,
                              stdin=subprocess.DEVNULL)
        text = text.stdout + text.stderr
    found = re.search(r"\d+\.\d+(\.\d+)?", text)
    return found.group() if found else "?"


def machine():
    def first(path, pattern):
        found = re.search(pattern, Path(path).read_text(), re.M) if os.path.exists(path) else None
        return found.group(1) if found else "unknown"
    return (f"{first('/proc/cpuinfo', '^model name.*: (.*)')}, "
            f"{first('/etc/os-release', '^PRETTY_NAME=.(.*).$')}, Linux {platform.release()}, "
            f"{platform.machine()}")


def row(cells, bold=False):
    return "| " + " | ".join(f"**{c}**" if bold else str(c) for c in cells) + " |"


def table(heads, rows):
    return "\n".join([row(heads), "|---" + "|---:" * (len(heads) - 1) + "|",
                      *(row(r, str(r[0]).startswith("VELK")) for r in rows)])


CHART_STYLE = """
  svg { --ink: #1f2328; --soft: #59636e; --grid: #d8dee4; --paper: #ffffff; --velk: #b3400a; }
  @media (prefers-color-scheme: dark) {
    svg { --ink: #e6edf3; --soft: #9198a1; --grid: #30363d; --paper: #0d1117; --velk: #ff9a5c; }
  }
  text { font: 13px system-ui, sans-serif; fill: var(--ink); }
  .soft { fill: var(--soft); } .grid { stroke: var(--grid); }
  .peer { fill: var(--soft); } .velk { fill: var(--velk); } text.velk { font-weight: 600; }
"""


def chart(title, points):
    """An SVG of (name, seconds, percent of the original); the better, the lower left."""
    width, height, left, right, top, bottom = 720, 400, 60, 120, 50, 50
    low, high = (f(math.log2(p[1]) for p in points) for f in (min, max))
    low, high = math.floor(low), math.ceil(high + 0.01)
    bottom_percent = math.floor(min(p[2] for p in points)) - 1
    top_percent = math.ceil(max(p[2] for p in points)) + 1

    def x(seconds):
        return left + (math.log2(seconds) - low) / (high - low) * (width - left - right)

    def y(percent):
        return height - bottom - (percent - bottom_percent) / (top_percent - bottom_percent) * (
            height - top - bottom)
    svg = [f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width} {height}" role="img" '
           f'aria-label="{title}"><style>{CHART_STYLE}</style>',
           f'<rect width="{width}" height="{height}" fill="var(--paper)"/>',
           f'<text x="{left}" y="24">{title} (seconds, each step twice as long)</text>',
           f'<text x="{left}" y="41" class="soft">size of the archives in % of the files; '
           'better is lower and further left</text>']
    for power in range(low, high + 1):
        at = x(2.0 ** power)
        svg.append(f'<line class="grid" x1="{at:.0f}" x2="{at:.0f}" y1="{top}" '
                   f'y2="{height - bottom}"/><text class="soft" text-anchor="middle" '
                   f'x="{at:.0f}" y="{height - 30}">{2.0 ** power:g}</text>')
    step = max(1, round((top_percent - bottom_percent) / 8))
    for percent in range(bottom_percent, top_percent + 1, step):
        at = y(percent)
        svg.append(f'<line class="grid" x1="{left}" x2="{width - right}" y1="{at:.0f}" '
                   f'y2="{at:.0f}"/><text class="soft" text-anchor="end" x="{left - 8}" '
                   f'y="{at + 4:.0f}">{percent}%</text>')
    labels = []
    for name, seconds, percent in sorted(points, key=lambda p: p[2]):
        px, py = x(seconds), y(percent)
        label = py + 4
        while any(abs(px - ox) < 110 and abs(label - oy) < 15 for ox, oy in labels):
            label -= 2
        labels.append((px, label))
        kind = "velk" if name.startswith("VELK") else "peer"
        svg.append(f'<circle class="{kind}" cx="{px:.1f}" cy="{py:.1f}" r="5"/>'
                   f'<text{" class=" + chr(34) + "velk" + chr(34) if kind == "velk" else ""} '
                   f'x="{px + 10:.1f}" y="{label:.1f}">{name}</text>')
    return "\n".join(svg + ["</svg>\n"])


def stage_gains(files, scratch):
    """By how much each file's archive grows with a stage off."""
    rows = []
    for file in files:
        sizes = []
        for switch in ["-s"] + [s for _, s in SWITCHES]:
            run(VELK, f"e {{i}} {{o}} {switch}", file, scratch / "stage")
            sizes.append((scratch / "stage").stat().st_size)
        growth = [f"{100 * (s / sizes[0] - 1):+.2f}%" for s in sizes[1:]]
        rows.append([file.name, *("0" if g[1:] == "0.00%" else g for g in growth)])
    return table(["file", *(f"{n} off `{s}`" for n, s in SWITCHES)], rows)


def report(peers, files, results, rounds, gains, output):
    total = sum(f.stat().st_size for f in files)
    floor = run("true", "", "", "")[1] * 1.1  # what this program itself takes

    def megabytes(memory):
        return f"{memory / 1e6:.0f}" if memory > floor else f"under {floor / 1e6:.0f}"
    sums, rows = {}, []
    for name, *_ in peers:
        of_files = [results[name, f] for f in files]
        size = sum(r[0] for r in of_files)
        seconds = [sum(statistics.median(r[step]) for r in of_files) for step in (1, 2)]
        memory = [megabytes(max(r[step] for r in of_files)) for step in (3, 4)]
        sums[name] = (size, *seconds)
        rows.append([name, f"{size:,}", f"{100 * size / total:.2f}%",
                     *(f"{s:.2f} s" for s in seconds), *(f"{m} MB" for m in memory)])
    for kind, step in (("compression", 1), ("restoring", 2)):
        points = [(n, max(s[step], 0.01), 100 * s[0] / total) for n, s in sums.items()]
        path = output.with_name(f"{output.stem}-{kind}.svg")
        path.write_text(chart(f"Time of {kind}", points))
    versions = dict.fromkeys(f"{Path(p[1]).name} {version(p[1], p[4])}" for p in peers)
    sizes = [[f.name, f"{f.stat().st_size:,}", *(f"{results[p[0], f][0]:,}" for p in peers)]
             for f in files]
    output.write_text(f"""# Benchmarks

Made by `scripts/bench` over {len(files)} files, {total:,} bytes together; one thread each; medians
of processor time over alternating rounds ({rounds}); memory at its largest ("under": less than
the measuring program itself, and not seen).

Machine: {machine()}.
Versions: {", ".join(versions)}.

{table(["program", "archives", "of the files", "compression", "restoring",
        "memory", "to restore"], rows)}

![Size against time of compression]({output.stem}-compression.svg)

![Size against time of restoring]({output.stem}-restoring.svg)

## File by file

Bytes.

{table(["file", "size", *(p[0] for p in peers)], sizes)}

## What each stage gains

How much larger an archive of VELK gets with one stage switched off (smaller, with a
minus: there the stage does harm). With `-t` the ST sorts in place of the BWT.

{gains}
""")


def main():
    parser = argparse.ArgumentParser(prog="scripts/bench", description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--rounds", type=int, default=5)
    parser.add_argument("folder", type=Path)
    parser.add_argument("output", type=Path, nargs="?", default=TOP / "docs/benchmarks.md")
    options = parser.parse_args()
    subprocess.run([TOP / "scripts/velk"], capture_output=True)  # builds it
    files = sorted(f for f in options.folder.iterdir() if f.is_file() and f.stat().st_size > 0)
    if not files or not VELK.exists():
        sys.exit(f"{options.folder}: no files" if VELK.exists() else "VELK can't be built")
    peers = [p for p in PEERS if shutil.which(p[1])]
    for name in (p[0] for p in PEERS if p not in peers):
        print(f"left out, not installed: {name}", file=sys.stderr)
    with tempfile.TemporaryDirectory() as scratch:
        results = measure(peers, files, options.rounds, Path(scratch))
        gains = stage_gains(files, Path(scratch))
    report(peers, files, results, options.rounds, gains, options.output)


main()
