#!/usr/bin/env python3
"""Make the benchmark's texts, 12 MB or more each, from documents that Debian ships.

LANGUAGE-prose.txt  manual pages and guides: half Latin letters, or more
LANGUAGE-dense.txt  Japanese: words of the ipadic dictionary; Chinese and Korean: the prose without
                    its ASCII characters; in lines of 90 characters; French, Russian: the same
ja-jis2004.txt      ja-dense with every 20th character out of JIS X 0213, beyond JIS X 0208
ascii.txt           English manual pages, without what is not ASCII

A text holds only characters that every contender maps alike, so that none of them stops;
ascii and the Japanese ones hold no backslash and no tilde.
"""

import glob
import gzip
import itertools
import pathlib
import random
import re
import sys

SIZE = 12_000_000
LINE = 90
# Characters of the national standards that Unix and Windows tables map to different scalars.
DISPUTED = set("\u2014\u2015\u2016\u2225\u2212\uff0d\u301c\uff5e\u00a2\u00a3\u00ac\uffe0\uffe1\uffe2"
               "\u00b7\u30fb\u2022\u2027\u2574\u02cd\u00a1\u00bf\u00a5\u203e\u00a4\u20ac\uffe5\uffe3\u2985\u2986")


def pages(*patterns):
    names = sorted(itertools.chain(*(glob.glob(pattern) for pattern in patterns)))
    return "".join(gzip.open(name).read().decode("utf-8", "ignore") for name in names)


def encodable(text, *codecs):
    """The characters of text that all codecs have and that nobody maps differently."""
    def kept(char):
        try:
            return char not in DISPUTED and all(char.encode(codec) for codec in codecs)
        except UnicodeEncodeError:
            return False
    keep = {char for char in set(text) if (char.isascii() and char >= " ") or char == "\n" or
            (not char.isascii() and kept(char))}
    return "".join(char for char in text if char in keep)


def plain(text):
    return text.replace("\\", "/").replace("~", "-")


def lines(text):
    return "".join(text[at:at + LINE] + "\n" for at in range(0, len(text), LINE))


def dense(prose):
    return lines(re.sub(r"[\x00-\x7f]+", "", prose))


def words():
    found = []
    for name in sorted(glob.glob("/usr/share/mecab/dic/ipadic/*.csv")):
        with open(name, encoding="euc_jp", errors="ignore") as entries:
            found += [entry.split(",")[0] for entry in entries]
    found = sorted(word for word in found if word and not word.isascii())
    random.Random(1).shuffle(found)
    return "".join(found)


def with_jis2004(text):
    pool = "".join(map(chr, itertools.chain(range(0xA0, 0x3000), range(0x3400, 0xA000),
                                            range(0x20000, 0x2A6E0))))
    pool = sorted(set(encodable(pool, "shift_jis_2004", "euc_jisx0213", "shift_jisx0213")) -
                  set(encodable(pool, "shift_jis")) - set(map(chr, range(0x300, 0x370))))
    pick = random.Random(2)
    return "".join(pick.choice(pool) if at % 20 == 19 and char != "\n" else char
                   for at, char in enumerate(text))


def repeated(name, text):
    if not text:
        sys.exit(f"no documents found for {name}: see the packages that scripts/bench installs")
    size = len(text.encode())
    return text * (SIZE // size + 1) if size < SIZE else text[:SIZE]


def main(directory):
    folder = pathlib.Path(directory)
    folder.mkdir(parents=True, exist_ok=True)
    man = "/usr/share/man/"
    japanese = encodable(plain(pages(man + "ja/man*/*.gz")), "shift_jis", "euc_jp")
    simplified = encodable(pages(man + "zh_CN/man*/*.gz"), "gb2312", "gbk")
    traditional = encodable(pages(man + "zh_TW/man*/*.gz"), "big5", "cp950")
    korean = encodable(pages(man + "ko/man*/*.gz", "/usr/share/doc/debian/FAQ/*.ko.txt.gz"),
                       "euc_kr", "iso2022_kr")
    japanese_words = lines(encodable(words(), "shift_jis", "euc_jp"))
    french = encodable(pages(man + "fr/man*/*.gz"), "cp1252")
    russian = encodable(pages(man + "ru/man*/*.gz"), "koi8-r")
    texts = {
        "ja-dense": japanese_words,
        "ja-prose": japanese,
        "ja-jis2004": with_jis2004(japanese_words),
        "zh_cn-dense": dense(simplified),
        "zh_cn-prose": simplified,
        "zh_tw-dense": dense(traditional),
        "zh_tw-prose": traditional,
        "ko-dense": dense(korean),
        "ko-prose": korean,
        "fr-dense": dense(french),
        "fr-prose": french,
        "ru-dense": dense(russian),
        "ru-prose": russian,
        "ascii": encodable(plain(pages(man + "man[1-8]/*.gz")), "ascii"),
    }
    for name, text in texts.items():
        (folder / f"{name}.txt").write_text(repeated(name, text), encoding="utf-8")


main(sys.argv[1])
