#!/usr/bin/env python3
"""The corpora of the fuzz targets, a bundle each: corpus/NAME.tar.

usage: bundle.py add NAME INPUT...     also takes these files, and those in these folders, into the bundle
       bundle.py renew NAME FOLDER     of what is in it keeps the inputs written by hand (seed..), and adds the folder's
       bundle.py check                 each bundle is, byte for byte, what this program makes of its inputs

An input keeps its file's name; one whose content is in the bundle already is left out. The same inputs make the
same bytes, on any machine.
"""

import io
import sys
import tarfile
from pathlib import Path

CORPUS = Path(__file__).resolve().parent / "corpus"


def read(bundle):
    """The inputs by name; none when there is no bundle yet."""
    if not bundle.exists():
        return {}
    with tarfile.open(bundle) as tar:
        return {entry.name: tar.extractfile(entry).read() for entry in tar if entry.isfile()}


def bytes_of(inputs):
    """The bundle. Owner, mode and time of its entries are tarfile's own: 0, 0644 and 0."""
    made = io.BytesIO()
    with tarfile.open(fileobj=made, mode="w", format=tarfile.USTAR_FORMAT) as tar:
        for name in sorted(inputs):
            entry = tarfile.TarInfo(name)
            entry.size = len(inputs[name])
            tar.addfile(entry, io.BytesIO(inputs[name]))
    return made.getvalue()


def with_files(inputs, paths):
    """The inputs and the files; ends the program when a name would stand for two contents."""
    files = [file for path in paths for file in (sorted(path.iterdir()) if path.is_dir() else [path])]
    known = set(inputs.values())
    grown = dict(inputs)
    for file in files:
        content = file.read_bytes()
        if content in known:
            continue
        if file.name in grown:
            sys.exit(f"bundle.py: {file}: the bundle has another input of that name")
        grown[file.name] = content
        known.add(content)
    return grown


def check():
    bundles = sorted(CORPUS.iterdir())
    wrong = [bundle.name for bundle in bundles
             if bundle.suffix != ".tar" or bytes_of(read(bundle)) != bundle.read_bytes()]
    for name in wrong:
        print(f"bundle.py: corpus/{name} is not made by this program", file=sys.stderr)
    print(f"{len(bundles)} bundles, {len(wrong)} wrong")
    return 1 if wrong or not bundles else 0


def main(arguments):
    if arguments == ["check"]:
        return check()
    if len(arguments) < 3 or arguments[0] not in ("add", "renew"):
        print(__doc__, file=sys.stderr)
        return 2
    bundle = CORPUS / f"{arguments[1]}.tar"
    inputs = read(bundle)
    if arguments[0] == "renew":
        inputs = {name: content for name, content in inputs.items() if name.startswith("seed")}
    grown = with_files(inputs, [Path(argument) for argument in arguments[2:]])
    bundle.write_bytes(bytes_of(grown))
    print(f"{bundle.name}: {len(grown)} inputs, {sum(map(len, grown.values()))} bytes")
    return 0


if __name__ == "__main__":
    try:
        sys.exit(main(sys.argv[1:]))
    except OSError as error:
        sys.exit(f"bundle.py: {error}")
