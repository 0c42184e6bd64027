#!/usr/bin/env python3
"""This library beside raw sockets and other RPC libraries: `peers.py [--quick | --smoke] [--peers A,B] [--rows X,Y] DIRECTORY`.

DIRECTORY has the programs peer_NAME; a peer without one is left out. In each row the peers' servers and clients are started and then take
turns, round by round, in an order that moves on by one; a ratio is that of two peers within one round. Rows whose figures hang on how programs
and connections happen to begin (BIG) start them anew each round. Prints a table at the end.
"""
import argparse
import dataclasses
import os
import pathlib
import socket
import statistics
import subprocess
import sys
import tempfile

PEERS = {"raw": "raw sockets", "poa": "this library", "thrift": "Thrift", "capnp": "Cap'n Proto", "grpc": "gRPC"}
SMALL, LARGE = 16, 1 << 20
INAPT = ("has no objects", "threads cannot share a connection", "nothing to call within the process")  # no failures
LOG = tempfile.TemporaryFile("w+")  # what the programs write beside their answers; shown when one failed


@dataclasses.dataclass
class Row:
    name: str
    what: str
    unit: str = "us"          # us: median of a call; ns: the same; calls/s; MB/s
    operation: str = "echo"
    octets: int = SMALL
    threads: int = 1
    cores: int = 1
    shared: bool = False
    idle: int = 0
    objects: int = 1
    local: bool = False
    restart: bool = False     # new programs each round
    costs: bool = False       # and what the server's objects cost


def all_rows():
    rows = [
        Row("L1", "echo of 16 octets, one core"),
        Row("L1 add", "two numbers, one core", operation="add"),
        Row("T4", "4 threads, a connection each, two cores", "calls/s", threads=4, cores=2),
        Row("T4 shared", "4 threads, one reference, two cores", "calls/s", threads=4, cores=2, shared=True),
        Row("BIG", "echo of 1 MiB, one core", "MB/s", octets=LARGE, restart=True),
        Row("BIG 2", "echo of 1 MiB, two cores", "MB/s", octets=LARGE, cores=2, restart=True),
        Row("C500", "L1 beside 500 idle connections", idle=500),
        Row("C10K", "L1 beside 10,000 idle connections", idle=10000),
    ]
    for shared in (False, True):
        for threads in (1, 2, 4, 8, 16, 64):
            rows.append(Row(f"CONC {threads}" + (" shared" if shared else ""), f"{threads} threads, two cores", "calls/s",
                            threads=threads, cores=2, shared=shared))
    rows += [Row(f"DISPATCH {op}", f"{op} within the process", "ns", operation=op, local=True) for op in ("add", "echo")]
    rows += [Row(f"MANY {n:,}", f"L1, {n:,} objects", objects=n, restart=True, costs=True) for n in (1, 10**3, 10**5, 10**6)]
    return rows


# ---- Processes ----

def free_port():
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


class Process:
    """A peer's program on some cores, spoken to in lines."""

    def __init__(self, program, arguments, cores):
        self.process = subprocess.Popen([program, *map(str, arguments)], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                        stderr=LOG, text=True, preexec_fn=lambda: os.sched_setaffinity(0, cores))

    def line(self):
        line = self.process.stdout.readline()
        if not line:
            raise RuntimeError("the program ended")
        if line.startswith("no "):
            raise RuntimeError(line[3:].strip())
        return line.split()

    def ask(self, *words):
        self.process.stdin.write(" ".join(map(str, words)) + "\n")
        self.process.stdin.flush()
        return self.line()

    def end(self):
        self.process.stdin.close()
        try:
            self.process.wait(20)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()
        self.process.stdout.close()


