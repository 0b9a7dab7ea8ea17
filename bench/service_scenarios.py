#!/usr/bin/env python3
"""Whole-process scenarios of the service run on the simulated provider; Linux only,
since they read the collector's counters in /proc.

  drain    a log of N synthetic records read by a wmi.conf stanza of interval 0, standard
           output to /dev/null, timed until the last byte is out (the write counter of
           /proc/<pid>/io), against the bare writer of the same bytes and against a one-shot
           query of the same records; with peak resident memory
  idle     100 logs on 10 servers (1,000 entries), one record each and nothing new arriving:
           CPU share and resident memory over a stretch of seconds, after a warm-up of 10 s;
           and how long SIGTERM takes to end it
  quiet    one log of one record: how long until the record is out, then CPU share over a
           stretch of seconds with nothing to do
  latency  how long a record appended to a polled log, and to a watched (-watch) one, takes to
           come out: the distribution over a number of records

    python3 bench/service_scenarios.py build/linux [drain|idle|quiet|latency ...] [--records N]
        [--runs R] [--idle-seconds S] [--samples K]
"""
import argparse
import json
import os
import shutil
import statistics
import subprocess
import sys
import tempfile
import threading
import time

from scenario_events import make_home, write_event_ends, write_world

T1 = "20261114102530.000000-000"


def proc_io(pid, field):
    with open("/proc/%d/io" % pid) as f:
        for line in f:
            if line.startswith(field + ":"):
                return int(line.split()[1])
    return 0


def proc_status(pid, field):
    with open("/proc/%d/status" % pid) as f:
        for line in f:
            if line.startswith(field + ":"):
                return int(line.split()[1])  # kB
    return 0


def cpu_ns(pid):
    """CPU time of all the process's threads in nanoseconds: an idle process may not use up one
    clock tick in many seconds, so the tick counts of /proc/<pid>/stat would read zero."""
    total = 0
    for task in os.listdir("/proc/%d/task" % pid):
        try:
            with open("/proc/%d/task/%s/schedstat" % (pid, task)) as f:
                total += int(f.read().split()[0])
        except (FileNotFoundError, ProcessLookupError):
            pass  # a thread that has just ended
    return total


def stop(proc):
    """SIGTERM, then the seconds until the process has ended."""
    started = time.perf_counter()
    proc.terminate()
    proc.wait()
    return time.perf_counter() - started


def reading(proc):
    """Collects the process's standard output in a bytearray, from a thread."""
    out = bytearray()
    threading.Thread(target=lambda: [out.extend(c) for c in iter(
        lambda: proc.stdout.read1(65536), b"")], daemon=True).start()
    return out


class Setup:
    def __init__(self, build):
        self.collector = os.path.join(build, "src", "input", "morvax-wmi")
        self.baseline = os.path.join(build, "bench", "baseline_writer")
        self.tmp = tempfile.mkdtemp(prefix="morvax-service-bench-")
        self.home = make_home(os.path.join(self.tmp, "home"))

    def conf(self, wmi_conf):
        """Gives the installation one configuration layer holding `wmi_conf`, for a run without
        options."""
        default = os.path.join(self.home, "etc", "system", "default")
        os.makedirs(default, exist_ok=True)
        with open(os.path.join(default, "conf.conf"), "w") as f:
            f.write("[bootstrap]\nsystem/default = conf\n")
        with open(os.path.join(default, "wmi.conf"), "w") as f:
            f.write(wmi_conf)

    def world(self, name, hosts):
        return write_world(os.path.join(self.tmp, name), hosts)

    def env(self, world):
        # A fresh store each time: every run starts at the first record.
        shutil.rmtree(os.path.join(self.home, "var"), ignore_errors=True)
        return dict(os.environ, MORVAX_HOME=self.home, MORVAX_WMI_SIM=world,
                    MORVAX_WMI_PROVIDER="sim")

    def close(self):
        shutil.rmtree(self.tmp, ignore_errors=True)


