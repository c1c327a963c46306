"""The Japanese code pages of mainframes: single bytes of EBCDIC, and double bytes between shift out and in. And what
ISO-2022-JP-3 tells apart of JIS X 0213."""

import subprocess

from derivation.cross_check import UnexpectedDifference, cross_check, expect_count
from derivation.further_japanese import as_character
from derivation.sources import Iconv, SourceMissing, single_scalar
from derivation.table_text import Grid, Table

DOUBLE_GRID = "40-FE 40-FE"
SHIFT_OUT, SHIFT_IN = b"\x0e", b"\x0f"
SUBSTITUTE = 0x1A
EURO = 0xE1


def ask_icu(charset, request):
    try:
        return subprocess.run(["uconv", "-f", charset, "-t", "UTF-32BE", "--callback", "substitute"],
                              input=request, stdout=subprocess.PIPE, check=True).stdout.decode("utf-32-be")
    except (OSError, subprocess.CalledProcessError) as error:
        raise SourceMissing("ICU " + charset) from error


class IcuSingle:
    """A converter of ICU, asked once for all single bytes. What it lacks it tells by U+001A, which 3F is."""

    def __init__(self, charset, codes):
        self.name = "ICU " + charset
        self._scalars = {code: ord(answer) for code, answer in zip(codes, ask_icu(charset, bytes(codes)), strict=True)}

    def __call__(self, code_bytes):
        scalar = self._scalars[code_bytes[0]]
        return None if scalar == SUBSTITUTE and code_bytes != b"\x3f" else scalar


class IcuDouble:
    """A converter of ICU, asked once for all double-byte codes. What it lacks it tells by U+001A or U+FFFD."""

    def __init__(self, charset, codes):
        self.name = "ICU " + charset
        separator = b"\xf1"  # the digit 1, which no code here stands for
        request = b"".join(SHIFT_OUT + code.to_bytes(2, "big") + SHIFT_IN + separator for code in codes)
        answers = ask_icu(charset, request).split("1")[:-1]
        self._texts = {shifted(code): None if set(answer) & {"\x1a", "\ufffd"} else answer
                       for code, answer in zip(codes, answers, strict=True)}

    def text(self, code_bytes):
        return self._texts[code_bytes]

    def __call__(self, code_bytes):
        return single_scalar(self.text(code_bytes))


def icu_name(charset):
    return charset.lower().replace("ibm", "ibm-")


def shifted(code):
    return SHIFT_OUT + code.to_bytes(2, "big") + SHIFT_IN


def one_byte(code):
    return bytes([code])


def single(charset, newer):
    """The single bytes of two code pages; the newer one has the euro sign too, and says U+001A for what is free."""
    codes = [code for code in range(0x100) if one_byte(code) not in (SHIFT_OUT, SHIFT_IN)]
    source = Iconv(charset)
    mapping = {code: source(one_byte(code)) for code in codes if source(one_byte(code)) is not None}
    expect_count(charset, mapping, 226)
    free = {code: SUBSTITUTE for code in codes if code not in mapping} | {EURO: 0x20AC}
    cross_check(charset, mapping, codes, one_byte, Iconv(newer), free)
    for peer in (charset, newer):
        euro = {EURO: 0x20AC} if peer == newer else {}
        cross_check(charset, mapping, codes, one_byte, IcuSingle(icu_name(peer), codes), euro)
    return Table(f"{charset.lower()}-single", f"The single bytes of {charset}", "00-0D,10-FF", mapping, origin=f"""
iconv {charset}, which has the same as {newer} but for the euro sign there; checked against
ICU's {icu_name(charset)} and {icu_name(newer)}. The codes that {newer} reads as U+001A are free.""")


def double(charset, same):
    codes = list(Grid(DOUBLE_GRID).codes())
    source = Iconv(charset)
    texts = {code: source.text(shifted(code)) for code in codes}
    texts = {code: text for code, text in texts.items() if text}
    for second in (Iconv(same), IcuDouble(icu_name(charset), codes), IcuDouble(icu_name(same), codes)):
        for code in codes:
            if second.text(shifted(code)) != texts.get(code):
                raise UnexpectedDifference(f"{charset} {code:X}: {second.name} differs")
    return texts


def pairs_of_python():
    for code in Grid("21-7E 21-7E").codes():
        text = (b"\x1b$(Q" + code.to_bytes(2, "big")).decode("iso2022_jp_2004", "ignore")
        if len(text) == 2 and text.isprintable():
            yield code, text


def tables():
    yield single("IBM930", "IBM1390")
    yield single("IBM939", "IBM1399")
    older, newer = double("IBM930", "IBM939"), double("IBM1390", "IBM1399")
    if any(newer[code] != text for code, text in older.items()):
        raise UnexpectedDifference("IBM1390 is not IBM930 and more")
    added = {code: text for code, text in newer.items() if code not in older}
    expect_count("ibm930-double", older, 11635)
    expect_count("ibm1390-double", added, 10467)
    expect_count("letters and marks", [text for text in added.values() if len(text) == 2], 25)
    origin = "iconv {0} and {1}, checked against ICU's of those names: all four have the same double bytes."
    yield Table("ibm930-double", "The double bytes of IBM930 and IBM939", DOUBLE_GRID,
                {code: ord(text) for code, text in older.items()}, origin=origin.format("IBM930", "IBM939"))
    yield Table("ibm1390-double", "The double bytes that IBM1390 and IBM1399 have besides", DOUBLE_GRID,
                {code: as_character(text) for code, text in added.items()},
                origin=origin.format("IBM1390", "IBM1399"))
    yield Table("ibm1390-euro", "The euro sign as a single byte of IBM1390 and IBM1399", "E1", {EURO: 0x20AC},
                origin="iconv IBM1390 and IBM1399, checked against ICU's.")
    ten = {0x2E21: 0x4FF1, 0x2F7E: 0x525D, 0x4F54: 0x20B9F, 0x4F7E: 0x541E, 0x7427: 0x5653, 0x7E7A: 0x59F8,
           0x7E7B: 0x5C5B, 0x7E7C: 0x5E77, 0x7E7D: 0x7626, 0x7E7E: 0x7E6B}
    source = Iconv("ISO-2022-JP-3")
    if {code: source(b"\x1b$(Q" + code.to_bytes(2, "big")) for code in ten} != ten:
        raise UnexpectedDifference("the ten characters of 2004")
    yield Table("jis_x0213-2004", "The ten characters that JIS X 0213:2004 added to plane 1", "21-7E 21-7E", ten,
                origin="iconv ISO-2022-JP-3, which writes them alone under ESC $ ( Q.")
    pairs = {code: source.text(b"\x1b$(Q" + code.to_bytes(2, "big")) for code in Grid("21-7E 21-7E").codes()}
    pairs = {code: as_character(text) for code, text in pairs.items() if text and len(text) == 2}
    expect_count("jis_x0213-pairs", pairs, 25)
    if pairs != {code: as_character(text) for code, text in pairs_of_python()}:
        raise UnexpectedDifference("the letters and marks of JIS X 0213")
    yield Table("jis_x0213-pairs", "The letters with marks of JIS X 0213, plane 1", "21-7E 21-7E", pairs,
                origin="iconv ISO-2022-JP-3; checked against Python iso2022_jp_2004.")
