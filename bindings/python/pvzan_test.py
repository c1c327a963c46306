"""pvzan.py against Python's own codecs: pvzan_test.py extension|ctypes."""

import array
import codecs
import concurrent.futures
import io
import os
import sys
import tempfile
import unittest

if sys.argv.pop(1) == "ctypes":
    sys.modules["_pvzan"] = None
else:
    __import__("_pvzan")  # which pvzan would do without

import pvzan

PEERS = {
    "shift_jis-2004": "shift_jis_2004", "euc-jis-2004": "euc_jis_2004", "iso-2022-jp-2004": "iso2022_jp_2004",
    "cp932": "cp932", "euc-jp": "euc_jp", "iso-2022-jp": "iso2022_jp", "gbk": "gbk", "big5": "cp950",
    "uhc": "cp949", "gb18030": "gb18030", "ascii": "ascii", "latin1": "latin-1",
}  # fmt: skip
# Read differently on purpose, see charsets/README.md: the wave dash and its kind, user-defined codes.
DISPUTED = set("\\~¥‾～〜∥‖－−￠￡￢¢£¬―—·￤¦⦅⦆｟｠鬜¤\x0e\x0f\x1b\x7f\x80") | {chr(c) for c in range(0xE000, 0xF900)}
GB18030_OF_2022 = set("ḿ龴龵龶龷龸龹龺龻") | {chr(c) for c in range(0xFE10, 0xFE1A)}
SCALARS = "".join(chr(c) for c in range(0x30000) if not 0xD800 <= c < 0xE000)


def comparable(name):
    """Python has an older GB18030, JIS X 0212 in EUC-JIS-2004, and one extension of Big5 of several."""
    skipped = DISPUTED | (GB18030_OF_2022 if name == "gb18030" else set())
    if name == "euc-jis-2004":
        skipped |= set(SCALARS) - set(SCALARS.encode("shift_jis_2004", "ignore").decode("shift_jis_2004"))
    known = SCALARS.encode(PEERS[name], "ignore").decode(PEERS[name])
    text = "".join(c for c in known if c not in skipped)
    if name == "big5":
        text = "".join(c for c in text if not b"\xc6\xa1" <= c.encode(PEERS[name]) <= b"\xc8\xfe")
    return text


