#!/usr/bin/env python3
"""Compares the manual pages with what the tool does: manual.py PVZAN PAGE, pvzan-charsets.7 and samples beside it."""
import json
import pathlib
import re
import subprocess
import sys

tool, page = sys.argv[1], pathlib.Path(sys.argv[2])
text = page.read_text()


def pvzan(*arguments, given=b""):
    return subprocess.run([tool, *arguments], input=given, capture_output=True, check=False)


# OPTIONS are those of --help, on one screen.
told = pvzan("--help").stdout.decode()
if told.count("\n") > 24 or max(map(len, told.splitlines())) > 80:
    sys.exit("--help does not fit a screen of 24 lines of 80 columns")
section = re.search(r"^\.SH OPTIONS\n(.*?)^\.SH", text, re.M | re.S).group(1)
plain = section.replace(".TP\n", "").replace("\\fB", "").replace("\\fR", "").replace("\\-", "-")
if " ".join(plain.replace("\\e", "\\").split()) != " ".join(told.split("\n\n", 1)[1].split()):
    sys.exit("the manual page's OPTIONS are not those of --help")

# SIMILAR CHARACTERS are those that become others, of all in the BMP and in any charset that is read at the start.
names = [line.split()[0] for line in pvzan("-l").stdout.decode().splitlines()]
listed = {(int(a, 16), int(b, 16)) for a, b in re.findall(r"U\+(\w{4})  U\+(\w{4})", text)}
katakana = {c for c in range(0xFF61, 0xFFA0)}
private = re.search(r"^private-use characters (.*)\bas the", text, re.M | re.S).group(1)
private = {int(c, 16) for c in re.findall(r"U\+(\w{4})", private)} | set(range(0xE78D, 0xE796))
done = set()
place = pathlib.Path(re.search("directory: (.*)", pvzan("--version").stdout.decode()).group(1))
ids = [json.loads(line)["charset"] for line in pvzan("list", "--json").stdout.splitlines()]
for name in [name for name, id in zip(names, ids) if (place / f"{id}.xml").exists()]:
    all_of_them = "\n".join(chr(c) for c in range(0xA0, 0x10000) if not 0xD800 <= c < 0xE000).encode()
    summary = pvzan("--json", "--similar", "-c", "-f", "utf-8", "-t", name, given=all_of_them).stderr.splitlines()[-1]
    used = [int(c[2:], 16) for c in json.loads(summary)["look_alikes"]]
    if "2022" in name:
        done, used = done | katakana & set(used), sorted(set(used) - katakana)
    if name == "GB18030":
        done, used = done | private & set(used), sorted(set(used) - private)
    written = pvzan("-q", "--similar", "-f", "utf-8", "-t", name, given="\n".join(map(chr, used)).encode()).stdout
    done |= set(zip(used, map(ord, pvzan("-f", name, given=written).stdout.decode().split())))
if done != listed | katakana | private:
    sys.exit(f"SIMILAR CHARACTERS and the tool differ in {sorted(map(str, done ^ (listed | katakana | private)))}")

# Those that have kana are guessed where they are said to be, and no others.
guessed = re.search(r'^\.\\" guessed:\n(.*?);', text, re.M | re.S).group(1).replace("and", ",")
guessed = {name.strip() for name in guessed.split(",")}
report = (page.parents[2] / "samples" / "report.utf-8.txt").read_text() + "俱𠀋か゚①\n"
for name in {*names, "UTF-32"}:
    sample = pvzan("-q", "-c", "-t", name, given=report.encode()).stdout
    if "の" not in pvzan("-q", "-f", name, given=sample).stdout.decode():
        continue
    answer = json.loads(pvzan("detect", "--json", given=sample).stdout)
    if (answer["sure"] and re.sub("[BL]E$", "", answer["charset"]) == name) != (name in guessed):
        sys.exit(f"{name} is {'' if name in guessed else 'not '}to be guessed, and the answer is {answer}")

# The short names, and the code pages that they mean.
charsets = (page.parent / "pvzan-charsets.7").read_text().replace("\\-", "-")
aliases = re.findall(r"^\.B ([\w-]+)\n\(([^)]*)\)(?: Windows code page (\d+))?", charsets, re.M)
for charset, short, code_page in aliases:
    for name in short.split(", ") + [charset] + [f"windows-{page}" for page in code_page.split()]:
        known = json.loads(pvzan("list", "--json", name).stdout or "{}").get("charset")
        if known != charset:
            sys.exit(f"{name} is {known}, and not {charset}")
if sum(code_page != "" for _, _, code_page in aliases) != 4:
    sys.exit("pvzan-charsets.7 does not tell four code pages")
