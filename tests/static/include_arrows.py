#!/usr/bin/env python3
"""Which room may include which: arrows point one way, and a header is named by its path from the root.

Inside a room as well: a header and its source together are one unit, and no unit includes one that comes
back to it.

usage: include_arrows.py [ROOT]     prints each include that breaks a rule; exit status 1 when there is one
"""

import re
import sys
from pathlib import Path

# service/ is two targets: what gather/ and management/ stand on, and what starts them.
SERVICE_BASE = {"child_supervision", "host_role", "service_stop_exception", "signals", "state_flags"}

BELOW = {"config", "platform", "sqlite", "util"}
SHARED = BELOW | {"anomaly_database", "finding"}  # what the programs above have in common
MAY_INCLUDE = {
    "platform": set(),
    "sqlite": set(),
    "util": {"platform"},
    "config": {"platform", "util"},
    "anomaly_database": BELOW,
    "finding": BELOW | {"anomaly_database"},
    "service base": {"config", "platform", "util"},
    "gather": BELOW | {"service base", "anomaly_database"},
    "management": BELOW | {"service base", "anomaly_database", "gather"},
    "service": BELOW | {"service base", "management"},
    "companions/common": SHARED,
    "companions/detect": SHARED | {"companions/common"},
    "companions/alert": SHARED | {"companions/common"},
    "coverage": SHARED | {"companions/common", "service base", "gather"},
    "health": SHARED | {"companions/common", "companions/detect", "companions/alert", "coverage"},
    "operator_tool": SHARED | {"companions/common", "companions/detect", "companions/alert", "coverage", "health"},
    "embedded_host": {"platform", "sqlite"},
    "examples": BELOW | {"anomaly_database", "gather", "management"},
}


def room_of(path):
    """The room of a file given by its path from the root; None for what is no room."""
    if path.parts[0] == "companions":
        return "/".join(path.parts[:2])
    if path.parts[0] == "service" and path.stem in SERVICE_BASE:
        return "service base"
    return path.parts[0] if path.parts[0] in MAY_INCLUDE else None


def includes(root):
    """(file, line number, what it includes in quotes) of each such line in the rooms."""
    for source in sorted([*root.rglob("*.cpp"), *root.rglob("*.h")]):
        path = source.relative_to(root)
        if room_of(path) is None:
            continue
        for number, line in enumerate(source.read_text().splitlines(), 1):
            if include := re.match(r'\s*#\s*include\s*"([^"]+)"', line):
                yield path, number, Path(include[1])


def against_the_arrows(root, found):
    """(file, line number, what is wrong) of each include that is misnamed or that its room may not have."""
    for path, number, target in found:
        room = room_of(path)
        if not (root / target).is_file():
            yield path, number, f'"{target}" is no path from the root'
        elif room_of(target) not in MAY_INCLUDE[room] | {room}:
            yield path, number, f"{room} may not include {target}"


def way(graph, start, end):
    """The shortest way along the includes from one unit to another; None when there is none."""
    ways = [[start]]
    seen = {start}
    for so_far in ways:
        if so_far[-1] == end:
            return so_far
        for following in sorted(graph.get(so_far[-1], set()) - seen):
            seen.add(following)
            ways.append([*so_far, following])
    return None


def circles(found):
    """(file, line number, the circle) of each include whose target comes back to the file's own unit."""
    graph = {}
    for path, _, target in found:
        graph.setdefault(path.with_suffix(""), set()).add(target.with_suffix(""))
    for path, number, target in found:
        unit = path.with_suffix("")
        back = way(graph, target.with_suffix(""), unit) if target.with_suffix("") != unit else None
        if back:
            yield path, number, "a circle: " + " -> ".join(map(str, [unit, *back]))


def main():
    root = Path(sys.argv[1] if len(sys.argv) > 1 else Path(__file__).parents[2]).resolve()
    found = list(includes(root))
    wrong = [*against_the_arrows(root, found), *circles(found)]
    for path, number, what in wrong:
        print(f"{path}:{number}: {what}")
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())
