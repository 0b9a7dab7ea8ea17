#!/usr/bin/env python3
"""The collector's own instructions per event of a one-shot query, counted by callgrind: two runs
over 12-property objects (N and 2N of them), so that start and exit cancel out, and from each the
instructions of the simulated provider taken away (everything spent under a call into a function
defined in src/wmi/sim, libc included). Needs valgrind and a build with line information
(-g), since a function is told apart by its file:

    cmake -S . -B build/prof -DCMAKE_BUILD_TYPE=Release "-DCMAKE_CXX_FLAGS_RELEASE=-O3 -DNDEBUG -g"
    cmake --build build/prof -j2 --target morvax-wmi
    python3 bench/instructions_scenario.py build/prof [--instances N] [--top K]
"""
import argparse
import os
import re
import shutil
import subprocess
import sys
import tempfile
from collections import defaultdict

from scenario_events import PROPERTIES, make_home, write_class_world

SIM_DIR = os.sep + os.path.join("src", "wmi", "sim") + os.sep
NAMED = re.compile(r"^(fl|fi|fe|fn|cfl|cfi|cfn|ob|cob)=(?:\((\d+)\))?\s*(.*)$")


class Profile:
    """Self costs per function and the inclusive costs of calls from outside the provider into it,
    read from a callgrind output file with a single event (Ir)."""

    def __init__(self, path):
        names = defaultdict(dict)  # kind (fl, fn) -> id -> name
        self.file_of = {}  # function -> the file it is defined in
        self.self_cost = defaultdict(int)
        self.calls = []  # (caller, callee, inclusive cost)
        self.total = 0
        file = function = callee = None
        pending_call = False
        with open(path) as f:
            for line in f:
                line = line.rstrip("\n")
                if not line:
                    continue
                if line.startswith("totals:") or line.startswith("summary:"):
                    self.total = max(self.total, int(line.split()[1]))
                    continue
                m = NAMED.match(line)
                if m:
                    kind, ident, name = m.groups()
                    table = "fl" if kind in ("fl", "fi", "fe", "cfl", "cfi") else kind[-2:]
                    if ident is not None:
                        if name:
                            names[table][ident] = name
                        name = names[table].get(ident, name)
                    if kind == "fl":
                        file = name
                    elif kind == "fn":
                        function = name
                        self.file_of.setdefault(function, file)
                    elif kind == "cfn":
                        callee = name
                    continue
                if line.startswith("calls="):
                    pending_call = True
                    continue
                if not (line[0].isdigit() or line[0] in "+-*"):
                    continue  # headers: version, creator, events, positions, cmd
                parts = line.split()
                cost = int(parts[1]) if len(parts) > 1 else 0
                if pending_call:
                    self.calls.append((function, callee, cost))
                    pending_call = False
                else:
                    self.self_cost[function] += cost

    def is_sim(self, function):
        # A function's file is where its first instructions come from, which for code inlined
        # from a header is that header: its name tells as well, and the release of a provider's
        # object (a shared pointer's destroy of a Sim class) is the provider's work, as Release
        # is on COM.
        return (SIM_DIR in (self.file_of.get(function) or "") or
                "morvax::wmi::Sim" in (function or ""))

    def split(self):
        """(own, provider): the provider's share is every call from outside it into it."""
        provider = sum(cost for caller, callee, cost in self.calls
                       if self.is_sim(callee) and not self.is_sim(caller))
        total = self.total or sum(self.self_cost.values())
        return total - provider, provider


def profile(build, instances, tmp):
    collector = os.path.join(build, "src", "input", "morvax-wmi")
    world = write_class_world(os.path.join(tmp, "world%d" % instances), "Bench_Disk", PROPERTIES,
                              instances)
    out = os.path.join(tmp, "callgrind.%d" % instances)
    env = dict(os.environ, MORVAX_HOME=os.path.join(tmp, "home"), MORVAX_WMI_SIM=world,
               MORVAX_WMI_PROVIDER="sim")
    with open(os.devnull, "wb") as null:
        subprocess.run(["valgrind", "--tool=callgrind", "--callgrind-out-file=" + out,
                        collector, "-wql", "SELECT * FROM Bench_Disk"], env=env, stdout=null,
                       stderr=null, check=True)
    return Profile(out)


def measure(build, instances=10000, top=0):
    """Own and provider instructions per event, and the functions that grew the most."""
    if not shutil.which("valgrind"):
        sys.exit("valgrind is not installed")
    tmp = tempfile.mkdtemp(prefix="morvax-callgrind-")
    try:
        make_home(os.path.join(tmp, "home"))
        small = profile(build, instances, tmp)
        large = profile(build, 2 * instances, tmp)
        if not any(small.is_sim(fn) for fn in small.file_of):
            sys.exit("no function of src/wmi/sim in the profile: build with -g")
        (own_a, sim_a), (own_b, sim_b) = small.split(), large.split()
        growth = sorted(((large.self_cost[fn] - small.self_cost.get(fn, 0)) / instances, fn)
                        for fn in large.self_cost if not large.is_sim(fn))
        return {"own": (own_b - own_a) / instances, "provider": (sim_b - sim_a) / instances,
                "instances": instances, "top": growth[::-1][:top]}
    finally:
        shutil.rmtree(tmp, ignore_errors=True)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("build", help="a Linux build with -g")
    parser.add_argument("--instances", type=int, default=10000)
    parser.add_argument("--top", type=int, default=0,
                        help="also list the K functions of ours that cost most per event")
    args = parser.parse_args()
    m = measure(args.build, args.instances, args.top)
    print("instructions per event: collector %.0f, simulated provider %.0f (%d and %d objects)" %
          (m["own"], m["provider"], args.instances, 2 * args.instances))
    for cost, fn in m["top"]:
        print("  %8.0f  %s" % (cost, fn[:150]))


if __name__ == "__main__":
    main()
