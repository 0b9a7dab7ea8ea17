#!/usr/bin/env python3
"""Whole-process scenario: a one-shot query over 200,000 synthetic instances of a 12-property
class, timed against the bare writer of the same bytes (one read of the whole stream, then one
write per event), both to /dev/null and through a pipe that `cat` drains, as the daemon reads it.
Prints the times (medians, measured side by side) and their ratios.

    python3 bench/one_shot_scenario.py build/linux [--instances N] [--runs R]
"""
import argparse
import os
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

from scenario_events import PROPERTIES, make_home, write_class_world, write_event_ends

def timed(command, env, stdout):
    started = time.perf_counter()
    subprocess.run(command, env=env, stdout=stdout, stderr=subprocess.DEVNULL, check=True)
    return time.perf_counter() - started


def timed_through_pipe(command, env):
    """The command's standard output into a pipe drained by cat, as a reader would take it."""
    started = time.perf_counter()
    producer = subprocess.Popen(command, env=env, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
    with open(os.devnull, "wb") as null:
        subprocess.run(["cat"], stdin=producer.stdout, stdout=null, check=True)
    producer.stdout.close()
    if producer.wait() != 0:
        sys.exit("%s failed" % command[0])
    return time.perf_counter() - started


def measure(build, instances=200000, runs=5):
    """Median seconds of the collector and of the writer, to /dev/null and through a pipe,
    measured in turn within each run; with the count and size of the stream."""
    collector = os.path.join(build, "src", "input", "morvax-wmi")
    baseline = os.path.join(build, "bench", "baseline_writer")
    tmp = tempfile.mkdtemp(prefix="morvax-bench-")
    try:
        home = make_home(os.path.join(tmp, "home"))
        world = write_class_world(os.path.join(tmp, "world"), "Bench_Disk", PROPERTIES, instances)
        env = dict(os.environ, MORVAX_HOME=home, MORVAX_WMI_SIM=world, MORVAX_WMI_PROVIDER="sim")
        command = [collector, "-wql", "SELECT * FROM Bench_Disk"]

        # The bytes the baseline writes are the collector's own.
        events = os.path.join(tmp, "events.txt")
        with open(events, "wb") as out:
            subprocess.run(command, env=env, stdout=out, stderr=subprocess.DEVNULL, check=True)
        size = os.path.getsize(events)
        with open(events, "rb") as f:
            count = f.read().count(b"***MORVAX*** index=")
        if count != instances:
            sys.exit("expected %d events, got %d" % (instances, count))

        ends, _ = write_event_ends(events)
        writer = [baseline, events, ends]

        times = {key: [] for key in ("collector", "writer", "collector|", "writer|")}
        with open(os.devnull, "wb") as null:
            for _ in range(runs):
                times["collector"].append(timed(command, env, null))
                times["writer"].append(timed(writer, env, null))
                times["collector|"].append(timed_through_pipe(command, env))
                times["writer|"].append(timed_through_pipe(writer, env))
        result = {key: statistics.median(values) for key, values in times.items()}
        result.update(events=count, bytes=size, runs=runs)
        return result
    finally:
        shutil.rmtree(tmp, ignore_errors=True)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("build", help="the Linux build directory")
    parser.add_argument("--instances", type=int, default=200000)
    parser.add_argument("--runs", type=int, default=5)
    args = parser.parse_args()
    m = measure(args.build, args.instances, args.runs)
    print("events: %d, bytes: %d, median of %d runs" % (m["events"], m["bytes"], args.runs))
    print("  /dev/null  collector %.3f s  writer %.3f s  ratio %.2f" %
          (m["collector"], m["writer"], m["collector"] / m["writer"]))
    print("  pipe       collector %.3f s  writer %.3f s  ratio %.2f" %
          (m["collector|"], m["writer|"], m["collector|"] / m["writer|"]))


if __name__ == "__main__":
    main()
