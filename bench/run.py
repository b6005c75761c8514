"""Measures the installer beside the tools that do the same work; scripts/bench starts this.

    run.py [--small] [--only NAME[,NAME...]] [--document FILE] BUILD PLACE

BUILD is the folder of the preset "bench", PLACE a folder on a tmpfs. --small runs everything once at a tenth of its size
and a few pairs, to try a change; --document writes the tables between the marks in FILE.
"""

import argparse
import os
import platform
import re
import statistics
import sys
import tempfile
import time
from pathlib import Path

import measure
import workloads
from measure import Ratio, milliseconds

BEGIN, END = "<!-- measured: begin -->\n", "<!-- measured: end -->\n"


def note(text):
    print(f"bench: {text}", file=sys.stderr, flush=True)


def table(header, rows, texts=1):
    """A Markdown table, its first `texts` columns aligned to the left."""
    rule = [":--" if i < texts else "--:" for i in range(len(header))]
    return "".join("| " + " | ".join(map(str, row)) + " |\n" for row in (header, rule, *rows))


# Time


class Timed:
    """One workload, run in pairs with each peer and with the bare system calls."""

    def __init__(self, workload):
        self.workload = workload
        self.others = {}
        for other in filter(None, [*workload.peers, workload.bare]):
            self.others[other.name] = measure.pairs(
                workload.ours, other, workload.prepare, workload.pairs, workload.at_once
            )
        self.best = min((peer.name for peer in workload.peers), key=self.ms)

    def ratio(self, name, what="elapsed"):
        return Ratio.of(*self.others[name], what)

    def ms(self, name):
        return milliseconds(self.others[name][1])

    def our_ms(self):
        return statistics.median(s.elapsed for ours, _ in self.others.values() for s in ours) * 1000

    def bare_limit(self):
        """The bare system calls by the best peer."""
        if not self.workload.bare:
            return "-"
        return f"{self.ratio(self.best).median / self.ratio(self.workload.bare.name).median:.2f}"

    def is_met(self):
        workload = self.workload
        near = not workload.within or self.our_ms() - self.ms(workload.bare.name) <= workload.within
        return near and round(self.ratio(self.best).median, 2) <= workload.wanted

    def summary(self):
        ratio, cpu = self.ratio(self.best), self.ratio(self.best, "cpu")
        met = "yes" if self.is_met() else "no"
        return [
            *(self.workload.name, self.best, f"{self.our_ms():.1f}", f"{self.ms(self.best):.1f}"),
            *(ratio, f"{self.workload.wanted:.2f}", met, cpu, self.bare_limit()),
        ]

    def details(self):
        return [
            [self.workload.name, name, f"{self.ms(name):.1f}", self.ratio(name), self.ratio(name, "cpu")]
            for name in self.others
        ]


def check(workload):
    """Every program does the work once, and what it did is looked at."""
    for program in filter(None, [workload.ours, *workload.peers, workload.bare]):
        workload.prepare(program)
        measure.run(program)
        workload.check()


def timed(all_workloads):
    results = []
    for workload in all_workloads:
        begin = time.monotonic()
        check(workload)
        result = Timed(workload)
        seconds = time.monotonic() - begin
        note(f"{workload.name}: {result.ratio(result.best)} of {result.best} [{seconds:.0f} s]")
        results.append(result)
    return results


def time_tables(results):
    return (
        "Our time by the time of the best peer, and the same for the processor time (user and system). The ratio is the "
        "median of the pairs, with the quartiles behind it. The last column is the bare system calls by the best peer.\n\n"
        + table(
            ["workload", "best peer", "ours, ms", "peer, ms", "time", "wanted", "met", "processor", "bare calls"],
            [result.summary() for result in results],
            texts=2,
        )
        + "\nOur time by that of each of the others:\n\n"
        + table(
            ["workload", "other", "other, ms", "time", "processor"],
            [row for result in results for row in result.details()],
            texts=2,
        )
    )


def start_table(results):
    """A second opinion on the shortest of the workloads, by another tool."""
    workload = next((r.workload for r in results if r.workload.at_once > 1), None)
    if not workload:
        return ""
    rows = []
    for program in [workload.ours, *workload.peers, workload.bare]:
        os.chdir(program.directory)
        with tempfile.NamedTemporaryFile("r") as report:
            how = ["-N", "--style=basic", "--warmup=20", "--runs=300", f"--export-csv={report.name}"]
            measure.output_of("hyperfine", *how, " ".join(program.argv))
            mean, deviation, median = report.readlines()[1].rsplit(",", 7)[1:4]
        rows.append([program.name, *(f"{float(value) * 1000:.2f}" for value in (median, mean, deviation))])
    return "\nThe start by hyperfine, in milliseconds, the input ending at the first prompt:\n\n" + table(
        ["program", "median", "mean", "deviation"], rows)


