#!/usr/bin/env python3
"""Compares the options of the manual page with those that --help tells, on one screen: manual.py PVZAN PAGE."""
import pathlib
import re
import subprocess
import sys

told = subprocess.run([sys.argv[1], "--help"], capture_output=True, text=True, check=True).stdout
if told.count("\n") > 24 or max(map(len, told.splitlines())) > 80:
    sys.exit("--help does not fit a screen of 24 lines of 80 columns")
words = " ".join(told.split("\n\n", 1)[1].split())
page = pathlib.Path(sys.argv[2]).read_text()
section = re.search(r"^\.SH OPTIONS\n(.*?)^\.SH", page, re.M | re.S).group(1)
plain = section.replace(".TP\n", "").replace("\\fB", "").replace("\\fR", "").replace("\\-", "-")
if " ".join(plain.replace("\\e", "\\").split()) != words:
    sys.exit("the manual page's OPTIONS are not those of --help")
