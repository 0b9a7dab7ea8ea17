#!/usr/bin/env python3
"""Whole-process scenario: a one-shot query over 200,000 synthetic instances of a 12-property
class, standard output to /dev/null, timed against a program that writes the same bytes with one
write per event. Prints both times (median of the runs) and their ratio.

    python3 bench/one_shot_scenario.py build/linux [--instances N] [--runs R]
"""
import argparse
import json
import os
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

PROPERTIES = {
    "Name": "string", "Caption": "string", "Description": "string", "Status": "string",
    "InstallDate": "datetime", "Size": "uint64", "FreeSpace": "uint64", "BlockSize": "uint32",
    "Partitions": "uint32", "Index": "sint32", "Removable": "boolean", "Kind": "uint16",
}


def timed(command, env, stdout):
    started = time.perf_counter()
    subprocess.run(command, env=env, stdout=stdout, stderr=subprocess.DEVNULL, check=True)
    return time.perf_counter() - started


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("build", help="the Linux build directory")
    parser.add_argument("--instances", type=int, default=200000)
    parser.add_argument("--runs", type=int, default=5)
    args = parser.parse_args()

    collector = os.path.join(args.build, "src", "input", "morvax-wmi")
    baseline = os.path.join(args.build, "bench", "baseline_writer")
    tmp = tempfile.mkdtemp(prefix="morvax-bench-")
    try:
        os.makedirs(os.path.join(tmp, "home", "etc"))
        with open(os.path.join(tmp, "home", "etc", "log-cmdline.cfg"), "w") as f:
            f.write("rootCategory=WARN, rootAppender\n")
        world = os.path.join(tmp, "world")
        os.makedirs(world)
        with open(os.path.join(world, "world.json"), "w") as f:
            json.dump({"hosts": {".": {"namespaces": {"root\\cimv2": {"classes": {
                "Bench_Disk": {"properties": PROPERTIES, "synthetic": args.instances}}}}}}}, f)
        env = dict(os.environ, MORVAX_HOME=os.path.join(tmp, "home"), MORVAX_WMI_SIM=world,
                   MORVAX_WMI_PROVIDER="sim")
        command = [collector, "-wql", "SELECT * FROM Bench_Disk"]

        # The bytes the baseline writes are the collector's own.
        events = os.path.join(tmp, "events.txt")
        with open(events, "wb") as out:
            subprocess.run(command, env=env, stdout=out, stderr=subprocess.DEVNULL, check=True)
        size = os.path.getsize(events)
        with open(events, "rb") as f:
            count = f.read().count(b"***MORVAX*** index=")
        if count != args.instances:
            sys.exit("expected %d events, got %d" % (args.instances, count))

        collector_times, baseline_times = [], []
        with open(os.devnull, "wb") as null:
            for _ in range(args.runs):
                collector_times.append(timed(command, env, null))
                baseline_times.append(timed([baseline, events], env, null))
        c = statistics.median(collector_times)
        b = statistics.median(baseline_times)
        print("events: %d, bytes: %d" % (count, size))
        print("collector: %.3f s (median of %d)" % (c, args.runs))
        print("baseline:  %.3f s (median of %d)" % (b, args.runs))
        print("ratio:     %.2f" % (c / b))
    finally:
        shutil.rmtree(tmp, ignore_errors=True)


if __name__ == "__main__":
    main()
