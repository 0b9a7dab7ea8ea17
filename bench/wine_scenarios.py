#!/usr/bin/env python3
"""The Windows build under Wine, two comparisons, each a median of runs taken in turn:

  start     a one-shot SELECT * FROM Win32_OperatingSystem through Wine's own WMI, the collector
            against the query browser (wmiq) asking the same;
  devices   a one-shot query of 20,000 simulated objects with standard output on NUL against
            the same run into a file, both redirected by cmd, as a service manager would.

    python3 bench/wine_scenarios.py build/windows [--runs R] [--objects N]
"""
import argparse
import os
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

from scenario_events import PROPERTIES, make_home, write_class_world

WINE = shutil.which("wine64") or "/usr/lib/wine/wine64"
WINESERVER = shutil.which("wineserver") or "/usr/lib/wine/wineserver"


def windows_path(path):
    return "Z:" + os.path.abspath(path).replace("/", "\\")


def wine_env(build, **extra):
    env = dict(os.environ, WINEPREFIX=os.path.join(os.path.abspath(build), "wineprefix"),
               WINEDEBUG="-all")
    env.update(extra)
    return env


def prepare_prefix(env):
    # A server of an earlier run that is still going down would take this run with it.
    subprocess.run([WINESERVER, "-k"], env=env, stderr=subprocess.DEVNULL)
    subprocess.run([WINESERVER, "-w"], env=env, stderr=subprocess.DEVNULL, timeout=60)
    if not os.path.exists(os.path.join(env["WINEPREFIX"], "system.reg")):
        subprocess.run([WINE, "wineboot", "--init"], env=env, stdout=subprocess.DEVNULL,
                       stderr=subprocess.DEVNULL)
    # A persistent wineserver keeps every timed run from paying for its start; main() ends it.
    subprocess.Popen([WINESERVER, "-p"], env=env, stdout=subprocess.DEVNULL,
                     stderr=subprocess.DEVNULL)


def timed(command, env):
    # Standard error into a file, not a pipe: the services Wine starts with the first program
    # inherit it and would hold a pipe open long after the program ends.
    with tempfile.TemporaryFile() as errors:
        started = time.perf_counter()
        done = subprocess.run(command, env=env, stdout=subprocess.DEVNULL, stderr=errors,
                              timeout=120)
        elapsed = time.perf_counter() - started
        if done.returncode != 0:
            errors.seek(0)
            sys.exit("%s failed (%d): %s" % (" ".join(command), done.returncode,
                                             errors.read()[-500:]))
    return elapsed


def medians(commands, env, runs):
    """The median seconds of each command, the commands taking turns within each run."""
    times = {key: [] for key in commands}
    for _ in range(runs):
        for key, command in commands.items():
            times[key].append(timed(command, env))
    return {key: statistics.median(values) for key, values in times.items()}


def measure_start(build, runs):
    collector = os.path.join(build, "src", "input", "morvax-wmi.exe")
    wmiq = os.path.join(build, "tools", "wmiq.exe")
    query = "SELECT * FROM Win32_OperatingSystem"
    tmp = tempfile.mkdtemp(prefix="morvax-wine-")
    try:
        home = make_home(os.path.join(tmp, "home"))
        env = wine_env(build, MORVAX_HOME=windows_path(home), MORVAX_WMI_PROVIDER="com")
        prepare_prefix(env)
        commands = {"collector": [WINE, collector, "-wql", query],
                    "wmiq": [WINE, wmiq, "-provider", "com", "root\\cimv2", query]}
        for command in commands.values():
            timed(command, env)  # the first start of each loads its DLLs into the cache
        return medians(commands, env, runs)
    finally:
        shutil.rmtree(tmp, ignore_errors=True)


def measure_devices(build, runs, objects):
    collector = os.path.join(build, "src", "input", "morvax-wmi.exe")
    tmp = tempfile.mkdtemp(prefix="morvax-wine-")
    try:
        home = make_home(os.path.join(tmp, "home"))
        world = write_class_world(os.path.join(tmp, "world"), "Bench_Disk", PROPERTIES, objects)
        env = wine_env(build, MORVAX_HOME=windows_path(home), MORVAX_WMI_SIM=windows_path(world),
                       MORVAX_WMI_PROVIDER="sim")
        prepare_prefix(env)
        # Wine quotes each argument that needs it when it joins them into cmd's command line;
        # the paths here hold no blank.
        run = [WINE, "cmd", "/c", windows_path(collector), "-wql", "SELECT * FROM Bench_Disk"]
        out = os.path.join(tmp, "events.txt")
        commands = {"NUL": run + [">", "NUL"], "file": run + [">", windows_path(out)]}
        timed(commands["file"], env)
        with open(out, "rb") as f:
            count = f.read().count(b"***MORVAX*** index=")
        if count != objects:
            sys.exit("expected %d events in the file, got %d" % (objects, count))
        return medians(commands, env, runs)
    finally:
        shutil.rmtree(tmp, ignore_errors=True)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("build", help="the Windows build directory")
    # Starts under Wine fall on steps of about 50 ms: a median needs enough turns to sit still.
    parser.add_argument("--runs", type=int, default=15)
    parser.add_argument("--objects", type=int, default=20000)
    args = parser.parse_args()
    try:
        s = measure_start(args.build, args.runs)
        print("start, Win32_OperatingSystem: collector %.3f s, wmiq %.3f s, ratio %.2f" %
              (s["collector"], s["wmiq"], s["collector"] / s["wmiq"]))
        d = measure_devices(args.build, args.runs, args.objects)
        print("%d objects: to NUL %.3f s, to a file %.3f s, ratio %.2f" %
              (args.objects, d["NUL"], d["file"], d["NUL"] / d["file"]))
    finally:
        subprocess.run([WINESERVER, "-k"], env=wine_env(args.build),
                       stderr=subprocess.DEVNULL)


if __name__ == "__main__":
    main()
