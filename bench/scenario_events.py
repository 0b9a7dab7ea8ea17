"""What the scenarios share: an installation and a world for the collector, and the offsets at
which the events of a captured stream end, for the bare writer."""
import array
import json
import os

# The class of the one-shot scenarios: twelve properties of the common types.
PROPERTIES = {
    "Name": "string", "Caption": "string", "Description": "string", "Status": "string",
    "InstallDate": "datetime", "Size": "uint64", "FreeSpace": "uint64", "BlockSize": "uint32",
    "Partitions": "uint32", "Index": "sint32", "Removable": "boolean", "Kind": "uint16",
}


def make_home(home):
    """An installation at `home` whose log keeps quiet below WARN; returns `home`."""
    os.makedirs(os.path.join(home, "etc"))
    with open(os.path.join(home, "etc", "log-cmdline.cfg"), "w") as f:
        f.write("rootCategory=WARN, rootAppender\n")
    return home


def write_world(directory, hosts):
    """A world of the simulated provider with these hosts in `directory`; returns it."""
    os.makedirs(os.path.join(directory, "eventlogs"), exist_ok=True)
    with open(os.path.join(directory, "world.json"), "w") as f:
        json.dump({"hosts": hosts}, f)
    return directory


def write_class_world(directory, name, properties, instances):
    """A world of one class of synthetic instances in root\\cimv2 of the local host."""
    return write_world(directory, {".": {"namespaces": {"root\\cimv2": {"classes": {
        name: {"properties": properties, "synthetic": instances}}}}}})

MARKER = b"\n---morvax-wmi-end-of-event---\n"


def write_event_ends(events_path):
    """Writes <events_path>.ends (native 64-bit offsets, one per event) and returns its path and
    the count. The marker also stands inside each header, so every second one ends an event."""
    with open(events_path, "rb") as f:
        data = f.read()
    ends = array.array("Q")
    at, seen = data.find(MARKER), 0
    while at >= 0:
        seen += 1
        if seen % 2 == 0:
            ends.append(at + len(MARKER))
        at = data.find(MARKER, at + len(MARKER))
    path = events_path + ".ends"
    with open(path, "wb") as f:
        ends.tofile(f)
    return path, len(ends)