def drain(setup, records, runs):
    world = setup.world("drain", {".": {"namespaces": {"root\\cimv2": {}}, "eventlogs": {
        "Bench": {"order": "ascending", "synthetic": records}}}})
    # A stanza polled without pause: -loglist would wait its fixed second between the probe of
    # the log and the first read, and that wait is the schedule, not work.
    setup.conf("[WMI:Bench]\ninterval = 0\nevent_log_file = Bench\n")
    command = [setup.collector]

    def run_until(stdout, total_bytes):
        """Starts the service run; returns (seconds until the first byte, seconds until the
        last byte, peak kB)."""
        started = time.perf_counter()
        proc = subprocess.Popen(command, env=setup.env(world), stdout=stdout,
                                stderr=subprocess.DEVNULL)
        first = None
        try:
            while True:
                written = proc_io(proc.pid, "wchar")
                if first is None and written > 0:
                    first = time.perf_counter() - started
                if written >= total_bytes:
                    break
                if proc.poll() is not None:
                    sys.exit("the collector ended early")
                time.sleep(0.002)
            elapsed = time.perf_counter() - started
            peak = proc_status(proc.pid, "VmHWM")
        finally:
            proc.terminate()
            proc.wait()
        return first, elapsed, peak

    # The bytes of the whole log, once, to a file: the baseline writes exactly these. The run
    # has written them all when the file stops growing.
    events = os.path.join(setup.tmp, "events.txt")
    with open(events, "wb") as out:
        proc = subprocess.Popen(command, env=setup.env(world), stdout=out,
                                stderr=subprocess.DEVNULL)
        last, still = -1, 0.0
        while still < 3.0:
            time.sleep(0.25)
            size = os.path.getsize(events)
            still = still + 0.25 if size == last and size > 0 else 0.0
            last = size
        proc.terminate()
        proc.wait()
    size = os.path.getsize(events)
    with open(events, "rb") as f:
        count = f.read().count(b"***MORVAX*** index=")
    if count != records:
        sys.exit("expected %d events, got %d" % (records, count))
    ends, _ = write_event_ends(events)

    wql = ("SELECT Category, CategoryString, ComputerName, EventCode, EventIdentifier, EventType, "
           "Logfile, Message, RecordNumber, SourceName, TimeGenerated, TimeWritten, Type, User "
           "FROM Win32_NTLogEvent WHERE Logfile = \"Bench\"")
    service, first_bytes, one_shot, writer, peaks = [], [], [], [], []
    with open(os.devnull, "wb") as null:
        for _ in range(runs):
            first, seconds, peak = run_until(null, size)
            service.append(seconds)
            first_bytes.append(first)
            peaks.append(peak)
            started = time.perf_counter()
            subprocess.run([setup.collector, "-wql", wql], env=setup.env(world), stdout=null,
                           stderr=subprocess.DEVNULL, check=True)
            one_shot.append(time.perf_counter() - started)
            started = time.perf_counter()
            subprocess.run([setup.baseline, events, ends], stdout=null, check=True)
            writer.append(time.perf_counter() - started)
    s, o, w = (statistics.median(x) for x in (service, one_shot, writer))
    return {"records": records, "bytes": size, "runs": runs, "service": s, "one_shot": o,
            "writer": w, "first_byte": statistics.median(first_bytes), "peak_kb": max(peaks)}


def print_drain(d):
    s, o, w, records = d["service"], d["one_shot"], d["writer"], d["records"]
    print("drain: %d records, %d bytes, median of %d runs" % (records, d["bytes"], d["runs"]))
    print("  service run  %.3f s  %.2f us/record  %.2fx writer  %.2fx one-shot" %
          (s, s / records * 1e6, s / w, s / o))
    print("  of which before the first byte %.3f s" % d["first_byte"])
    print("  one-shot     %.3f s  %.2f us/record  %.2fx writer" % (o, o / records * 1e6, o / w))
    print("  writer       %.3f s  %.2f us/record" % (w, w / records * 1e6))
    print("  peak resident memory of the service run: %.1f MB (max of runs)" %
          (d["peak_kb"] / 1024))


def idle(setup, seconds, warmup=10):
    logs = ["Log%02d" % i for i in range(100)]
    servers = ["server%d" % i for i in range(10)]
    host = {"namespaces": {"root\\cimv2": {}},
            "eventlogs": {log: {"order": "descending", "synthetic": 1} for log in logs}}
    world = setup.world("idle", {server: host for server in servers})
    proc = subprocess.Popen([setup.collector, "-loglist", ",".join(logs), "-servers",
                             ",".join(servers)], env=setup.env(world), stdout=subprocess.PIPE,
                            stderr=subprocess.DEVNULL)
    out = reading(proc)
    try:
        # Queries on one connection run one after the other, and a stanza that finds its
        # connection busy backs off up to 20 s: the first record of every log takes a while.
        # The steady state is measured from the start of that.
        time.sleep(warmup)
        first = out.count(b"***MORVAX***")
        cpu0, wall0 = cpu_ns(proc.pid), time.perf_counter()
        time.sleep(seconds)
        cpu1, wall1 = cpu_ns(proc.pid), time.perf_counter()
        rss = proc_status(proc.pid, "VmRSS")
        threads = proc_status(proc.pid, "Threads")
    finally:
        stopping = stop(proc)
    return {"warmup": warmup, "first": first, "later": out.count(b"***MORVAX***"),
            "seconds": wall1 - wall0, "cpu_share": (cpu1 - cpu0) / 1e9 / (wall1 - wall0),
            "rss_kb": rss, "threads": threads, "stop": stopping}


def print_idle(d):
    print("idle: 1,000 entries (100 logs x 10 servers), %d first records out after %.0f s, %d "
          "after %.0f s more" % (d["first"], d["warmup"], d["later"], d["seconds"]))
    print("  CPU %.3f %% of one core, resident %.1f MB, %d threads; SIGTERM to exit %.2f s" %
          (100.0 * d["cpu_share"], d["rss_kb"] / 1024, d["threads"], d["stop"]))


def quiet(setup, seconds):
    world = setup.world("quiet", {".": {"namespaces": {"root\\cimv2": {}}, "eventlogs": {
        "Quiet": {"order": "descending", "synthetic": 1}}}})
    started = time.perf_counter()
    proc = subprocess.Popen([setup.collector, "-loglist", "Quiet"], env=setup.env(world),
                            stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
    out = reading(proc)
    try:
        while b"***MORVAX***" not in out:
            if proc.poll() is not None or time.perf_counter() - started > 60:
                sys.exit("quiet: no record out")
            time.sleep(0.002)
        first = time.perf_counter() - started
        cpu0, wall0 = cpu_ns(proc.pid), time.perf_counter()
        time.sleep(seconds)
        cpu1, wall1 = cpu_ns(proc.pid), time.perf_counter()
        rss = proc_status(proc.pid, "VmRSS")
    finally:
        stopping = stop(proc)
    return {"first": first, "seconds": wall1 - wall0, "rss_kb": rss, "stop": stopping,
            "cpu_share": (cpu1 - cpu0) / 1e9 / (wall1 - wall0)}


def print_quiet(d):
    print("quiet: one log of one record, out after %.3f s; then over %.0f s CPU %.4f %% of one "
          "core, resident %.1f MB; SIGTERM to exit %.2f s" % (
              d["first"], d["seconds"], 100.0 * d["cpu_share"], d["rss_kb"] / 1024, d["stop"]))


def latency(setup, samples):
    world = setup.world("latency", {".": {"namespaces": {"root\\cimv2": {}}, "eventlogs": {
        "Polled": {"order": "ascending"}, "Watched": {"order": "ascending"}}}})
    for log, extra in (("Polled", []), ("Watched", ["-watch"])):
        path = os.path.join(world, "eventlogs", log + ".jsonl")
        open(path, "w").close()
        proc = subprocess.Popen([setup.collector, "-loglist", log] + extra, env=setup.env(world),
                                stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
        seen = {}
        lock = threading.Lock()

        def read():
            buffer = b""
            for chunk in iter(lambda: proc.stdout.read1(65536), b""):
                now = time.perf_counter()
                buffer += chunk
                while b"\nMessage=" in buffer:
                    head, buffer = buffer.split(b"\nMessage=", 1)
                    number = int(buffer.split(b"\n", 1)[0].split()[-1])
                    with lock:
                        seen[number] = now

        threading.Thread(target=read, daemon=True).start()
        waits = []
        try:
            time.sleep(3)  # connected, first polls done
            for n in range(1, samples + 1):
                with open(path, "a") as f:
                    f.write(json.dumps({"RecordNumber": n, "TimeWritten": T1,
                                        "Message": "record %d" % n}) + "\n")
                written = time.perf_counter()
                deadline = written + 60
                while time.perf_counter() < deadline:
                    with lock:
                        if n in seen:
                            waits.append(seen[n] - written)
                            break
                    time.sleep(0.005)
                else:
                    waits.append(float("inf"))
                time.sleep(0.37 * (n % 5))  # appends at varying phases of the schedule
        finally:
            proc.terminate()
            proc.wait()
        waits.sort()
        q = lambda p: waits[min(len(waits) - 1, int(p * len(waits)))]
        print("latency %s (%d records): min %.2f s, median %.2f s, p90 %.2f s, max %.2f s" %
              (log.lower(), samples, waits[0], q(0.5), q(0.9), waits[-1]))


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("build")
    parser.add_argument("scenarios", nargs="*", default=["drain", "idle", "latency"])
    parser.add_argument("--records", type=int, default=1000000)
    parser.add_argument("--runs", type=int, default=3)
    parser.add_argument("--idle-seconds", type=float, default=60)
    parser.add_argument("--samples", type=int, default=20)
    args = parser.parse_args()
    setup = Setup(args.build)
    try:
        for scenario in args.scenarios:
            if scenario == "drain":
                print_drain(drain(setup, args.records, args.runs))
            elif scenario == "idle":
                print_idle(idle(setup, args.idle_seconds))
            elif scenario == "quiet":
                print_quiet(quiet(setup, args.idle_seconds))
            elif scenario == "latency":
                latency(setup, args.samples)
            else:
                sys.exit("unknown scenario %s" % scenario)
    finally:
        setup.close()


if __name__ == "__main__":
    main()
