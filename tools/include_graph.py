#!/usr/bin/env python3
"""The include graph of src/: layers, levels, cycles, and every include that points up.

    python3 tools/include_graph.py [--check] [SRC_DIR]

A file belongs to its folder: src/util/<concern>/ or an area of src/ (input, conf, storage, wmi,
net). A folder may include only itself and the folders below it:

    util:   base <- time <- thread <- io <- log <- regex, crash (side by side)
    areas:  input -> conf, storage, wmi, net -> util

The report gives files and lines per folder, the number of include levels (the longest chain of
classes, a class being a header with its sources, a knot of classes that include each other
counting as one), the knots, and the includes that point up. With --check the status is 1 when
any include points up or names a folder that is not in the table.
"""

import os
import re
import sys
from collections import defaultdict

UTIL_ORDER = ["base", "time", "thread", "io", "log", "regex", "crash"]
# What each folder may include besides itself.
ALLOWED = {}
for i, concern in enumerate(UTIL_ORDER):
    below = UTIL_ORDER[:i]
    if concern == "crash":
        below = [c for c in below if c != "regex"]
    ALLOWED["util/" + concern] = set("util/" + c for c in below)
ALL_UTIL = set("util/" + c for c in UTIL_ORDER)
for area in ["conf", "storage", "wmi", "net"]:
    ALLOWED[area] = set(ALL_UTIL)
ALLOWED["input"] = set(ALL_UTIL) | {"conf", "storage", "wmi", "net"}

INCLUDE = re.compile(r'\s*#\s*include\s+"([^"]+)"')
SOURCE = re.compile(r"\.(h|cpp)$")


def folder_of(relative):
    """The folder of a path below src/, as the table names it; None for a file outside it."""
    parts = relative.split("/")
    if len(parts) < 2:
        return None
    if parts[0] == "util":
        return "util/" + parts[1] if len(parts) >= 3 else "util"
    return parts[0]


def class_of(relative):
    """A header and its sources are one class: Pathname.h, Pathname.cpp, Pathname_win.cpp."""
    return re.sub(r"_(posix|win)$", "", SOURCE.sub("", relative))


def read_tree(src):
    files = {}
    for root, _, names in os.walk(src):
        for name in names:
            if SOURCE.search(name):
                path = os.path.join(root, name)
                relative = os.path.relpath(path, src).replace(os.sep, "/")
                with open(path, encoding="utf-8", errors="replace") as f:
                    files[relative] = f.read().splitlines()
    return files


def longest_chain(nodes, edges):
    """Tarjan's strongly connected components, then the longest path through their DAG."""
    index, low, on_stack, stack, components = {}, {}, set(), [], []
    counter = [0]

    def connect(v):
        work = [(v, iter(sorted(edges[v])))]
        index[v] = low[v] = counter[0]
        counter[0] += 1
        stack.append(v)
        on_stack.add(v)
        while work:
            node, children = work[-1]
            advanced = False
            for w in children:
                if w not in index:
                    index[w] = low[w] = counter[0]
                    counter[0] += 1
                    stack.append(w)
                    on_stack.add(w)
                    work.append((w, iter(sorted(edges[w]))))
                    advanced = True
                    break
                if w in on_stack:
                    low[node] = min(low[node], index[w])
            if advanced:
                continue
            work.pop()
            if work:
                low[work[-1][0]] = min(low[work[-1][0]], low[node])
            if low[node] == index[node]:
                component = []
                while True:
                    w = stack.pop()
                    on_stack.discard(w)
                    component.append(w)
                    if w == node:
                        break
                components.append(component)

    for v in sorted(nodes):
        if v not in index:
            connect(v)
    component_of = {v: k for k, c in enumerate(components) for v in c}
    # Tarjan emits components in reverse topological order: successors first.
    level = [1] * len(components)
    for k, component in enumerate(components):
        for v in component:
            for w in edges[v]:
                if component_of[w] != k:
                    level[k] = max(level[k], level[component_of[w]] + 1)
    knots = [sorted(c) for c in components if len(c) > 1]
    return max(level, default=0), knots


def main(argv):
    check = "--check" in argv
    args = [a for a in argv if a != "--check"]
    src = args[0] if args else os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "src")
    files = read_tree(src)

    sizes = defaultdict(lambda: [0, 0])
    violations = []
    nodes = set()
    edges = defaultdict(set)
    for relative, lines in sorted(files.items()):
        folder = folder_of(relative)
        if folder is None:
            continue
        sizes[folder][0] += 1
        sizes[folder][1] += len(lines)
        me = class_of(relative)
        nodes.add(me)
        for number, line in enumerate(lines, 1):
            match = INCLUDE.match(line)
            if not match or match.group(1) not in files:
                continue
            target = match.group(1)
            other = folder_of(target)
            if other != folder and (folder not in ALLOWED or other not in ALLOWED[folder]):
                violations.append("%s:%d: %s includes %s (%s)" % (relative, number, folder,
                                                                   target, other))
            if class_of(target) != me:
                edges[me].add(class_of(target))
                nodes.add(class_of(target))

    levels, knots = longest_chain(nodes, edges)
    print("%-14s %6s %7s" % ("folder", "files", "lines"))
    for folder in sorted(sizes):
        print("%-14s %6d %7d" % (folder, sizes[folder][0], sizes[folder][1]))
    print("include levels: %d" % levels)
    print("knots: %d%s" % (len(knots), "".join("\n  " + " ".join(k) for k in knots)))
    print("includes that point up: %d" % len(violations))
    for violation in violations:
        print("  " + violation)
    return 1 if check and violations else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
