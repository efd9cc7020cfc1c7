#!/usr/bin/env python3
"""Arrows point down: which folder of src may include which, and no circle of headers.

Prints every include that points up and every circle, and fails.
"""
import pathlib
import re
import sys

SOURCE = pathlib.Path(__file__).resolve().parents[2] / "src"
FLOORS = ["foundation", "instrument", "event", "transport", "capture", "diagnostics", "agent"]
# Each room of src, and what it may include besides itself.
ROOMS = {
    "os": set(),
    "qlog": {"os"},
    "dc2ps": set(),
    "jni": {"os", "qlog", "dc2ps", "jvmpi/jvmpi.h", "jvmpi/gc_edge.h", "jvmpi/virtual_threads.h"},
    "jvmpi": {"os"},
    "launch": {"os", "jvmpi", "qlog"},
    "server": {"os", "dc2ps"},
}


def read(path):
    """The place of a source below src, and those of the sources that it includes."""
    place = path.relative_to(SOURCE).as_posix()
    found = re.findall(r'^#include "([^"]+)"', path.read_text(), re.MULTILINE)
    roots = [SOURCE, SOURCE / "jni", path.parent]
    hits = [next((root / name for root in roots if (root / name).exists()), None) for name in found]
    return place, [hit.resolve().relative_to(SOURCE).as_posix() for hit in hits if hit]


def points_up(place, target):
    room, aim = place.split("/")[0], target.split("/")[0]
    if room != aim:
        return aim not in ROOMS[room] and target not in ROOMS[room]
    return room == "jni" and FLOORS.index(target.split("/")[1]) > FLOORS.index(place.split("/")[1])


def circle(place, includes, path):
    if place in path:
        return path[path.index(place):] + [place]
    return next(filter(None, (circle(t, includes, path + [place]) for t in includes.pop(place, []))), None)


def main():
    includes = dict(read(p) for room in ROOMS for p in sorted((SOURCE / room).rglob("*.[hc]*")))
    wrong = [f"{p} includes {t}" for p, targets in includes.items() for t in targets if points_up(p, t)]
    headers = {p: targets for p, targets in includes.items() if p.endswith(".h")}
    wrong += [" > ".join(c) for c in (circle(p, headers, []) for p in list(headers)) if c]
    print("\n".join(wrong) or f"{len(includes)} sources: every include points down, no circle")
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())
