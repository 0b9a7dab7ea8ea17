#!/usr/bin/env python3
"""Start time: a one-shot query of one object with two properties, from exec to exit, against
starting /bin/true the same way, so that what Python pays to start a process counts on both
sides. Each run starts both programs in turn a number of times; prints the medians of the runs'
means and their ratio.

    python3 bench/start_scenario.py build/linux [--starts K] [--runs R]
"""
import argparse
import os
import shutil
import statistics
import subprocess
import tempfile
import time

from scenario_events import make_home, write_class_world

REFERENCE = "/bin/true"


def measure(build, starts=20, runs=5):
    """Median over the runs of the mean seconds per start, of the collector and of /bin/true."""
    collector = os.path.join(build, "src", "input", "morvax-wmi")
    tmp = tempfile.mkdtemp(prefix="morvax-start-bench-")
    try:
        home = make_home(os.path.join(tmp, "home"))
        world = write_class_world(os.path.join(tmp, "world"), "Bench_Tiny",
                                  {"Name": "string", "Size": "uint64"}, 1)
        env = dict(os.environ, MORVAX_HOME=home, MORVAX_WMI_SIM=world, MORVAX_WMI_PROVIDER="sim")
        command = [collector, "-wql", "SELECT * FROM Bench_Tiny"]
        out = subprocess.run(command, env=env, capture_output=True, check=True).stdout
        if out.count(b"***MORVAX*** index=") != 1:
            raise RuntimeError("the trivial query did not give one event")

        collector_means, reference_means = [], []
        with open(os.devnull, "wb") as null:
            for _ in range(runs):
                spent = {"collector": 0.0, "reference": 0.0}
                for _ in range(starts):
                    for key, argv in (("collector", command), ("reference", [REFERENCE])):
                        started = time.perf_counter()
                        subprocess.run(argv, env=env, stdout=null, stderr=subprocess.DEVNULL,
                                       check=True)
                        spent[key] += time.perf_counter() - started
                collector_means.append(spent["collector"] / starts)
                reference_means.append(spent["reference"] / starts)
        return {"collector": statistics.median(collector_means),
                "reference": statistics.median(reference_means), "starts": starts, "runs": runs}
    finally:
        shutil.rmtree(tmp, ignore_errors=True)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("build", help="the Linux build directory")
    parser.add_argument("--starts", type=int, default=20)
    parser.add_argument("--runs", type=int, default=5)
    args = parser.parse_args()
    m = measure(args.build, args.starts, args.runs)
    print("start: %d starts a run, median of %d runs" % (m["starts"], m["runs"]))
    print("  collector %.2f ms  %s %.2f ms  ratio %.1f" % (
        m["collector"] * 1e3, REFERENCE, m["reference"] * 1e3, m["collector"] / m["reference"]))


if __name__ == "__main__":
    main()
