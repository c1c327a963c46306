"""Python codecs by libPVZAN: Japanese, Chinese and Korean encodings, the 2004 ones among them.

    import pvzan                            # registers the codecs
    text = data.decode("pvzan:euc-jis-2004")
    with open(name, "w", encoding="pvzan:shift_jis-2004", errors="xmlcharrefreplace") as file: ...
    data = pvzan.convert(data, "windows-31j", "utf-8")  # bytes; stricter than the codecs, see there
    pvzan.detect(data).encoding             # "pvzan:windows31j"; detect gives None where it cannot tell

All error handlers work, with the place in the object at fault. One module, no compiler: it calls the
shared library by ctypes, found as PVZAN_LIBRARY says, beside this module, or where the system keeps
libraries. The charset directory is the one that PVZAN_CHARSET_DIR names, or the one that lies beside
the library; never one in the current directory. The Unicode encodings are Python's own.

Every piece that is encoded to ISO-2022-JP ends in ASCII, since nobody tells a codec that a file is
being closed. For the same reason nothing is held back: a letter and its combining mark that are one
code in a 2004 encoding have to be written together.
"""

import codecs
import collections
import ctypes
import os
import re
import threading

__all__ = ["Detection", "PvzanError", "charset_directory", "convert", "detect", "use_charsets"]
__version__ = "1.0.0"

_PREFIX = "pvzan:"
_DONE, _INCOMPLETE, _FULL = 0, 12, 22
_ASCII_SET = 2001
_WINDOW = 65536  # of input, converted at once
_NARROW = 64  # the same behind a fault, so that many of them take no more than linear time
_ROOM = 65536
_LONGEST_CODE = 4
_PLANE2_ESCAPE = b"\x1b$(P"
_ALIASES = {
    "sjis": "shift_jis", "shiftjis": "shift_jis",
    "windows31j": "windows31j", "cp932": "windows31j", "ms932": "windows31j",
    "eucjp": "euc-jp", "ujis": "euc-jp", "eucjpfix": "euc-jp-fix",
    "iso2022jp": "iso-2022-jp", "jis": "iso-2022-jp",
    "sjis2004": "shift_jis-2004", "shiftjis2004": "shift_jis-2004",
    "eucjis2004": "euc-jis-2004", "iso2022jp2004": "iso-2022-jp-2004",
    "gbk": "chinesegbk", "cp936": "chinesegbk", "big5": "chinesebig5", "cp950": "chinesebig5",
    "uhc": "koreanksc", "cp949": "koreanksc",
    "ascii": "iso-646irv", "iso646irv": "iso-646irv",
    "latin1": "iso-8859-1", "iso88591": "iso-8859-1",
    "utf8": "utf-8", "utf16": "utf-16", "utf16le": "utf-16-le", "utf16be": "utf-16-be",
    "utf32": "utf-32", "utf32le": "utf-32-le", "utf32be": "utf-32-be",
    "ucs4": "utf-32", "iso10646ucs4": "utf-32", "ucs4le": "utf-32-le", "ucs4be": "utf-32-be",
    "iso10646ucs4le": "utf-32-le", "iso10646ucs4be": "utf-32-be",
    "ucs2": "utf-16", "iso10646ucs2": "utf-16",
}  # fmt: skip


class PvzanError(OSError):
    """The library or its charset directory cannot be used."""


# ---- The library -----------------------------------------------------------------------------------


def _record(name, fields):
    """A record from a list of "name:type"."""
    types = {
        "i32": ctypes.c_int32,
        "u16": ctypes.c_uint16,
        "u32": ctypes.c_uint32,
        "bytes": ctypes.c_char_p,
        "pointer": ctypes.c_void_p,
        "text": ctypes.c_char * 4096,
    }
    pairs = (field.split(":") for field in fields.split())
    return type(name, (ctypes.Structure,), {"_fields_": [(n, types.get(t) or globals()[t]) for n, t in pairs]})


