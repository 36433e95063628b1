#!/usr/bin/env python3
"""Compares what the shared libraries export with the lists in symbols/: the binary surface hosts link against.

check_symbols.py LIBRARY...            fails on a difference
check_symbols.py --update LIBRARY...   writes the lists anew; a change of them is a change of the surface
"""
import pathlib
import re
import subprocess
import sys

LISTS = pathlib.Path(__file__).resolve().parent / "symbols"
OWN = re.compile(r"\b(cloudbackuplib|cloudclientlib|task|exc|xml|guid|digest|logging|posix|util|io|crypto|progress|"
                 r"alglib|options_t)\b")
# Weak copies of the standard library's and Boost's templates and type names: every C++ program has them.
FOREIGN = re.compile(r"^((vtable|typeinfo|typeinfo name|guard variable|construction vtable) for )?"
                     r"(non-virtual thunk to |virtual thunk to )?.*\b(std|boost|__gnu_cxx)::")


def exported(library):
    """The demangled names that the library defines for others: (kind, name)."""
    lines = subprocess.run(["nm", "-D", "-C", "--defined-only", library], capture_output=True, text=True,
                           check=True).stdout.splitlines()
    return [tuple(line.split(" ", 2)[1:]) for line in lines]


def split(library):
    own, strange = set(), set()
    for kind, name in exported(library):
        strong = kind in "TDBR"
        if strong and OWN.search(name) or kind in "VW" and re.match(r"(vtable|typeinfo) for ", name) and \
                OWN.search(name) and "std::" not in name and "boost::" not in name:
            own.add(name)
        elif strong or not (FOREIGN.match(name) or OWN.search(name)):
            strange.add(name)
    return sorted(own), sorted(strange)


def main():
    update = sys.argv[1] == "--update"
    failed = False
    for library in sys.argv[2 if update else 1:]:
        path = pathlib.Path(library)
        own, strange = split(path)
        listed = LISTS / (path.name.split(".so")[0] + ".txt")
        if update:
            listed.write_text("\n".join(own) + "\n")
            continue
        before = set(listed.read_text().splitlines())
        for title, names in (("no longer exported", before - set(own)), ("newly exported", set(own) - before),
                             ("exported and nobody's business", strange)):
            for name in sorted(names):
                failed = True
                print(f"{path.name}: {title}: {name}")
    sys.exit(1 if failed else 0)


if __name__ == "__main__":
    main()
