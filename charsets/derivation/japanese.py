"""The Japanese sets and their extra encode tables."""

import unicodedata

from derivation.cross_check import UnexpectedDifference, cross_check, expect_count
from derivation.sources import Iconv, Perl, Python
from derivation.table_text import Grid, Table, any_scalar

JIS_GRID = "21-7E 21-7E"
PLANE_2 = 0x10000
MICROSOFT_GRID = Grid("81-9F,E0-FC 40-7E,80-FC")


def two_bytes(code):
    return code.to_bytes(2, "big")


def shift_jis_to_row_cell(code):
    """Row and cell of a Shift_JIS code, each plus 20; the rows behind 7E are those of the extended area."""
    lead, trail = code >> 8, code & 0xFF
    row = 2 * (lead - (0x81 if lead < 0xA0 else 0xC1)) + 0x21
    trail -= 0x40 + (trail > 0x7F)
    return (row + trail // 94) << 8 | (trail % 94 + 0x21)


def euc(code):
    """A row and cell, or 10000 more for the second code space, as EUC bytes."""
    return (b"\x8f" if code & PLANE_2 else b"") + two_bytes((code & 0xFFFF) | 0x8080)


# --- The one-byte sets -----------------------------------------------------------------------------------------------

def one_byte_tables():
    ascii_codes = {code: code for code in range(0x80)}
    yield Table("iso-646irv", "ISO 646 IRV (ASCII), control codes included", "00-7F", ascii_codes,
                linear=any_scalar, origin="Identity.")
    yield Table("jis_x0201latin", "JIS X 0201, Latin half, with the characters of ASCII at 5C and 7E", "00-7F",
                ascii_codes, linear=any_scalar, origin="""
Identity: 5C and 7E are the backslash and the tilde (README.md says why); the table `latin` adds U+00A5 and
U+203E for encoding.""")
    yield Table("iso-8859-1", "ISO 8859-1 with the control codes of both halves", "00-FF",
                {code: code for code in range(0x100)}, linear=any_scalar, origin="Identity.")

    codes = list(range(0xA1, 0xE0))
    source = Iconv("SJIS")
    kana = {code: source(bytes([code])) for code in codes}
    for second in (Perl("cp932", [bytes([code]) for code in codes]), Python("shift_jis")):
        cross_check("jis_x0201kana", kana, codes, lambda code: bytes([code]), second)
    yield Table("jis_x0201kana", "JIS X 0201, katakana half", "A1-DF", kana,
                origin="iconv SJIS; checked against Perl cp932 and Python shift_jis.")


# --- Code page 932: JIS X 0208, the NEC and IBM rows and the user-defined area ----------------------------------------

# The six codes that have one reading in the JIS standard and another on Windows; 213D (U+2015) is the same in both.
JIS_READINGS = {0x2141: 0x301C, 0x2142: 0x2016, 0x215D: 0x2212, 0x2171: 0x00A2, 0x2172: 0x00A3, 0x224C: 0x00AC}


def microsoft_tables():
    codes = list(MICROSOFT_GRID.codes())
    shift_jis, windows = Iconv("SJIS"), Iconv("CP932")
    cp932 = {code: windows(two_bytes(code)) for code in codes}
    cp932 = {code: scalar for code, scalar in cp932.items() if scalar is not None}
    perl = Perl("cp932", [two_bytes(code) for code in codes])
    cross_check("cp932", cp932, codes, two_bytes, perl)
    cross_check("cp932", cp932, codes, two_bytes, Python("cp932"))

    jis, nec, ibm, user = {}, {}, {}, {}
    jis_scalars = {}
    for code, scalar in cp932.items():
        row_cell = shift_jis_to_row_cell(code)
        jis_scalar = shift_jis(two_bytes(code))
        if jis_scalar is not None:
            jis[row_cell], jis_scalars[row_cell] = scalar, jis_scalar
        else:
            (nec if row_cell < 0x7F21 else ibm if row_cell >= 0x9321 else user)[row_cell] = scalar
    for name, mapping, count in (("jis_x0208-1990", jis, 6879), ("nec_extset", nec, 457),
                                 ("ibm_extset", ibm, 388), ("windows31j-usr", user, 1880)):
        expect_count(name, mapping, count)
    if {code: jis_scalars[code] for code in jis if jis[code] != jis_scalars[code]} != \
            JIS_READINGS:
        raise UnexpectedDifference("the readings of JIS X 0208 are not the expected six")
    cross_check("jis_x0208-1990", jis, Grid(JIS_GRID).codes(), euc, Iconv("EUC-JP"), JIS_READINGS)

    yield Table("jis_x0208-1990", "JIS X 0208-1990", JIS_GRID, jis, origin="""
The two-byte codes of iconv SJIS, as row and cell, with the scalars that iconv CP932 gives them; checked against Perl
cp932, Python cp932 and (six readings apart) iconv EUC-JP. The table `jis` adds the JIS readings for encoding.""")
    checked = "checked against Perl cp932 and Python cp932."
    yield Table("nec_extset", "NEC row 13, and the IBM characters as NEC placed them (rows 89 to 92)", JIS_GRID, nec,
                origin=f"The two-byte codes of iconv CP932 below 7F21 that JIS X 0208 lacks, as row and cell;\n"
                       f"{checked}")
    yield Table("ibm_extset", "IBM extended characters (FA40-FC4B, as row and cell 9321-972C)", "93-97 21-7E", ibm,
                origin=f"The two-byte codes of iconv CP932 from 9321 on, as row and cell; {checked}")
    yield Table("windows31j-usr", "Windows user-defined characters (F040-F9FC, as row and cell 7F21-927E)",
                "7F-92 21-7E", user,
                origin=f"The two-byte codes of iconv CP932 from 7F21 to 927E, as row and cell;\n{checked}")
    yield jis_c6226_1978(jis)
    yield from oasys_tables(jis)


# --- JIS C 6226-1978 --------------------------------------------------------------------------------------------------

EXCHANGED_IN_1983 = """
3033/724D 3229/7274 3342/695A 3349/5978 3376/635E 3443/5E75 3452/6B5D 375B/7074 395C/6268 3C49/6922 3F59/7057
4128/6C4D 445B/5464 4557/626A 456E/5B6D 4573/5E39 4676/6D6E 4768/6A24 4930/5B58 4B79/5056 4C79/692E 4F36/6446
"""
OLDER_FORM = {0x3646: 0x582F, 0x4B6A: 0x69C7, 0x4D5A: 0x9059, 0x6076: 0x7464}
# Where 1983 moved the older forms to; decoded here as well, because text under the 1978 escape often is later text.
MOVED_TO = (0x7421, 0x7422, 0x7423, 0x7424)


def jis_c6226_1978(jis):
    mapping = dict(jis)
    for pair in EXCHANGED_IN_1983.split():
        left, right = (int(code, 16) for code in pair.split("/"))
        mapping[left], mapping[right] = jis[right], jis[left]
    mapping |= OLDER_FORM
    decode_only = {code: mapping.pop(code) for code in MOVED_TO}
    if sorted(decode_only.values()) != sorted(OLDER_FORM.values()):
        raise UnexpectedDifference("7421-7424 are not the four older forms")
    changed = [code for code in mapping if mapping[code] != jis[code]]
    expect_count("changes of 1983", changed, 48)
    expect_count("jis_c6226-1978", set(mapping.values()), 6875)
    return Table("jis_c6226-1978", "JIS C 6226-1978, with the codes that later editions added", JIS_GRID, mapping,
                 decode_only=decode_only, origin="""
jis_x0208-1990 with the 22 pairs of kanji exchanged back that JIS X 0208-1983 exchanged, and the older forms of four
kanji at their places of 1978. The 77 codes that later editions added decode as in 1990; 7421-7424 then repeat the
four older forms.""")


# --- JIS X 0212 and JIS X 0213 ----------------------------------------------------------------------------------------

# Behind 8F both stand in different rows. Perl has JIS X 0213 there as well, Python's codec of 2004 has JIS X 0212.
JIS_X0212_ROWS = "22,26,27,29-2B,30-6D"
PLANE_2_ROWS = "21,23-25,28,2C-2F,6E-7E"


def jis_x0212():
    codes = list(Grid(f"01 {JIS_X0212_ROWS} 21-7E").codes())
    source = Iconv("EUC-JP")
    mapping = {code: source(euc(code)) for code in Grid("01 " + JIS_GRID).codes()}
    mapping = {code: scalar for code, scalar in mapping.items() if scalar is not None}
    ascii_tilde = {0x12237: 0x7E}  # would turn text into ASCII; U+FF5E is the wider reading
    cross_check("jis_x0212-1990", mapping, codes, euc, Perl("euc-jp", [euc(code) for code in codes]), ascii_tilde)
    cross_check("jis_x0212-1990", mapping, codes, euc, Python("euc_jp"), ascii_tilde)
    expect_count("jis_x0212-1990", mapping, 6067)
    return Table("jis_x0212-1990", "JIS X 0212-1990", JIS_GRID,
                 {code - PLANE_2: scalar for code, scalar in mapping.items()}, origin="""
The codes of iconv EUC-JP behind 8F; checked against Perl euc-jp and Python euc_jp, which both have the tilde of ASCII
at 2237. The table `fullbar` adds U+FFE4 for encoding.""")


# What encoders also take: the Windows readings, and the two brackets by their other code points.
JIS_X0213_OTHER_READINGS = {0x213D: 0x2015, 0x2171: 0xFFE0, 0x2172: 0xFFE1, 0x224C: 0xFFE2, 0x2256: 0x2985,
                            0x2257: 0x2986, 0x2925: 0xFFE4}


def jis_x0213():
    plane_1 = list(Grid("00 " + JIS_GRID).codes())
    plane_2 = list(Grid(f"01 {PLANE_2_ROWS} 21-7E").codes())
    source = Iconv("EUC-JISX0213")
    texts = {code: source.text(euc(code)) for code in Grid("00-01 " + JIS_GRID).codes()}
    expect_count("jis_x0213 base and mark", [text for text in texts.values() if text and len(text) == 2], 25)
    mapping = {code: ord(text) for code, text in texts.items() if text is not None and len(text) == 1}
    expect_count("jis_x0213", mapping, 11208)
    expect_count("jis_x0213 plane 1", [code for code in mapping if code < PLANE_2], 8772)
    expect_count("jis_x0213 beyond the BMP", [scalar for scalar in mapping.values() if scalar > 0xFFFF], 303)
    cross_check("jis_x0213", mapping, plane_1 + plane_2, euc, Python("euc_jis_2004"),
                {code: JIS_X0213_OTHER_READINGS[code] for code in (0x213D, 0x2256, 0x2257)})
    # Two forms of one kanji; the 2004 edition and all converters of it but Perl's have U+9B1C.
    cross_check("jis_x0213", mapping, plane_2, euc, Perl("euc-jp", [euc(code) for code in plane_2]), {0x17D3B: 0x9B1D})
    return Table("jis_x0213", "JIS X 0213:2004, plane 1 as row and cell, plane 2 with 10000 added", "00-01 " + JIS_GRID,
                 mapping, origin="""
iconv EUC-JISX0213 without its 25 results of base and mark, which the library composes itself; checked against Python
euc_jis_2004, which has three other readings, and for plane 2 against Perl euc-jp, which
has U+9B1D at 17D3B. The table `win` adds Python's three and the Windows readings for encoding.""")


# --- Extra encode tables ----------------------------------------------------------------------------------------------

def extra(name, title, grid, pairs):
    return Table(name, title, grid, pairs, extra=True, origin="Decided here (README.md).")


def full_width_katakana():
    """Half-width katakana and the full-width character each stands for, by compatibility decomposition."""
    source = Iconv("EUC-JP")
    codes = {source(euc(code)): code for code in Grid(JIS_GRID).codes() if source(euc(code))}
    pairs = {}
    for scalar in range(0xFF61, 0xFFA0):
        wide = unicodedata.normalize("NFKC", chr(scalar))
        # The two sound marks decompose to the combining marks; the set has the spacing ones.
        wide = {"\u3099": "\u309B", "\u309A": "\u309C"}.get(wide, wide)
        pairs[codes[ord(wide)]] = scalar
    expect_count("kana", pairs, 63)
    return pairs


def extra_tables():
    yield extra("yen", "Extra encode table for ASCII: the yen sign and the overline", "5C,7E",
                {0x5C: 0xA5, 0x7E: 0x203E})
    yield extra("latin", "Extra encode table for JIS X 0201, Latin half: the yen sign and the overline", "5C,7E",
                {0x5C: 0xA5, 0x7E: 0x203E})
    yield extra("jis", "Extra encode table for JIS X 0208: the readings of the JIS standard", JIS_GRID,
                JIS_READINGS | {0x213D: 0x2014})
    row_13 = {0x2D35 + number: 0x2160 + number for number in range(10)}
    yield extra("necrow13", "Extra encode table for Windows-31J: what IBM repeats goes to NEC row 13", JIS_GRID,
                row_13 | {0x2D62: 0x2116, 0x2D64: 0x2121, 0x2D6A: 0x3231})
    yield extra("bar", "Extra encode table for the IBM characters: the broken bar", "93-97 21-7E", {0x9336: 0xA6})
    yield extra("fullbar", "Extra encode table for JIS X 0212: the full-width broken bar", JIS_GRID, {0x2243: 0xFFE4})
    yield Table("kana", "Extra encode table for JIS X 0208: half-width katakana, written as full-width", JIS_GRID,
                full_width_katakana(), extra=True, origin="Unicode compatibility decompositions, sound marks spacing.")
    yield extra("win",
                "Extra encode table for JIS X 0213: the Windows readings, and the white parentheses of mathematics",
                JIS_GRID, JIS_X0213_OTHER_READINGS)
    yield extra("fullyen", "Extra encode table for JIS X 0213 beside ASCII: the yen sign and the overline", JIS_GRID,
                {0x216F: 0xA5, 0x2131: 0x203E})


# --- OASYS (provisional) ----------------------------------------------------------------------------------------------

def oasys_tables(jis):
    free = [code for code in Grid("21-98 21-7E").codes() if code not in jis]
    expect_count("oasys2_extset", free, 4401)
    yield Table("oasys2_extset", "OASYS extension set of the Windows form (provisional)", "21-98 21-7E",
                {code: 0x100000 + code for code in free}, origin="""
No table is public. Every cell that JIS C 6226-1978 leaves free is carried as U+100000 plus its code, without loss.""")
    cells = list(Grid(JIS_GRID).codes())
    yield Table("oasys_extset", "OASYS extension set of the online form (provisional)", "21-7E,A1-FE 21-7E",
                {code + 0x8000: 0xF0000 + code for code in cells},
                decode_only={code: 0xF0000 + code for code in cells}, origin="""
No table is public. Each cell is carried as U+F0000 plus its code, without loss. The decoder strips the top bit from
the codes that it looks up, the encoder has to find codes with that bit: hence the two halves.""")
    one_byte = {code: code for code in [*range(1, 0x80)]}
    one_byte |= {code: 0xFF61 + code - 0xA1 for code in range(0xA1, 0xE0)}
    yield extra("oasys-one-byte",
                "Extra encode table for the OASYS online form: one-byte characters, as two-byte codes",
                "00 00-FF", one_byte)
    yield extra("oasys-yen", "Extra encode table for the OASYS online form: the yen sign and the overline", "00 5C,7E",
                {0x5C: 0xA5, 0x7E: 0x203E})


def tables():
    yield from one_byte_tables()
    yield from microsoft_tables()
    yield jis_x0212()
    yield jis_x0213()
    yield from extra_tables()