_Target = _record(
    "_Target",
    "dstBigEndian:u32 dstWriteBom:u32 useSubstitute:u32 substChar1:u16 substChar2:u16 langTag:text"
    " convertNewline:u32 newlineMode:u32 charRefMode:u32",
)
_Source = _record("_Source", "srcBigEndian:u32 srcCheckBom:u32 skipInvalid:u32")
_Substitute = _record("_Substitute", "setNo:u32 setType:u16 code:u32 bytes:u16")
_Session = _record(
    "_Session",
    "inBuf:bytes inPos:i32 inLen:i32 inCount:u32 outBuf:pointer outPos:i32 outLen:i32 outCount:u32"
    " status:u32 srcGroupNo:u32 srcGroup:pointer srcRule:pointer charSetNo:u32 charSetType:u16"
    " srcShiftSet:u32 dstGroupNo:u32 dstGroup:pointer dstRule:pointer outSetNo:u32 outSetType:u16"
    " dstShiftSet:u32 dstShiftPlane:u32 srcCode:u32 setCode:u32 ucsCode:u32 outCode:u32 outBytes:u16"
    " outDone:u16 prevSrcCode:u32 outCode2:u32 baseLang:text outLang:text curLang:text"
    " source:_Source target:_Target subst1:_Substitute subst2:_Substitute",
)
_Request = _record(
    "_Request",
    "text:bytes textPos:i32 textEnd:i32 encodingName:text xmlDeclared:u32 bomFound:u32 bigEndian:u32"
    " newlineKind:u32 resultFlags:u32",
)
_Place = _record("_Place", "fileName:bytes base:pointer symbol:bytes address:pointer")

_lock = threading.Lock()
_library = None
_directory = None


def _load():
    name = "libPVZAN.so.1"
    beside = os.path.join(os.path.dirname(os.path.abspath(__file__)), name)
    wanted = _variable("PVZAN_LIBRARY") or (beside if os.path.exists(beside) else name)
    try:
        library = ctypes.CDLL(wanted)
    except OSError as reason:
        raise PvzanError(f"{wanted}: {reason}") from None
    for call in "cconvInitConvert cconvChgCharset cconvConvert cconvTermConvert cconvChkEncode".split():
        getattr(library, call).restype = ctypes.c_uint32
    return library


def _variable(name):
    """The environment counts for nothing in a program that runs with another user's rights."""
    return os.environ.get(name) if os.getuid() == os.geteuid() else None


def _beside(library):
    place = _Place()
    call = ctypes.cast(library.cconvConvert, ctypes.c_void_p)
    if not ctypes.CDLL(None).dladdr(call, ctypes.byref(place)) or not place.fileName:
        return None
    return os.path.join(os.path.dirname(os.path.realpath(os.fsdecode(place.fileName))), "pvzan", "base2")


def _open(asked_for=None):
    """The library, its charset directory settled."""
    global _library, _directory
    with _lock:
        if _library is None:
            library = _load()
            places = [asked_for] if asked_for else [_variable("PVZAN_CHARSET_DIR"), _beside(library)]
            found = next((place for place in places if place and os.path.isdir(place)), None)
            if found is None:
                raise PvzanError("no charset directory; looked for " + ", ".join(filter(None, places)))
            library.my_init()
            library.ZAN_setCharsetPath(os.fsencode(os.path.abspath(found)))
            if not library.cconvLoadRule():
                raise PvzanError(f"{found}: no charset definitions in this directory")
            _library, _directory = library, found
        elif asked_for and not os.path.samefile(asked_for, _directory):
            raise PvzanError(f"the charset directory is {_directory} already")
        return _library


def use_charsets(path):
    """Settles the charset directory; to be called before everything else, or not at all."""
    _open(os.fspath(path))


def charset_directory():
    """The charset directory in use."""
    _open()
    return _directory


