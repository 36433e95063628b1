#!/usr/bin/env python3
"""Fails unless every C++ text that the pages show stands, as it is, in one of the compiled examples, and every file
that they link to is there: check_shown.py EXAMPLES PAGE...
"""
import pathlib
import re
import sys

examples = [path.read_text() for path in pathlib.Path(sys.argv[1]).glob("*.*")]
findings = []
shown = 0
for page in map(pathlib.Path, sys.argv[2:]):
    text = page.read_text()
    for block in re.findall(r"```cpp\n(.*?)```", text, re.DOTALL):
        shown += 1
        lines = block.strip("\n")
        if not any(lines.strip() in example for example in examples):
            findings.append(f"{page}: shown, but in no example:\n{block}")
    for target in re.findall(r"\]\(([^)#:]+)\)", text):
        if not (page.parent / target).exists():
            findings.append(f"{page}: links to {target}, which is not there")
if shown == 0:
    findings.append("no C++ text found at all")
sys.exit("\n".join(findings) or 0)
