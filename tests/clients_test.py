"""All clients of the strict interface say the same of damaged texts of every charset: clients_test.py TOOL CLIENTS.

Text, kinds, offsets, bytes, lines and columns of the faults, in every cut. Each client answers with one line for a
text, and those of the tool are what the others are held against. Python's are the C interface's, called by ctypes,
but for the lines and columns, which are counted here.
"""

import codecs
import itertools
import json
import os
import random
import re
import subprocess
import sys
import tempfile

__import__("pvzan")  # which registers its codecs

TOOL, CLIENTS = sys.argv[1:]
SAMPLE = "日本語 abc\r\n\\~ｱｲ〜～−－ か\u309aé𠂉㐂\rx髙①中文简体 한국어 Жя Äß ñ λμ العربية שלום ไทย\nはu\u2028\ue000終"
PAIR = "(?<=[か-コセツトㇷ])゚|(?<=[æɔʌəɚ])[\u0300\u0301]|(?<=˩)˥|(?<=˥)˩|[\uf860-\uf87f]"  # one code with what is before
UNCOUNTED = re.compile("utf|ucs|hz$", re.I)  # Python's own codecs; a line that HZ goes on with is not seen in its text
KINDS = {"come back": "not_round_trip", "no code": "unrepresentable", "the text": "incomplete", ":": "invalid"}
LONG = {"UTF-8", "UTF-16", "Shift_JIS", "EUC-JP", "ISO-2022-JP", "GB18030", "HZ"}
MARK = "\U0010f000"


def run(*command, **options):
    return subprocess.run(command, check=False, capture_output=True, **options)


def damaged(charset):
    """Short texts, and of some charsets a long one, which the tool reads in pieces and converts in parts."""
    chance = random.Random(charset)
    sound = run(TOOL, "-q", "-e", "skip", "-t", charset, input=SAMPLE.encode()).stdout
    texts = []
    for _ in range(20):
        text = bytearray(sound[: chance.randrange(32, 80, 4)])
        for _ in range(chance.randrange(5)):
            byte = chance.choice([*b"\x1b\x81\x8f\xff\x80\n\r$\xe3", chance.randrange(256)])
            text[chance.randrange(len(text))] = byte
        texts.append(bytes(text))
    if charset in LONG:
        texts.append(b"".join(sound * chance.randrange(40000 // len(sound)) + chance.choice(texts) for _ in range(70)))
    return texts


def line_of(result, faults):
    return " ".join([result.hex(), *(f"{at}+{seen}@{line}:{column}:{kind}" for at, seen, line, column, kind in faults)])


def by_tool(texts, source, target):
    with tempfile.TemporaryDirectory() as place:
        names = [f"{place}/{i:02}" for i in range(len(texts))]
        for name, text in zip(names, texts):
            with open(name, "wb") as file:
                file.write(text)
        os.mkdir(f"{place}/out")
        said = run(TOOL, "-j2", "--json", "-e", "hex", "-f", source, "-t", target, "-o", f"{place}/out", *names).stderr
        messages = [json.loads(line) for line in said.splitlines()]
        for name in names:
            told = (m for m in messages if m["file"] == name and m["kind"] != "summary")
            with open(f"{place}/out/{name[-2:]}", "rb") as file:
                yield line_of(file.read(), [(m["byte"], m["bytes"], m["line"], m["column"], m["kind"]) for m in told])


def by_python(data, charset, encodes):
    """A fault that is decoded is one character of the text at first, so that it can be counted."""
    seen = []

    def handler(error):
        blamed = error.object[error.start : error.end]
        blamed = blamed.encode() if encodes else blamed
        seen.append((error.start, blamed.hex(), error.reason))
        return f"<{blamed.hex()}>" if encodes else MARK, error.end

    codecs.register_error("pvzan-test", handler)
    if encodes:
        text = data.decode()
        result = text.encode(f"pvzan:{charset}", "pvzan-test")
        before = [text[begin:end] for begin, end in itertools.pairwise([0, *(at for at, _, _ in seen)])]
    else:
        text = data.decode(f"pvzan:{charset}", "pvzan-test")
        pair = "^$" if "\u309a".encode(f"pvzan:{charset}", "ignore") else PAIR  # a code of its own
        before = [MARK * (i > 0) + re.sub(pair, "", piece) for i, piece in enumerate(text.split(MARK))]
        shown = [""] + [f"<{hex}>" * (hex != "") for _, hex, _ in seen]
        result = "".join(map("".join, zip(shown, text.split(MARK)))).encode()
    faults, line, column = [], 1, 1
    for (at, hex, why), passed in zip(seen, before):
        lines = re.split("\r\n|\r|\n", passed)
        line, column = line + len(lines) - 1, len(lines[-1]) + (column if len(lines) == 1 else 1)
        kind = next(kind for words, kind in KINDS.items() if words in why)
        faults.append((len(text[:at].encode()) if encodes else at, hex, line, column, kind))
    for cut in range(1, 0 if encodes or len(data) > 200 else len(data), 7):
        again = "".join(codecs.iterdecode([data[:cut], data[cut:]], f"pvzan:{charset}", "pvzan-test"))
        assert again == text, f"{charset} {data.hex()} cut at {cut}: {again!r}"
    return line_of(result, faults)


def expect_same(client, said, tool, about):
    different = [pair for pair in itertools.zip_longest(said.split(" "), tool.split(" ")) if len(set(pair)) > 1]
    assert not different, f"{client}: {different[0]} {about}"[:2000]


def main():
    charsets = [line.split()[0] for line in run(TOOL, "-l", text=True).stdout.splitlines()]
    assert len(charsets) >= 100
    for charset, encodes in itertools.product(charsets, (False, True)):
        ways = ("utf-8", charset) if encodes else (charset, "utf-8")
        texts = [SAMPLE[i:].encode() for i in range(0, len(SAMPLE), 9)] if encodes else damaged(charset)
        headers = run(CLIENTS, *ways, input="".join(text.hex() + "\n" for text in texts), text=True).stdout.splitlines()
        assert len(headers) == len(texts), ways
        for text, header, tool in zip(texts, headers, by_tool(texts, *ways)):
            expect_same("header", header, re.sub("not_round_trip|unrepresentable", "missing", tool), (ways, text))
            if not UNCOUNTED.match(charset):
                expect_same("python", by_python(text, charset, encodes), tool, (ways, text))


main()
