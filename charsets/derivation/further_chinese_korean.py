"""Chinese and Korean charsets beside the code pages: the standards themselves."""

from derivation.chinese_korean import four_bytes, two_bytes
from derivation.cross_check import UnexpectedDifference, cross_check, expect_count
from derivation.further_japanese import as_character, never, read_all, split_repeated
from derivation.japanese import extra
from derivation.sources import Charmap, Iconv, Perl, Python
from derivation.table_text import Grid, Table

EUC_GRID = "A1-FE A1-FE"


def euc(name, title, converter, count, differences):
    """A 94 by 94 set in EUC; differences: what Perl and Python say otherwise, by codec."""
    codes = list(Grid(EUC_GRID).codes())
    mapping = read_all(Iconv(converter), EUC_GRID, two_bytes)
    perl, python = differences
    cross_check(name, mapping, codes, two_bytes, Perl(perl, [two_bytes(code) for code in codes]), differences[perl])
    cross_check(name, mapping, codes, two_bytes, Python(python), differences[python])
    expect_count(name, mapping, count)
    return Table(name, title, EUC_GRID, mapping,
                 origin=f"iconv {converter}; checked against Perl {perl} and Python {python}.")


def gb2312():
    yield euc("gb2312", "GB 2312-80, as in EUC", "EUC-CN", 7445, {"euc-cn": {}, "gb2312": {}})
    yield extra("gb2312-similar", "Extra encode table for GB 2312: the middle dot and the em dash of code page 936",
                EUC_GRID, {0xA1A4: 0xB7, 0xA1AA: 0x2014})


def ks_x_1001():
    # A2E8 came with the edition of 2002. Python joins letters behind A4D4 and so reads none alone.
    yield euc("ks_x1001", "KS X 1001:2002, as in EUC", "EUC-KR", 8227,
              {"euc-kr": {0xA2E8: None}, "euc_kr": {0xA2E8: None, 0xA4D4: None}})


# --- GBK of the web ---------------------------------------------------------------------------------------------------

def gbk_web():
    yield Table("gbk-web", "What the web reads otherwise than GB18030", "A3 A0", {}, read_only={0xA3A0: 0x3000},
                origin="Decided here (README.md): the one code that browsers read as a space.")


# --- Johab ------------------------------------------------------------------------------------------------------------

JOHAB_GRID = "84-D3,D8-DE,E0-F9 31-7E,81-FE"
# Single letters of Hangul in the shape of syllables, which Python reads as well as those in row 4 of KS X 1001.
JOHAB_LETTERS = {0x8441: 0x3000, 0x8442: 0x3131, 0x8443: 0x3132, 0x8445: 0x3134, 0x8448: 0x3137, 0x8449: 0x3139,
                 0x8451: 0x3141, 0x8453: 0x3142, 0x8455: 0x3145, 0x8456: 0x3146, 0x8457: 0x3147, 0x8458: 0x3148,
                 0x8459: 0x314A, 0x845A: 0x314B, 0x845B: 0x314C, 0x845C: 0x314D, 0x845D: 0x314E}


def johab():
    codes = list(Grid(JOHAB_GRID).codes())
    perl = Perl("johab", [two_bytes(code) for code in codes])
    mapping = {code: perl(two_bytes(code)) for code in codes}
    mapping = {code: scalar for code, scalar in mapping.items() if scalar is not None}
    cross_check("johab", mapping, codes, two_bytes, Iconv("JOHAB"), {0xD9E8: 0x327E})
    cross_check("johab", mapping, codes, two_bytes, Python("johab"), JOHAB_LETTERS)
    expect_count("johab", mapping, 17048)
    expect_count("johab characters", set(mapping.values()), 17048)
    yield Table("johab", "Johab (KS X 1001, annex 3), two-byte codes", JOHAB_GRID, mapping, origin="""
Perl johab; checked against iconv JOHAB, which has a character of 2002 at D9E8, and Python johab, which reads 17 more
codes.""")
    yield extra("won", "Extra encode table for ASCII in Johab: the won sign", "5C", {0x5C: 0x20A9})


# --- CNS 11643 --------------------------------------------------------------------------------------------------------