class Codecs(unittest.TestCase):
    def test_every_character_as_python_has_it(self):
        for ours, theirs in PEERS.items():
            text = comparable(ours)
            self.assertGreater(len(text), 100)
            self.assertTrue(text.encode(theirs).decode(f"pvzan:{ours}") == text, ours)
            self.assertTrue(text.encode(f"pvzan:{ours}").decode(theirs) == text, ours)

    def test_places_and_handlers(self):
        # clients_test.py has the places where bytes are decoded.
        for name, data in {"shift_jis": b"A\x82\xa0\xff!\x82", "euc-jp": b"\xa4\xa2\xff\xa4"}.items():
            escaped = data.decode(f"pvzan:{name}", "surrogateescape")
            self.assertEqual(escaped.encode(f"pvzan:{name}", "surrogateescape"), data)
        for text, at in (("あ☃", 1), ("か\u309a", 1), ("あ\udc80", 1), ("\ud840\udc0b", 0), ("𠂉", 0)):
            with self.assertRaises(UnicodeEncodeError) as caught:
                text.encode("pvzan:shift_jis")
            self.assertEqual((caught.exception.start, caught.exception.end), (at, at + 1))
            for handler in ("ignore", "replace", "xmlcharrefreplace", "backslashreplace", "namereplace"):
                if "か" not in text:  # Python has no place inside the pair
                    self.assertEqual(text.encode("pvzan:cp932", handler), text.encode("cp932", handler))
        self.assertEqual("あ\x1b\x0e\x0f\udcff".encode("pvzan:iso-2022-jp", "replace"), b'\x1b$B$"\x1b(B????')
        self.assertEqual("あ\udcff".encode("pvzan:iso-2022-jp", "surrogateescape"), b'\x1b$B$"\x1b(B\xff')
        self.assertEqual("A\x7f".encode("pvzan:euc-jp", "replace"), b"A?")
        self.assertEqual("〜¥ｶﾞ".encode("pvzan:iso-2022-jp", "pvzan:similar"), "～￥ガ".encode("pvzan:iso-2022-jp"))
        self.assertRaises(UnicodeEncodeError, "☃".encode, "pvzan:cp932", "pvzan:similar")
        for wrong, error in ((("", 3), IndexError), (("", -3), IndexError), (("☃", 1), UnicodeEncodeError)):
            codecs.register_error("pvzan-test", lambda e, wrong=wrong: wrong)
            self.assertRaises(error, "☃".encode, "pvzan:cp932", "pvzan-test")
        self.assertEqual(b"\x80\xa1\0A".decode("pvzan:euc-jp-fix", "replace"), "\ufffdA")
        self.assertEqual(b"\x1b$B!\x1b(BA".decode("pvzan:iso-2022-jp", "replace"), "\ufffdA")
        self.assertRaises(LookupError, "".encode, "pvzan:no-such")
        self.assertRaises(TypeError, codecs.lookup("pvzan:cp932").encode, b"")

    def test_convert_is_strict(self):
        for source, target in (("windows-31j", "utf-8"), ("utf-8", "iso-2022-jp"), ("utf-16", "euc-jis-2004")):
            data = "日本語".encode(f"pvzan:{source}")
            self.assertEqual(pvzan.convert(data, source, target), "日本語".encode(f"pvzan:{target}"))
        for data, source, target, at in (
            (b"A\xff", "windows-31j", "utf-8", 1), (b"A\x82", "windows-31j", "utf-8", 1),
            (b"\x1b$B$\"$", "iso-2022-jp", "utf-8", 5), (b"\x1b$B$\"", "iso-2022-jp", "utf-8", 5),
            ("\ufeff日☃".encode("utf-16-be"), "utf-16", "windows-31j", 1), (b"A\xc0\x80", "utf-8", "utf-16", 1),
            ("A〜".encode(), "utf-8", "windows-31j", 1), ("日¥".encode(), "utf-8", "shift_jis", 1),
        ):  # fmt: skip
            with self.assertRaises(UnicodeError) as caught:
                pvzan.convert(data, source, target)
            self.assertEqual(caught.exception.start, at, data)

    def test_rows(self):
        rows = [b"\x82\xa0", b"", None, b"A\xff", b"\x82", b"\xb1" * 1000]
        texts = ["あ".encode(), b"", None, None, None, "ｱ".encode() * 1000]
        self.assertEqual(pvzan.convert_list(rows, "cp932", "utf-8"), (texts, [0, 0, 0, 1, 2, 0]))
        self.assertEqual(pvzan.convert_list(["〜☃".encode()] * 2, "utf-8", "cp932"), ([None] * 2, [4] * 2))
        data, offsets = b"__" + b"\x82\xa0" * 5, [2, 4, 4, 12]
        for code, size in (("i", None), ("q", None), ("q", 8)):
            given = array.array(code, offsets)
            ends, text, faults = pvzan.convert_arrow(bytes(given) if size else given, data, "cp932", "utf-8", size)
            self.assertEqual((list(ends), text, bytes(faults)), ([0, 3, 3, 15], "あ".encode() * 5, b"\0" * 3))
        for wrong in ([], [-1, 2], [0, 13], [2, 4, 3], [0, 1 << 40, 3]):
            self.assertRaises(ValueError, pvzan.convert_arrow, array.array("q", wrong), data, "cp932", "utf-8")

    def test_a_decoder_goes_on_behind_an_exception_and_an_end(self):
        decoder = codecs.getincrementaldecoder("pvzan:iso-2022-jp")()
        self.assertEqual(decoder.decode(b'\x1b$B$"'), "あ")
        self.assertRaises(UnicodeDecodeError, decoder.decode, b"\x1b(B\xff")
        self.assertEqual(decoder.decode(b'$"\x1b(B', True) + decoder.decode(b"A", True), "あA")

    def test_files(self):
        lines = [f"{i} 行の文字コード\n" for i in range(3000)]
        with tempfile.TemporaryDirectory() as place:
            path = os.path.join(place, "text")
            for name in ("iso-2022-jp", "cp50221", "euc-jis-2004", "shift_jis"):
                with open(path, "w", encoding=f"pvzan:{name}") as file:
                    file.writelines(lines)
                    file.write("終か")
                with open(path, encoding=PEERS.get(name.replace("cp50221", "iso-2022-jp"), "sjis")) as file:
                    self.assertEqual(file.read(), "".join(lines) + "終か")
                with open(path, encoding=f"pvzan:{name}") as file:
                    self.assertEqual([file.readline() for _ in range(1000)], lines[:1000])
                    self.assertEqual(file.read(6), lines[1000][:6])
                    here, rest = file.tell(), file.read()
                    self.assertEqual(rest, "".join(lines[1000:])[6:] + "終か")
                    file.seek(here)
                    self.assertEqual(file.read(), rest)
                with codecs.open(path, encoding=f"pvzan:{name}") as file:
                    self.assertEqual(list(file), lines + ["終か"])
                codecs.getwriter(f"pvzan:{name}")(stream := io.BytesIO()).write("あA")
                self.assertEqual(stream.getvalue().decode(f"pvzan:{name}"), "あA")

    def test_threads(self):
        text = "並列に変換する。" * 5000
        names = ["pvzan:" + name for name in ("iso-2022-jp", "shift_jis", "euc-jp", "gb18030")]
        with concurrent.futures.ThreadPoolExecutor(8) as pool:
            back = list(pool.map(lambda name: text.encode(name).decode(name), names * 20))
        self.assertEqual(set(back), {text})

    def test_detection(self):
        text = "これは日本語の文章です。\r\n" * 10
        for name in ("cp932", "euc_jp", "iso2022_jp", "utf-8", "utf-8-sig", "utf-16"):
            found = pvzan.detect(text.encode(name))
            self.assertEqual((text.encode(name).decode(found.encoding), found.newline), (text, "\r\n"), name)
        self.assertIsNone(pvzan.detect(b""))
        self.assertRaises(pvzan.PvzanError, pvzan.use_charsets, os.path.dirname(pvzan.charset_directory()))


if __name__ == "__main__":
    unittest.main()
