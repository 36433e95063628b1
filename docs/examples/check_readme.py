#!/usr/bin/env python3
"""Fails unless the README shows the example exactly as it is compiled: check_readme.py README EXAMPLE."""
import pathlib
import re
import sys

shown = re.search(r"```cpp\n(.*?)```", pathlib.Path(sys.argv[1]).read_text(), re.DOTALL).group(1)
if shown != pathlib.Path(sys.argv[2]).read_text():
    sys.exit(f"{sys.argv[1]} does not show {sys.argv[2]} as it is")