PLANES = {1: 5867, 2: 7650, 3: 6394, 4: 7286, 5: 8601, 6: 6386, 7: 6537, 15: 6721}
CNS_GRID = "8E A1-A7,AF A1-FE A1-FE"


def euc_tw():
    source = Iconv("EUC-TW")
    plane_1 = read_all(source, EUC_GRID, two_bytes)
    mapping = read_all(source, CNS_GRID, four_bytes)
    for plane, count in PLANES.items():
        found = {code & 0xFFFF: scalar for code, scalar in mapping.items() if code >> 16 == 0x8EA0 | plane}
        expect_count(f"CNS 11643, plane {plane}", found, count)
        if plane == 1 and found != plane_1:
            raise UnexpectedDifference("plane 1 is another one behind 8EA1")
    charmap = Charmap("EUC-TW")
    cross_check("euc-tw", plane_1, Grid(EUC_GRID).codes(), two_bytes, charmap)
    cross_check("euc-tw-4byte", mapping, Grid(CNS_GRID).codes(), four_bytes, charmap)
    yield Table("euc-tw", "CNS 11643, plane 1, as in EUC", EUC_GRID, plane_1,
                origin="iconv EUC-TW; checked against the charmap of that name.")
    two_way, decode_only = split_repeated(mapping, never)
    expect_count("characters in two planes", decode_only, 1)
    yield Table("euc-tw-4byte", "CNS 11643 by planes, as in EUC", CNS_GRID, two_way, decode_only=decode_only,
                origin="iconv EUC-TW; checked against the charmap of that name.")


# --- Big5 with the Hong Kong supplementary character set --------------------------------------------------------------

BIG5_HIGH, BIG5_LOW = "A1-FE 40-7E,A1-FE", "87-A0 40-7E,A1-FE"
# Codes of Big5 that the C library refuses; Python has them.
REFUSED_BY_ICONV = (0xA15A, 0xA1C3, 0xA1C5, 0xA1FE, 0xA240, 0xA2CC, 0xA2CE)
# What code page 950 and browsers have at codes where HKSCS has other forms.
BIG5_OTHER_READINGS = {0xA145: 0x2027, 0xA14E: 0xFE51, 0xA1C2: 0xAF, 0xA1E3: 0xFF5E, 0xA1F2: 0x2295, 0xA1F3: 0x2299,
                       0xA241: 0x2215, 0xA242: 0xFE68, 0xA244: 0xFFE5, 0xA246: 0xFFE0, 0xA247: 0xFFE1}
# Eight lines of boxes have two codes; this is written.
BOXES_WRITTEN = (0xF9E9, 0xF9EA, 0xF9EB, 0xF9F9, 0xF9FA, 0xF9FB, 0xF9FC, 0xF9FD)
# What was in HKSCS before 2008: Python has the edition of 2004.
FIRST_OF_2008, LAST_OF_2008 = 0x877A, 0x87DF


def hkscs():
    """The mapping of Big5-HKSCS, letters with their marks included."""
    iconv, python = Iconv("BIG5-HKSCS"), Python("big5hkscs")
    codes = list(Grid("81-FE 40-7E,A1-FE").codes())
    texts = {code: iconv.text(two_bytes(code)) for code in codes}
    mapping = {code: as_character(text) for code, text in texts.items() if text is not None}
    expect_count("big5-hkscs", mapping, 18463)
    mapping |= {code: python(two_bytes(code)) for code in REFUSED_BY_ICONV}
    marked = [code for code, character in mapping.items() if isinstance(character, tuple)]
    expect_count("big5-hkscs letters with marks", marked, 4)
    newer = {code: None for code in mapping if FIRST_OF_2008 <= code <= LAST_OF_2008}
    expect_count("big5-hkscs since 2008", newer, 68)
    cross_check("big5-hkscs", mapping, codes, two_bytes, python, newer | {code: None for code in marked})
    return mapping


