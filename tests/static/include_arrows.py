#!/usr/bin/env python3
"""Which room may include which: arrows point one way, and a header is named by its path from the root.

usage: include_arrows.py [ROOT]     prints each include that breaks a rule; exit status 1 when there is one
"""

import re
import sys
from pathlib import Path

# service/ is two targets: what gather/ and management/ stand on, and what starts them.
SERVICE_BASE = {"child_supervision", "host_role", "service_stop_exception", "signals", "state_flags"}

BELOW = {"config", "platform", "sqlite", "util"}
MAY_INCLUDE = {
    "platform": set(),
    "sqlite": set(),
    "util": {"platform"},
    "config": {"platform", "util"},
    "service base": {"config", "platform", "util"},
    "gather": BELOW | {"service base"},
    "management": BELOW | {"service base", "gather"},
    "service": BELOW | {"service base", "management"},
    "companions/common": BELOW,
    "companions/detect": BELOW | {"companions/common"},
    "companions/alert": BELOW | {"companions/common"},
    "operator_tool": BELOW | {"companions/common", "companions/detect", "companions/alert"},
    "embedded_host": {"platform"},
    "examples": BELOW | {"gather", "management"},
}


def room_of(path):
    """The room of a file given by its path from the root; None for what is no room."""
    if path.parts[0] == "companions":
        return "/".join(path.parts[:2])
    if path.parts[0] == "service" and path.stem in SERVICE_BASE:
        return "service base"
    return path.parts[0] if path.parts[0] in MAY_INCLUDE else None


def violations(root):
    """(file, line number, what is wrong) of each include that breaks a rule."""
    for source in sorted([*root.rglob("*.cpp"), *root.rglob("*.h")]):
        path = source.relative_to(root)
        room = room_of(path)
        if room is None:
            continue
        allowed = MAY_INCLUDE[room] | {room}
        for number, line in enumerate(source.read_text().splitlines(), 1):
            include = re.match(r'\s*#\s*include\s*"([^"]+)"', line)
            if not include:
                continue
            target = Path(include[1])
            if not (root / target).is_file():
                yield path, number, f'"{target}" is no path from the root'
            elif room_of(target) not in allowed:
                yield path, number, f"{room} may not include {target}"


def main():
    root = Path(sys.argv[1] if len(sys.argv) > 1 else Path(__file__).parents[2]).resolve()
    found = list(violations(root))
    for path, number, what in found:
        print(f"{path}:{number}: {what}")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
