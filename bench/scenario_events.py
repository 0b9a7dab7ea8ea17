"""The offsets at which the events of a captured stream end, for the bare writer."""
import array
import os

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