class _Conversion:
    """A session and a buffer for its output. Not for two threads, nor for a handler's own needs."""

    def __init__(self, charset):
        self.charset = charset
        self.library = _open()
        self.session = _Session()
        self.pointer = ctypes.byref(self.session)
        self.room = ctypes.create_string_buffer(_ROOM)
        self.session.outBuf, self.session.outLen = ctypes.addressof(self.room), _ROOM
        self.reset()

    def _start(self, source, target):
        options = _Target(dstBigEndian=1), _Source(srcBigEndian=1)
        known = self.library.cconvInitConvert(self.pointer, ctypes.byref(options[0]), target.encode()) == _DONE
        known = known and self.library.cconvChgCharset(self.pointer, ctypes.byref(options[1]), source.encode()) == _DONE
        if not known:
            raise LookupError(f"unknown encoding: {_PREFIX}{self.charset}")

    def run(self, data):
        """Converts until something is wrong: the status, the bytes taken, what was written."""
        session, written = self.session, []
        session.inBuf, session.inPos, session.inLen = data, 0, len(data)
        while True:
            session.outPos = 0
            status = self.library.cconvConvert(self.pointer)
            written.append(ctypes.string_at(self.room, session.outPos))
            if status != _FULL:
                return status, session.inPos, b"".join(written)


# ---- Decoding --------------------------------------------------------------------------------------


class _Decoding(_Conversion):
    def reset(self):
        self._start(self.charset, "utf-8")
        self.width = _WINDOW
        self.plane2 = False  # ISO-2022-JP-2004: designated; the library holds it for one code only
        self.has_plane2 = self.charset == "iso-2022-jp-2004"

    def get_state(self):
        return (self.session.srcShiftSet ^ _ASCII_SET) << 1 | self.plane2

    def set_state(self, state):
        self.plane2 = bool(state & 1)
        self.session.srcShiftSet = state >> 1 ^ _ASCII_SET
        self.session.status = _DONE

    def decode(self, data, errors, final):
        """The text and the bytes taken; nothing has happened when the handler raises."""
        before, pieces, at = self.get_state(), [], 0
        try:
            while at < len(data):
                text, at, end, why = self._piece(data, at)
                pieces.append(text)
                if why is None:
                    continue
                if why == "cut":
                    if not final:
                        break
                    end, why = len(data), "incomplete multibyte sequence"
                error = UnicodeDecodeError(_PREFIX + self.charset, data, at, end, why)
                replacement, at = codecs.lookup_error(errors)(error)
                pieces.append(replacement)
                at += len(data) if at < 0 else 0
        except BaseException:
            self.set_state(before)
            raise
        return "".join(pieces), at

    def _piece(self, data, at):
        """Text from at on, where it ends, and there the end of a fault and what it is."""
        window = data[at : at + self.width]
        self.width = min(self.width * 2, _WINDOW)
        if self.plane2 and window[0] not in b"\x1b\r\n\t":
            if len(window) < 2:
                return "", at, at, "cut"
            status, _, text = self.run(_PLANE2_ESCAPE + window[:2])
            if status == _DONE:
                return text.decode(), at + 2, None, None
            return "", at, at + 2, "illegal multibyte sequence"
        if self.has_plane2:
            self.plane2 = window.startswith(_PLANE2_ESCAPE) or self.plane2 and window[0] != 0x1B
            escape = window.find(_PLANE2_ESCAPE)
            if self.plane2:
                window = window[: 4 if escape == 0 else 1]
            elif escape > 0:  # not where it takes the second byte of a code
                window = window[: max(escape, _LONGEST_CODE)]
        before = self.get_state()
        status, used, text = self.run(window)
        if status == _DONE:
            return text.decode(), at + used, None, None
        if status == _INCOMPLETE:
            left = len(window) - used
            if left < _LONGEST_CODE and at + len(window) < len(data) and used > 0:
                return text.decode(), at + used, None, None  # cut by the window only
            if left < _LONGEST_CODE and at + len(window) == len(data):
                return text.decode(), at + used, at + used, "cut"
            self.width = _NARROW
            return text.decode(), at + used, at + used + 1, "illegal multibyte sequence"
        self.width = _NARROW
        # Where the code at fault begins: what stands before it is all that converts.
        after = self.get_state()
        begin = used
        for end in range(used, -1, -1):
            self.set_state(before)
            status, begin, text = self.run(window[:end])
            if status in (_DONE, _INCOMPLETE):
                break
        self.set_state(after)
        end = begin + 2 if self.charset == "euc-jp-fix" else self._length_of_fault(window, begin, used)
        return text.decode(), at + begin, at + end, "illegal multibyte sequence"

    def _length_of_fault(self, data, begin, end):
        """Never over a character of ASCII, which may be a delimiter."""
        second_halves = range(0x21, 0x7F) if self.charset.startswith("iso-2022-jp") else ()
        for at in range(begin + 1, end):
            if data[at] < 0x80 and data[at] not in second_halves:
                return at
        return max(end, begin + 1)


