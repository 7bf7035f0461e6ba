"""Prints CHANGELOG.md in the format of Debian's changelogs.

Usage: changelog.py CHANGELOG SOURCE MAINTAINER
"""

import os
import re
import sys
import textwrap
import time
from datetime import datetime, timezone
from email.utils import format_datetime
from pathlib import Path


def main(changelog, source, maintainer):
    now = float(os.environ.get("SOURCE_DATE_EPOCH", time.time()))
    for entry in re.split(r"^## ", Path(changelog).read_text(), flags=re.M)[1:]:
        heading, _, body = entry.partition("\n")
        version, date = heading.split(", ")
        released = re.fullmatch(r"\d{4}-\d\d-\d\d", date)
        day = (datetime.fromisoformat(date).replace(tzinfo=timezone.utc) if released
               else datetime.fromtimestamp(now, timezone.utc))
        print(f"{source} ({version}) {'unstable' if released else 'UNRELEASED'}; urgency=medium\n")
        for item in re.split(r"\n\n|^- ", body.strip(), flags=re.M):
            if item.strip():
                print(textwrap.fill(" ".join(item.split()), 79,
                                    initial_indent="  * ", subsequent_indent="    "))
        print(f"\n -- {maintainer}  {format_datetime(day)}\n")


main(*sys.argv[1:])
