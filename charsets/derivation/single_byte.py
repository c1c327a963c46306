"""The charsets of single bytes, each of which is a source file by itself: further/*.tsv."""

from derivation.cross_check import cross_check, expect_count
from derivation.sources import Charmap, Icu, Iconv, Perl, Python
from derivation.table_text import Table

BYTES = [bytes([code]) for code in range(0x100)]

# What a second source says otherwise, and what is right. Perl's tables of the Macintosh leave out a control code.
NO_DELETE = {0x7F: None}
# TIS 620 has nothing there; Python fills in control codes.
PYTHON_TIS_620 = {code: code for code in range(0x80, 0xA0)}
# KOI8-RU is KOI8-U with a Belarusian letter, and with quotation marks and the like in place of formulas.
KOI8_U = {0x93: 0x2320, 0x96: 0x221A, 0x97: 0x2248, 0x98: 0x2264, 0x99: 0x2265, 0x9B: 0x2321, 0x9C: 0xB0, 0x9D: 0xB2,
          0x9F: 0xF7, 0xAE: 0x255D, 0xBE: 0x256C}
# ARMSCII-8 has five signs of ASCII a second time; ASCII's own codes are written.
ARMSCII_REPEATED = (0xA4, 0xA5, 0xA9, 0xAB, 0xAC)


def iso_8859(part, count, language):
    return (f"ISO-8859-{part}", language, count, Iconv(f"ISO-8859-{part}"),
            [(Python(f"iso8859_{part}"), {}), (Perl(f"iso-8859-{part}", BYTES), {})])


def code_page(name, number, language, count=256, perl=True):
    others = [(Python(f"cp{number}"), {})]
    if perl:
        others.append((Perl(f"cp{number}", BYTES), {}))
    return (name, language, count, Iconv(f"CP{number}"), others)


def macintosh(name, language, python, icu, perl):
    return (name, language, 256, Python(python), [(Icu(icu), {}), (Perl(perl, BYTES), NO_DELETE)])


def ebcdic(name, language, number):
    return (name, language, 256, Iconv(name), [(Python(f"cp{number}"), {}), (Icu("ibm-" + number.lstrip("0")), {})])


def belarusian_koi8_u():
    """What browsers mean by KOI8-U: with the letter that KOI8-RU has in two places."""
    ukrainian, belarusian = Iconv("KOI8-U"), Iconv("KOI8-RU")

    def scalar(code_bytes):
        return (belarusian if code_bytes[0] in (0xAE, 0xBE) else ukrainian)(code_bytes)
    scalar.name = "iconv KOI8-U, with AE and BE of iconv KOI8-RU"
    return scalar


def directives(name, language):
    """What a file says of its charset. EBCDIC has the line feed at 25, as in the tables, or at 15, as on z/OS."""
    if not name.startswith("IBM"):
        return [f"%charset {name} {language}"]
    return [f"%charset {name} {language}", f"%exchange 15 25 {name}-swaplfnl"]


def charsets():
    for part, count, language in ((2, 256, "cs"), (3, 249, "mt"), (4, 256, "lv"), (5, 256, "ru"), (6, 211, "ar"),
                                  (7, 253, "el"), (8, 220, "he"), (9, 256, "tr"), (10, 256, "is"), (11, 248, "th"),
                                  (13, 256, "lt"), (14, 256, "ga"), (15, 256, "fr"), (16, 256, "ro")):
        yield iso_8859(part, count, language)
    for number, count, language in ((1250, 251, "cs"), (1251, 255, "ru"), (1252, 251, "en"), (1253, 239, "el"),
                                    (1254, 249, "tr"), (1255, 233, "he"), (1256, 256, "ar"), (1257, 244, "lt"),
                                    (1258, 247, "vi"), (874, 225, "th")):
        yield code_page(f"windows-{number}", number, language, count)
    for number, language in ((437, "en"), (737, "el"), (775, "lt"), (850, "en"), (852, "cs"), (855, "ru"), (858, "en"),
                             (860, "pt"), (861, "is"), (862, "he"), (863, "fr"), (865, "da"), (866, "ru")):
        yield code_page(f"cp{number}", number, language)
    yield code_page("cp857", 857, "tr", 253)
    yield code_page("cp864", 864, "ar", 250)
    yield code_page("cp869", 869, "el", 247)
    yield code_page("cp1125", 1125, "uk", perl=False)
    yield ("tis-620", "th", 215, Iconv("TIS-620"), [(Python("tis_620"), PYTHON_TIS_620)])
    yield ("KOI8-R", "ru", 256, Iconv("KOI8-R"), [(Python("koi8_r"), {}), (Perl("koi8-r", BYTES), {})])
    yield ("KOI8-U", "uk", 256, Iconv("KOI8-U"), [(Python("koi8_u"), {}), (Perl("koi8-u", BYTES), {})])
    yield ("KOI8-RU", "be", 256, Iconv("KOI8-RU"), [(Icu("koi8-u"), KOI8_U)])
    yield ("KOI8-U-web", "uk", 256, belarusian_koi8_u(), [(Iconv("KOI8-U"), {0xAE: 0x255D, 0xBE: 0x256C})])
    yield macintosh("macintosh", "en", "mac_roman", "macintosh", "MacRoman")
    yield macintosh("mac-cyrillic", "ru", "mac_cyrillic", "macos-7_3-10.2", "MacCyrillic")
    yield macintosh("mac-greek", "el", "mac_greek", "macos-6_2-10.4", "MacGreek")
    yield macintosh("mac-turkish", "tr", "mac_turkish", "macos-35-10.2", "MacTurkish")
    yield macintosh("mac-centraleurope", "cs", "mac_latin2", "macos-29-10.2", "MacCentralEurRoman")
    yield ebcdic("IBM037", "en", "037")
    yield ebcdic("IBM500", "en", "500")
    yield ebcdic("IBM1140", "en", "1140")
    yield ("IBM1047", "en", 256, Iconv("IBM1047"), [(Icu("ibm-1047"), {})])
    yield ("VISCII", "vi", 256, Iconv("VISCII"), [(Perl("viscii", BYTES), {})])
    # Of these nobody else on this machine knows anything.
    for name, language, count in (("ARMSCII-8", "hy", 254), ("Georgian-Academy", "ka", 256),
                                  ("Georgian-PS", "ka", 256)):
        yield (name, language, count, Iconv(name.upper()), [(Charmap(name.upper()), {})])


def tables():
    codes = range(0x100)
    for name, language, count, source, others in charsets():
        mapping = {code: source(bytes([code])) for code in codes}
        mapping = {code: scalar for code, scalar in mapping.items() if scalar is not None}
        expect_count(name, mapping, count)
        for other, differences in others:
            cross_check(name, mapping, codes, lambda code: bytes([code]), other, differences)
        decode_only = {code: mapping.pop(code) for code in (ARMSCII_REPEATED if name == "ARMSCII-8" else ())}
        expect_count(name + " characters", set(mapping.values()), len(mapping))
        checked = " and ".join(other.name + (f" but for {len(differences)} codes" if differences else "")
                               for other, differences in others)
        yield Table(name.lower(), name, "00-FF", mapping, decode_only=decode_only, charset=directives(name, language),
                    linear=lambda scalar: scalar < 0xA0,
                    origin=f"{source.name}; checked against {checked}.")
