"""Runs programs and measures them: time in turn with a peer, system calls, memory, instructions."""

import os
import re
import statistics
import subprocess
import tempfile
import time
from dataclasses import dataclass, field


@dataclass
class Program:
    """A command line with the directory it runs in and its standard streams."""

    name: str
    argv: list
    directory: str = "/"
    stdin: str = os.devnull
    stdout: str = os.devnull
    environment: dict = field(default_factory=dict)

    def wrapped(self, *command):
        """The same program, started by another."""
        return Program(self.name, [*command, *self.argv], self.directory, self.stdin, self.stdout, self.environment)


@dataclass
class Sample:
    elapsed: float  # seconds
    cpu: float  # seconds, user and system, with all children


BASE_ENVIRONMENT = {"PATH": os.environ["PATH"], "LC_ALL": "C"}


def run(program):
    """Runs a program to its end; one that fails ends the benchmark."""
    os.chdir(program.directory)
    streams = [
        (os.POSIX_SPAWN_OPEN, 0, program.stdin, os.O_RDONLY, 0),
        (os.POSIX_SPAWN_OPEN, 1, program.stdout, os.O_WRONLY | os.O_CREAT | os.O_TRUNC, 0o644),
    ]
    begin = time.perf_counter()
    pid = os.posix_spawnp(program.argv[0], program.argv, BASE_ENVIRONMENT | program.environment, file_actions=streams)
    _, status, usage = os.wait4(pid, 0)
    elapsed = time.perf_counter() - begin
    if status != 0:
        raise SystemExit(f"{program.name}: '{' '.join(program.argv)}' ended with status {status}")
    return Sample(elapsed, usage.ru_utime + usage.ru_stime)


def pairs(ours, other, prepare, count, at_once=1):
    """Runs both in turn, `count` times after a warm-up that is thrown away, and changes who goes first each time.

    `prepare(program)` puts everything in place before a run and is not measured; `at_once` runs make one sample of a
    program that is too quick by itself. Returns the two lists of samples.
    """
    samples = {id(ours): [], id(other): []}
    for turn in range(count + 1):
        for program in (ours, other) if turn % 2 else (other, ours):
            taken = []
            for _ in range(at_once):
                prepare(program)
                taken.append(run(program))
            mean = Sample(statistics.mean(s.elapsed for s in taken), statistics.mean(s.cpu for s in taken))
            if turn > 0:
                samples[id(program)].append(mean)
    return samples[id(ours)], samples[id(other)]


@dataclass
class Ratio:
    """The median of what the pairs give one by one, with the quartiles around it."""

    median: float
    low: float
    high: float

    @staticmethod
    def of(ours, others, what):
        each = [getattr(a, what) / max(getattr(b, what), 1e-9) for a, b in zip(ours, others)]
        low, median, high = statistics.quantiles(each, n=4, method="inclusive")
        return Ratio(median, low, high)

    def __str__(self):
        return f"{self.median:.2f} ({self.low:.2f}-{self.high:.2f})"


def milliseconds(samples):
    return statistics.median(s.elapsed for s in samples) * 1000


def system_calls(program):
    """How many system calls the program and its children make (strace -c -f)."""
    with tempfile.NamedTemporaryFile("r") as counts:
        run(program.wrapped("strace", "-f", "-c", "-U", "calls,name", "-o", counts.name))
        rows = [line.split() for line in counts]
    return sum(int(row[0]) for row in rows if len(row) == 2 and row[0].isdigit() and row[1] != "total")


def peak_memory(program):
    """The most memory the program held, in KiB (/usr/bin/time -v)."""
    with tempfile.NamedTemporaryFile("r") as report:
        run(program.wrapped("/usr/bin/time", "-v", "-o", report.name))
        return int(re.search(r"Maximum resident set size \(kbytes\): (\d+)", report.read())[1])


def instructions(program):
    """How many instructions the program executes in its own code and its libraries (callgrind)."""
    with tempfile.NamedTemporaryFile("r") as report:
        run(
            program.wrapped(
                "valgrind", "--tool=callgrind", "--callgrind-out-file=/dev/null", f"--log-file={report.name}"
            )
        )
        return int(re.search(r"Collected : (\d+)", report.read())[1])


def output_of(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout
