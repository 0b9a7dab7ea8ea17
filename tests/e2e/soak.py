"""Crash consistency of the service run: the collector reads a growing simulated event log and is
killed with SIGKILL at random moments (seeded), then restarted, while records keep arriving.
At the end every record must have come out at least once; a record may come out twice only if
the killed run wrote it within one checkpoint sync interval before its last event (what the
checkpoint file had not caught up with yet); the checkpoint file must parse after every kill and
never be ahead of what was written; and each run's stream must be whole events up to the kill.
Both provider orders are run. Prints its figures.

    python3 tests/e2e/soak.py [--kills N] [--records N] [--seed S] -- path/to/morvax-wmi
"""
import argparse
import json
import os
import random
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import time

SYNC_INTERVAL = 2.0  # the collector's default checkpoint_sync_interval, in seconds
SLACK = 1.0  # scheduling noise between the collector's write and our reading of it
T1 = "20261114102530.000000-000"
EVENT = re.compile(rb"\*\*\*MORVAX\*\*\* index= source=\"WMI:Soak\" sourcetype=\"WMI:Soak\"\n"
                   rb"\n---morvax-wmi-end-of-event---\n\d{14}\.000000\n"
                   rb"((?:[A-Za-z_]+=[^\n]*\n)+)\n---morvax-wmi-end-of-event---\n")
CHECKPOINT = re.compile(r"^[^=]+=([OAD]) (\d+) (\d+) (\d+)(?: (\S+))?$")
NONE = 0xFFFFFFFF


class Failure(Exception):
    pass


class Run:
    """One collector process; the arrival time of every chunk of its output is kept."""

    def __init__(self, command, env):
        self.proc = subprocess.Popen(command + ["-loglist", "Soak"], env=env,
                                     stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        self.chunks = []
        self.stderr = b""
        self.reader = threading.Thread(target=self._read, daemon=True)
        self.reader.start()
        self.err_reader = threading.Thread(target=self._read_err, daemon=True)
        self.err_reader.start()

    def _read(self):
        while True:
            chunk = self.proc.stdout.read1(65536)
            if not chunk:
                return
            self.chunks.append((time.monotonic(), chunk))

    def _read_err(self):
        while True:
            chunk = self.proc.stderr.read1(65536)
            if not chunk:
                return
            self.stderr += chunk

    def stop(self, sig):
        self.proc.send_signal(sig)
        status = self.proc.wait(120)
        self.reader.join(30)
        self.err_reader.join(30)
        self.proc.stdout.close()
        self.proc.stderr.close()
        return status

    def events(self):
        """(arrival time, record number) of every whole event; raises on a malformed stream."""
        data = b"".join(c for _, c in self.chunks)
        ends, total = [], 0
        for arrived, chunk in self.chunks:
            total += len(chunk)
            ends.append((total, arrived))
        out, pos, end_index = [], 0, 0
        while True:
            m = EVENT.match(data, pos)
            if not m:
                break
            number = re.search(rb"^RecordNumber=(\d+)$", m.group(1), re.M)
            if not number:
                raise Failure("an event without RecordNumber")
            while ends[end_index][0] < m.end():
                end_index += 1
            out.append((ends[end_index][1], int(number.group(1))))
            pos = m.end()
        rest = data[pos:]
        # Each event is one write of a few hundred bytes to a pipe: a kill leaves whole ones.
        if rest and not b"***MORVAX***".startswith(rest[:12]):
            raise Failure("stream broken after %d events: %r" % (len(out), rest[:80]))
        if b"---morvax-wmi-end-of-event---\n***" in rest:
            raise Failure("a malformed event in the stream: %r" % rest[:200])
        return out


def record_line(n):
    written = T1 if n == 1 else "20261114%06d.000000-000" % (110000 + n % 60)
    return json.dumps({"RecordNumber": n, "TimeWritten": written, "ComputerName": "localhost",
                       "SourceName": "soak", "Message": "record %d" % n}) + "\n"


class Appender(threading.Thread):
    """Appends records in small batches until `total` are in the log."""

    def __init__(self, path, start, total, rng):
        super().__init__(daemon=True)
        self.path, self.next, self.total, self.rng = path, start, total, rng
        self.done = threading.Event()

    def run(self):
        while self.next <= self.total:
            count = min(self.rng.randint(50, 400), self.total - self.next + 1)
            with open(self.path, "a") as f:
                f.write("".join(record_line(n) for n in range(self.next, self.next + count)))
            self.next += count
            time.sleep(self.rng.uniform(0.05, 0.3))
        self.done.set()


def check_checkpoint(path, seen):
    """The file parses, and the position it holds was written out before. Returns the number of
    lines and the records the file holds as done."""
    with open(path, "rb") as f:
        text = f.read().decode("utf-8")
    lines = [l for l in text.split("\n") if l]
    covered = set()
    if text and not text.endswith("\n"):
        raise Failure("checkpoint file torn: %r" % text[-80:])
    for line in lines:
        m = CHECKPOINT.match(line)
        if not m:
            raise Failure("checkpoint line does not parse: %r" % line)
        mode, chk, low, hi = m.group(1), int(m.group(2)), int(m.group(3)), int(m.group(4))
        if mode == "A":
            must = range(1, chk + 1)
        elif mode == "D" and chk != NONE:
            must = list(range(1, low + 1)) + list(range(chk, hi + 1))
        else:
            must = [chk]
        missing = [n for n in must if n not in seen]
        if missing:
            raise Failure("checkpoint %r is ahead of the output: %s not written" %
                          (line, missing[:5]))
        covered.update(must)
    return len(lines), covered


def soak(command, order, kills, records, rng):
    home = tempfile.mkdtemp(prefix="morvax-soak-")
    try:
        os.makedirs(os.path.join(home, "etc"))
        with open(os.path.join(home, "etc", "log-cmdline.cfg"), "w") as f:
            f.write("rootCategory=INFO, rootAppender\n")
        world = os.path.join(home, "world")
        os.makedirs(os.path.join(world, "eventlogs"))
        with open(os.path.join(world, "world.json"), "w") as f:
            json.dump({"hosts": {".": {"namespaces": {"root\\cimv2": {}},
                                       "eventlogs": {"Soak": {"order": order}}}}}, f)
        log = os.path.join(world, "eventlogs", "Soak.jsonl")
        first = min(records, 2000)
        with open(log, "w") as f:
            f.write("".join(record_line(n) for n in range(1, first + 1)))
        appender = Appender(log, first + 1, records, rng)
        appender.start()
        env = dict(os.environ)
        for name in ("MORVAX_DB", "MORVAX_ETC", "MORVAXD_PROCESSID"):
            env.pop(name, None)
        env.update(MORVAX_HOME=home, MORVAX_WMI_PROVIDER="sim", MORVAX_WMI_SIM=world)
        checkpoints = os.path.join(home, "var", "lib", "morvax", "persistentstorage", "wmi",
                                   "wmicmdln.ini")

        seen, tail, duplicates, written, stored = set(), set(), 0, 0, ""
        started = time.monotonic()
        for kill in range(kills + 1):
            run = Run(command, env)
            if kill < kills:
                time.sleep(rng.uniform(0.5, 6.0))
                run.stop(signal.SIGKILL)
            else:
                # Stopped once it has connected and everything is out.
                deadline = time.monotonic() + 600
                while time.monotonic() < deadline:
                    if appender.done.is_set() and b"Connected to WMI provider" in run.stderr and \
                            seen | {n for _, n in run.events()} >= set(range(1, records + 1)):
                        break
                    time.sleep(0.2)
                status = run.stop(signal.SIGTERM)
                if status != 0 or not run.stderr.endswith(b"Clean shutdown completed.\n\n"):
                    raise Failure("the last run ended with %d: %r" % (status, run.stderr[-300:]))
            events = run.events()
            numbers = [n for _, n in events]
            if len(set(numbers)) != len(numbers):
                raise Failure("a record written twice in one run")
            # A repeat must come from the last sync interval of the runs before, which the
            # checkpoint file had not caught up with when the kill came.
            repeats = set(numbers) & seen
            if repeats - tail:
                raise Failure("records %s repeated, but were written long before the kill "
                              "(checkpoint then: %r)" % (sorted(repeats - tail)[:5], stored.strip()))
            duplicates += len(repeats)
            written += len(events)
            seen.update(numbers)
            lines, covered = check_checkpoint(checkpoints, seen)
            with open(checkpoints) as f:
                stored = f.read()
            # What the runs wrote after their last syncs, until a checkpoint holds it: a run
            # killed early may sync less far than one before it wrote.
            tail -= covered
            if events:
                last = events[-1][0]
                tail |= {n for arrived, n in events if arrived >= last - SYNC_INTERVAL - SLACK}
            if kill < kills:
                print("  %s kill %2d: %6d events, checkpoint %d line(s) parsed" %
                      (order, kill + 1, len(events), lines))
        elapsed = time.monotonic() - started
        lost = set(range(1, records + 1)) - seen
        if lost:
            raise Failure("%d records lost, first %s" % (len(lost), sorted(lost)[:5]))
        print("%s: %d records, %d kills, %d events written, %d duplicates (%.2f%%), %.1f s" %
              (order, records, kills, written, duplicates, 100.0 * duplicates / records, elapsed))
    finally:
        shutil.rmtree(home, ignore_errors=True)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--kills", type=int, default=10)
    parser.add_argument("--records", type=int, default=20000)
    parser.add_argument("--seed", type=int, default=None)
    parser.add_argument("command", nargs="+")
    args = parser.parse_args()
    seed = args.seed if args.seed is not None else random.randrange(1 << 32)
    print("seed %d" % seed)
    sys.stdout.flush()
    try:
        for order in ("descending", "ascending"):
            soak(args.command, order, args.kills, args.records, random.Random("%d%s" % (seed, order)))
    except Failure as failure:
        print("FAILED (seed %d): %s" % (seed, failure))
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