class Pair:
    """A peer's server and client for one row."""

    def __init__(self, program, row, cores):
        self.row, port = row, 0
        self.processes, self.activation = [], None
        try:
            if not row.local:
                port = free_port()
                server = self.started(program, ["serve", port, row.objects], cores)
                self.activation = [float(f) for f in server.line()[1:] if f != "-"]
            if row.objects > 1 and not self.activation:
                raise RuntimeError("has no objects")
            self.client = self.started(program, ["call", port, "shared" if row.shared else "own"], cores)
            if row.idle:
                self.client.ask("idle", row.idle)
        except RuntimeError:
            self.end()
            raise

    def started(self, *arguments):
        self.processes.append(Process(*arguments))
        return self.processes[-1]

    def measure(self, seconds):
        """The row's figure, and microseconds at p99."""
        row = self.row
        if row.local:
            answer = self.client.ask("local", row.operation, row.octets, seconds)
        else:
            answer = self.client.ask("calls", row.operation, row.octets, row.threads, seconds, row.objects)
        rate, median, tail = map(float, answer)
        return {"us": median, "ns": median * 1e3, "calls/s": rate, "MB/s": row.octets / median}[row.unit], tail

    def end(self):
        for process in reversed(self.processes):
            process.end()


# ---- Rounds ----

class Contest:
    """The rounds of one row."""

    def __init__(self, bench, row):
        self.bench, self.row = bench, row
        self.cores = set(bench.cores[-row.cores:])
        self.pairs, self.remarks, self.spins = {}, [], []
        self.figures = {name: [] for name in bench.programs}      # of each round
        self.tails = {name: [] for name in bench.programs}        # p99, microseconds
        self.activations = {name: [] for name in bench.programs}  # (ns, octets) of each server with objects

    def run(self):
        meter = Process(next(iter(self.bench.programs.values())), ["call", 0, "own"], self.cores)
        playing = list(self.bench.programs)
        try:
            for number in range(min(self.bench.rounds, 5) if self.row.costs else self.bench.rounds):
                self.spins.append(float(meter.ask("spin")[0]))
                first = number % len(playing)
                playing = [name for name in playing[first:] + playing[:first] if self.turn(name)]
            self.count_idle()
        finally:
            for process in [meter, *self.pairs.values()]:
                process.end()
        return self

    def turn(self, name):
        """False when the peer cannot go on."""
        try:
            if name not in self.pairs:
                pair = self.pairs[name] = Pair(self.bench.programs[name], self.row, self.cores)
                if pair.activation:
                    self.activations[name].append(pair.activation)
            value, tail = self.pairs[name].measure(self.bench.seconds)
            self.figures[name].append(value)
            self.tails[name].append(tail)
            if self.row.restart:
                self.pairs.pop(name).end()
            return True
        except (RuntimeError, OSError) as why:
            self.remarks.append(f"{self.row.name}: {PEERS[name]}: {why}")
            return False

    def count_idle(self):
        for name, pair in self.pairs.items():
            if self.row.idle and self.figures[name]:
                alive = int(pair.client.ask("alive")[0])
                if alive != self.row.idle:
                    self.remarks.append(f"{self.row.name}: {PEERS[name]}: {alive} of {self.row.idle} idle connections were left")


@dataclasses.dataclass
class Bench:
    programs: dict
    seconds: float
    rounds: int
    cores: list


# ---- The table ----

def short(value):
    return f"{value:,.0f}" if value >= 1000 else f"{value:.3g}"


def middle(values):
    """Median, and where the middle half begins and ends."""
    if len(values) < 2:
        return values[0], values[0], values[0]
    quarters = statistics.quantiles(values, n=4, method="inclusive")
    return statistics.median(values), quarters[0], quarters[2]


def cell(values, base):
    """Median, and the ratio to the base with the middle half of the rounds."""
    if not values:
        return "-"
    median, low, high = middle(values)
    if values is base or not base:
        return f"{short(median)} (±{(high - low) / 2 / median:.0%})"
    ratio, low, high = middle([a / b for a, b in zip(values, base)])
    return f"{short(median)} ({ratio:.2f}; {low:.2f}-{high:.2f})"


