"""Writes the sources of docs/testing.md: extract.py DOCUMENT DIRECTORY.

A block that begins with a comment that is a file's name begins that file; every other block of C++
continues the first."""

import re
import sys
from pathlib import Path

document, directory = sys.argv[1:]
files = {}
for block in re.findall(r"^```(?:cpp|cmake)\n(.*?)^```", Path(document).read_text(), re.M | re.S):
    named = re.match(r"(?://|#) (\S+\.\w+)\n", block)
    name = named.group(1) if named else next(iter(files))
    files[name] = files.get(name, "") + block
for name, text in files.items():
    Path(directory, name).write_text(text)
