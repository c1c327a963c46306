"""Chinese and Korean charsets beside the code pages: the standards themselves."""

from derivation.chinese_korean import two_bytes
from derivation.cross_check import cross_check, expect_count
from derivation.further_japanese import read_all
from derivation.japanese import extra
from derivation.sources import Iconv, Perl, Python
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


def tables():
    yield from gb2312()
    yield from ks_x_1001()