def lines_of(contest):
    """The cells of a row, its p99 where threads compete, and what an object costs where there are many."""
    row, names = contest.row, list(contest.figures)
    base = next((n for n in names if contest.figures[n]), None)

    def line(name, unit, what):
        return [name, unit, *(cell(what[n], what[base] if base else None) for n in names)]

    noise = max(contest.spins) / min(contest.spins) - 1
    lines = [line(row.name, row.unit, contest.figures) + [f"{noise:.0%}"]]
    if row.threads > 1:
        lines.append(line("", "p99 us", contest.tails) + [""])
    if row.costs:
        for part, unit in ((0, "ns an activation"), (1, "octets an object")):
            figures = {n: [a[part] for a in contest.activations[n]] for n in names}
            lines.append(line("", unit, figures) + [""])
    return lines


def print_table(contests, bench):
    heads = ["", "", *(PEERS[name] for name in bench.programs), "noise"]
    lines = [heads] + [line for contest in contests for line in lines_of(contest)]
    widths = [max(len(line[i]) for line in lines) for i in range(len(heads))]
    print()
    for number, line in enumerate(lines):
        print("| " + " | ".join(text.ljust(width) for text, width in zip(line, widths)) + " |")
        if number == 0:
            print("|" + "|".join("-" * (width + 2) for width in widths) + "|")
    print(f"""
Medians of {bench.rounds} rounds of {bench.seconds:g} s (BIG and MANY start the programs anew for each; MANY has at most 5). In brackets: of the first peer with a figure, half of what the
middle half of its rounds spans; of the others, the ratio to it within a round, median and middle half. Times: lower is better; calls/s and MB/s
(octets one way): higher. In shared rows raw sockets have a connection a thread. Noise: by how much the longest of the row's runs of a fixed piece of work was longer than the shortest.
Cores {bench.cores} of {os.cpu_count()}; load of the machine {os.getloadavg()[0]:.1f}, which includes this run.""")
    for contest in contests:
        for remark in contest.remarks:
            print(f"- {remark}")


# ---- What to run ----

def smoke(rows):
    """Each kind of row once, small: to see that it works."""
    for row in rows:
        row.idle, row.objects, row.threads = min(row.idle, 20), min(row.objects, 50), min(row.threads, 3)
    return [row for row in rows if row.name in ("L1 add", "T4 shared", "BIG", "C500", "CONC 8", "DISPATCH echo", "MANY 1,000")]


def chosen(arguments):
    rows = smoke(all_rows()) if arguments.smoke else all_rows()
    if arguments.rows:
        rows = [row for row in rows if any(row.name.lower().startswith(part.lower()) for part in arguments.rows.split(","))]
    programs = {}
    for name in arguments.peers.split(","):
        program = pathlib.Path(arguments.directory, f"peer_{name}").resolve()
        if program.exists():
            programs[name] = str(program)
        else:
            print(f"{PEERS[name]} is left out: it was not built")
    return rows, programs


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("directory", help="where the programs peer_NAME are")
    parser.add_argument("--peers", default=",".join(PEERS), help="names of those that take part")
    parser.add_argument("--rows", help="beginnings of the names of rows")
    parser.add_argument("--quick", action="store_true", help="about two minutes")
    parser.add_argument("--smoke", action="store_true", help="a few seconds, to see that it works; fails when a peer does")
    parser.add_argument("--rounds", type=int, default=15)
    parser.add_argument("--seconds", type=float, default=0.5, help="how long a peer's turn takes")
    arguments = parser.parse_args()
    if arguments.quick:
        arguments.rounds, arguments.seconds = 3, 0.15
    if arguments.smoke:
        arguments.rounds, arguments.seconds = 2, 0.02
    rows, programs = chosen(arguments)
    if not rows or not programs:
        sys.exit("nothing to compare")
    bench = Bench(programs, arguments.seconds, arguments.rounds, sorted(os.sched_getaffinity(0))[-2:])
    contests = []
    for row in rows:
        print(f"{row.name}: {row.what}", flush=True)
        contests.append(Contest(bench, row).run())
    print_table(contests, bench)
    failures = [remark for contest in contests for remark in contest.remarks if not remark.endswith(INAPT)]
    if failures:
        LOG.seek(0)
        print(LOG.read(), file=sys.stderr)
    return arguments.smoke and bool(failures)


if __name__ == "__main__":
    sys.exit(main())