# ---- Encoding --------------------------------------------------------------------------------------

_KANA_MARK, _OTHER_MARKS = "\u309a", "\u0300\u0301\u02e5\u02e9"


class _Encoding(_Conversion):
    def reset(self):
        self._start("utf-8", self.charset)
        self.width = _WINDOW
        self.iso2022 = self.charset.startswith("iso-2022-jp")
        if self.iso2022:
            self.session.dstShiftSet = self.session.outSetNo = _ASCII_SET
        # A letter and a mark in one run are taken for one character, so a charset without it is given
        # them apart. ISO-2022-JP-2004 has kana in JIS X 0208, where only one of them keeps its mark.
        marks = "" if self.charset.endswith("-2004") else _OTHER_MARKS + _KANA_MARK
        if self.charset == "iso-2022-jp-2004":
            marks = f"(?<!\u31f7){_KANA_MARK}"
        elif marks:
            marks = f"[{marks}]"
        # Control codes that the library writes and nothing reads back: switches of sets, DEL in EUC.
        lost = "\x0e\x0f\x1b" if self.iso2022 else "\x7f" if self.charset.startswith("euc-") else ""
        self.refused = re.compile(f"[{lost}\ud800-\udfff]")
        self.stop = re.compile("|".join(filter(None, (self.refused.pattern, marks))))

    def encode(self, text, errors):
        pieces, at = [], 0
        while at < len(text):
            written, at = self._piece(text, at)
            pieces.append(written)
            if at < len(text) and self.fault is not None:
                error = UnicodeEncodeError(_PREFIX + self.charset, text, at, self.fault, "not in this charset")
                replacement, behind = codecs.lookup_error(errors)(error)
                pieces.append(self._replacement(replacement, error))
                at = behind + (len(text) if behind < 0 else 0)
        pieces.append(self._close())
        return b"".join(pieces)

    def _replacement(self, replacement, error):
        if isinstance(replacement, bytes):
            return self._close() + replacement
        written, at = b"", 0
        while at < len(replacement):
            piece, at = self._piece(replacement, at)
            written += piece
            if self.fault is not None:
                raise error
        return written

    def _piece(self, text, at):
        """Codes from at on and where they end; there a character up to fault is missing."""
        self.fault = None
        if self.refused.match(text, at):
            self.fault = at + 1
            return b"", at
        found = self.stop.search(text, at + 1, at + self.width)
        end = found.start() if found else at + self.width
        self.width = min(self.width * 2, _WINDOW)
        while end < len(text) and text[end] in _OTHER_MARKS + _KANA_MARK and not self.stop.match(text, end):
            end += 1  # not between a letter and its mark
        data = text[at:end].encode()
        session = self.session
        before = session.dstShiftSet, session.outSetNo
        status, used, written = self.run(data)
        if self.iso2022 and session.dstShiftPlane:
            # Behind a code of JIS X 0213 the library does not go back to the set before.
            pair = text[at : at + 2] == "\u31f7\u309a" or text[at + 1 : at + 2] in tuple(_OTHER_MARKS)
            single = at + (2 if pair else 1)
            if end > single:
                (session.dstShiftSet, session.outSetNo), session.dstShiftPlane = before, 0
                self.width, end = 1, single
                status, used, written = self.run(text[at:end].encode())
            if session.dstShiftPlane:
                session.dstShiftPlane = session.dstShiftSet = 0
        if status == _DONE:
            return written, min(end, len(text))
        self.width = _NARROW
        self.fault = at + len(data[:used].decode())
        return written, self.fault - 1

    def _close(self):
        session = self.session
        if not self.iso2022 or session.outSetNo == _ASCII_SET:
            return b""
        session.outPos = 0
        self.library.cconvTermConvert(self.pointer)
        session.dstShiftSet = session.outSetNo = _ASCII_SET
        return ctypes.string_at(self.room, session.outPos)


# ---- Codecs ----------------------------------------------------------------------------------------


