#!/usr/bin/env python3
"""Make the benchmark's texts, each of 10 MB or more, from documents that Debian ships.

kanji.txt   words of the ipadic dictionary, in lines of 90 characters (package mecab-ipadic)
prose.txt   Japanese manual pages: half of it ASCII (package manpages-ja)
ascii.txt   English manual pages, without what is not ASCII (any Debian)
"""

import glob
import gzip
import pathlib
import random
import sys

SIZE = 12_000_000


def repeated(text):
    if not text:
        sys.exit("no documents found: install mecab-ipadic, manpages-ja and man-db")
    while len(text.encode()) < SIZE:
        text += text
    return text.encode()[: SIZE + 2_000_000].decode("utf-8", "ignore")


def manual_pages(pattern):
    pages = (gzip.open(name).read() for name in sorted(glob.glob(pattern)))
    return b"".join(pages).decode("utf-8", "ignore")


def words():
    found = []
    for name in sorted(glob.glob("/usr/share/mecab/dic/ipadic/*.csv")):
        with open(name, encoding="euc_jp", errors="ignore") as lines:
            found += [line.split(",")[0] for line in lines]
    found = [word for word in found if word and not word.isascii()]
    random.Random(1).shuffle(found)
    return found


def kanji_lines():
    line = ""
    for word in words():
        line += word
        if len(line) > 90:
            yield line + "\n"
            line = ""


def main(directory):
    folder = pathlib.Path(directory)
    folder.mkdir(parents=True, exist_ok=True)
    english = manual_pages("/usr/share/man/man[1-8]/*.gz")
    texts = {
        "kanji.txt": "".join(kanji_lines()),
        "prose.txt": manual_pages("/usr/share/man/ja/man*/*.gz"),
        "ascii.txt": "".join(c for c in english if c.isascii()),
    }
    for name, text in texts.items():
        (folder / name).write_text(repeated(text), encoding="utf-8")


main(sys.argv[1])