def big5_hkscs(mapping):
    low = {code: scalar for code, scalar in mapping.items() if code < 0xA100}
    high = {code: scalar for code, scalar in mapping.items() if code >= 0xA100}
    yield Table("big5-hkscs-low", "Big5-HKSCS below A1", BIG5_LOW, low,
                origin="iconv BIG5-HKSCS; checked against Python big5hkscs, which lacks 68 of 2008.")
    two_way, decode_only = split_repeated(
        high, lambda code, before: code in BOXES_WRITTEN or before in REFUSED_BY_ICONV)
    expect_count("big5-hkscs codes that only decode", decode_only, 12)
    yield Table("big5-hkscs", "Big5-HKSCS from A1 on", BIG5_HIGH, two_way, decode_only=decode_only, origin="""
iconv BIG5-HKSCS, and seven codes that it refuses from Python big5hkscs, which else is the same here.""")
    yield extra("big5-similar", "Extra encode table for Big5-HKSCS: the readings of code page 950", BIG5_HIGH,
                BIG5_OTHER_READINGS)


# What browsers have besides.
WEB_HIGH = """
C6CF廴 C6D3无 C6D5癶 C6D7隶 C6DE〃 C6DF仝 FA5F倩 FA66偽 FABD包 FAC5卄 FAD5卿 FB48嘅 FBB8婷 FBF3幵 FBF9廐 FC4F彘 FC6C悤
FCB9撐 FCE2晴 FCF1杞 FDB7沜 FDB8渝 FDBB港 FDF1煮 FE52猪 FE6F瑜 FEAA瓩 FEDD砉
"""
WEB_LOW = """
8E69箸 8E6F簆 8E7E糎 8EAB緒 8EB4縝 8ECD者 8ED0耨 8F57菁 8F69蒨 8F6E萏 8FCB覦 8FCC覩 8FFE起 906D都 907A銹 90DC靜
90F1響 91BF鼖 9244蔃 92AF兙 92B0兛 92B1兝 92B2兞 92C8鍮 92D1瑹 9447浧 94CA禛 95D9邗 9644靝 96ED瀞 96FC嬨 9B76爁
9B78矗 9B7B纇 9BC6駖 9BDE釔 9BEC惞 9BF6澶 9C42輶 9C53侻 9C62營 9C68鄄 9C6B鷰 9C77菏 9CBC尐 9CBD秣 9CD0婧 9D57輋
9D5A筑 9DC4拐 9EA9恢 9EEF痹 9EFD汊 9F60鬮 9F66鼗 9FCB僭 9FD8弌 A063蠏 A077拎 A0D5瑨 A0DF煢 A0E4牐
"""
WEB_BOXES_WRITTEN = (0xA27E, 0xA2A1, 0xA2A2, 0xA2A3)


def listed(text):
    return {int(word[:4], 16): ord(word[4:]) for word in text.split()}


def big5_web(mapping):
    low = {code: scalar for code, scalar in mapping.items() if code < 0xA100} | listed(WEB_LOW)
    yield Table("big5-web-low", "Big5 of the web below A1", BIG5_LOW, {}, read_only=low, origin="""
The table big5-hkscs-low, and what browsers have besides: codes that repeat characters, listed in the derivation. What
they read here they do not write so.""")
    pictures = {0xA3C0 + number: scalar for number, scalar in enumerate([*range(0x2400, 0x2420), 0x2421, 0x20AC])}
    others = BIG5_OTHER_READINGS | pictures | {code: mapping[code] for code in (0xA1FE, 0xA240, *WEB_BOXES_WRITTEN)}
    # Of a character that stands here twice the first code is written.
    first = {}
    for code, scalar in sorted((mapping | others | listed(WEB_HIGH)).items(), reverse=True):
        if code >= 0xA100:
            first[scalar] = code
    for code, scalar in listed(WEB_HIGH).items():
        if first[scalar] == code:
            others[code] = scalar
    repeating = {code: scalar for code, scalar in listed(WEB_HIGH).items() if code not in others}
    expect_count("big5-web", others | repeating, 11 + 34 + 2 + 4 + 28)
    yield Table("big5-web", "What the web reads and writes otherwise than Big5-HKSCS, from A1 on", BIG5_HIGH, others,
                read_only=repeating, origin="""
The readings of code page 950, the pictures of control codes and the euro sign, and codes that repeat characters, listed
in the derivation.""")


def tables():
    yield from gb2312()
    yield from ks_x_1001()
    yield from gbk_web()
    yield from johab()
    yield from euc_tw()
    mapping = hkscs()
    yield from big5_hkscs(mapping)
    yield from big5_web(mapping)