# What does not depend on the machine's mood


def counted(program, workload):
    workload.prepare(program)
    return measure.system_calls(program)


def calls_per_file(workload, program, small, small_program):
    """What a further file costs: the difference of a large and a small tree."""
    more = counted(program, workload) - counted(small_program, small)
    return f"{more / (workload.files - small.files):.1f}"


def peak(workload):
    workload.prepare(workload.ours)
    return f"{measure.peak_memory(workload.ours):,}"


def executed(workload):
    workload.prepare(workload.ours)
    return measure.instructions(workload.ours)


def counts_tables(pairs):
    """Each pair is a workload and the same at a tenth of its size."""
    calls, costs = [], []
    for workload, small in pairs:
        if workload.files:
            for program, small_program in zip(
                filter(None, [workload.ours, *workload.peers, workload.bare]),
                filter(None, [small.ours, *small.peers, small.bare]),
            ):
                more = calls_per_file(workload, program, small, small_program)
                calls.append([workload.name, program.name, more])
        costs.append([workload.name, peak(workload), peak(small), f"{executed(small) / 1e6:.1f}"])
        note(f"{workload.name}: counted")
    return (
        "\nSystem calls for each further file (strace; its share of the directories included):\n\n"
        + table(["workload", "program", "calls"], calls, texts=2)
        + "\nThe installer's peak memory (`/usr/bin/time -v`), at full size and at a tenth of it, and its instructions at a "
        "tenth (callgrind):\n\n"
        + table(["workload", "KiB", "KiB at a tenth", "million instructions"], costs)
    )


def micro_table(build):
    report = measure.output_of(str(build / "bench/micro_bench"), "--benchmark_format=csv", "--benchmark_min_time=0.1")
    rows = [line.split(",") for line in report.splitlines() if line.startswith('"')]
    return "\nSingle operations in the process (Google Benchmark), nanoseconds of processor time:\n\n" + table(
        ["operation", "ns"], [[row[0].strip('"'), f"{float(row[3]):.0f}"] for row in rows])


# The report


def first_line(*command):
    return measure.output_of(*command).splitlines()[0]


def machine():
    cpu = re.search(r"model name\s*: (.*)", Path("/proc/cpuinfo").read_text(encoding="utf-8"))
    memory = os.sysconf("SC_PAGE_SIZE") * os.sysconf("SC_PHYS_PAGES") / 2**30
    load = os.getloadavg()[0]
    return (
        f"Measured on {time.strftime('%Y-%m-%d')}: {cpu[1] if cpu else platform.machine()}, {os.cpu_count()} processors, "
        f"{memory:.0f} GiB, Linux {platform.release().split('-')[0]}, tmpfs; load before the run {load:.1f}. "
        f"{first_line('c++', '--version')}; {first_line('cp', '--version')}; {first_line('tar', '--version')}; "
        f"{re.sub(r'  +', ' ', first_line('rsync', '--version'))}; {first_line('envsubst', '--version')}; "
        f"mawk {measure.output_of('dpkg-query', '-W', '-f', '${Version}', 'mawk')}; {first_line('sed', '--version')}.\n\n"
    )


def write_document(path, text):
    document = path.read_text(encoding="utf-8")
    before, rest = document.split(BEGIN)
    _, after = rest.split(END)
    path.write_text(before + BEGIN + "\n" + text + "\n" + END + after, encoding="utf-8")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--small", action="store_true")
    parser.add_argument("--only", default=",".join(workloads.ALL))
    parser.add_argument("--document", type=Path)
    parser.add_argument("build", type=Path)
    parser.add_argument("place", type=Path)
    wanted = parser.parse_args()

    document = wanted.document and wanted.document.resolve()  # the programs run in folders of their own
    names = wanted.only.split(",")
    full = workloads.Sizes(10000, 1 << 30, 45000, 5000, 21)
    tenth = workloads.Sizes(1000, 1 << 26, 4500, 500, 5)
    hundredth = workloads.Sizes(100, 1 << 22, 450, 50, 3)
    large, small = (tenth, hundredth) if wanted.small else (full, tenth)
    build = wanted.build.resolve()
    begin = time.monotonic()
    text = machine()
    at_full, at_tenth = (
        [workloads.ALL[name](setting) for name in names]
        for setting in (
            workloads.Setting(wanted.place / "full", build, large),
            workloads.Setting(wanted.place / "tenth", build, small),
        )
    )
    results = timed(at_full)
    text += time_tables(results) + start_table(results) + counts_tables(zip(at_full, at_tenth)) + micro_table(build)
    note(f"{time.monotonic() - begin:.0f} s")
    print(text)
    if document:
        write_document(document, text)


if __name__ == "__main__":
    main()