def _codec(charset):
    idle = {_Decoding: [], _Encoding: []}  # conversions to use again; list operations are atomic

    def borrowed(kind, convert):
        conversion = idle[kind].pop() if idle[kind] else kind(charset)
        conversion.reset()
        result = convert(conversion)
        idle[kind].append(conversion)
        return result

    def encode(text, errors="strict"):
        return borrowed(_Encoding, lambda c: c.encode(text, errors or "strict")), len(text)

    def decode(data, errors="strict"):
        return borrowed(_Decoding, lambda c: c.decode(bytes(data), errors or "strict", True))

    class IncrementalEncoder(codecs.IncrementalEncoder):
        def encode(self, text, final=False):
            return encode(text, self.errors)[0]

    class IncrementalDecoder(codecs.BufferedIncrementalDecoder):
        def __init__(self, errors="strict"):
            super().__init__(errors)
            self.conversion = _Decoding(charset)

        def _buffer_decode(self, data, errors, final):
            return self.conversion.decode(bytes(data), errors, final)

        def reset(self):
            super().reset()
            self.conversion.reset()

        def getstate(self):
            return self.buffer, self.conversion.get_state()

        def setstate(self, state):
            self.buffer = state[0]
            self.conversion.set_state(state[1])

    class StreamWriter(codecs.StreamWriter):
        def encode(self, text, errors="strict"):
            return encode(text, errors)

    class StreamReader(codecs.StreamReader):
        def __init__(self, stream, errors="strict"):
            super().__init__(stream, errors)
            self.conversion = _Decoding(charset)

        def decode(self, data, errors="strict"):
            return self.conversion.decode(bytes(data), errors, False)

        def reset(self):
            super().reset()
            self.conversion.reset()

    return codecs.CodecInfo(
        encode,
        decode,
        StreamReader,
        StreamWriter,
        IncrementalEncoder,
        IncrementalDecoder,
        name=_PREFIX + charset,
    )


def _search(name):
    matched = re.fullmatch("pvzan[:_-](.+)", name)
    if not matched:
        return None
    asked = matched.group(1)
    known = _ALIASES.get(re.sub("[-_ ]", "", asked))
    if known and known.startswith("utf-"):
        return codecs.lookup(known)
    for charset in (known,) if known else (asked, asked.replace("_", "-")):
        try:
            _Encoding(charset)
        except (LookupError, UnicodeEncodeError):
            continue
        return _codec(charset)
    return None


codecs.register(_search)


def convert(data, source, target):
    """The bytes of a whole text in another encoding; names go without "pvzan:".

    UnicodeDecodeError or UnicodeEncodeError tell the first character that is invalid, cut off, missing
    in the target, or would come back as another, which the codecs write: a wave dash in windows-31j.
    """
    text = data.decode(_PREFIX + source)
    result = text.encode(_PREFIX + target)
    back = result.decode(_PREFIX + target)
    if back != text:
        at = len(os.path.commonprefix((text, back)))
        raise UnicodeEncodeError(_PREFIX + target, text, at, at + 1, f"would come back as {ascii(back[at:at + 1])}")
    return result


# ---- Detection -------------------------------------------------------------------------------------

Detection = collections.namedtuple("Detection", "encoding name bom declared newline")
Detection.__doc__ = """What a text is in: encoding is the name of a codec, name the library's own; bom and
declared tell of a byte-order mark and an XML declaration; newline is one of the strings that end lines, or None."""


def detect(data):
    """By its byte-order mark, its declaration, or how well its start fits each encoding; or None."""
    library, start = _open(), bytes(data[: 1 << 20])
    request = _Request(text=start, textEnd=len(start))
    if not library.cconvChkEncode(ctypes.byref(request)):
        return None
    name = request.encodingName.decode("ascii", "replace")
    order = ""
    if library.cconvIsEndianAware(request.encodingName) and not request.bomFound:
        order = "be" if request.bigEndian else "le"
    newline = (None, "\r\n", "\r", "\n", "\u2028", "\u2029")[request.newlineKind]
    encoding = "utf-8-sig" if name == "UTF-8" and request.bomFound else _PREFIX + name.lower() + order
    return Detection(encoding, name, bool(request.bomFound), bool(request.xmlDeclared), newline)
