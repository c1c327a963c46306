"""Python codecs of libPVZAN, for Japanese, Chinese and Korean encodings, including those of 2004, and many others.

    import pvzan                            # registers the codecs
    text = data.decode("pvzan:euc-jis-2004")
    with open(name, "w", encoding="pvzan:shift_jis-2004", errors="xmlcharrefreplace") as file: ...
    data = pvzan.convert(data, "windows-31j", "utf-8")  # bytes
    rows, faults = pvzan.convert_list(rows, "windows-31j", "utf-8")  # many of them
    pvzan.detect(data).encoding             # "pvzan:windows31j"; detect gives None where it cannot tell

All of it is strict: a character that is invalid, cut off or missing, or that would come back as a
different one, raises an exception with its place, or is passed to the error handler. Besides Python's
own handlers there is "pvzan:similar", which writes a similar character in place of a missing one.

The shared library is the one that PVZAN_LIBRARY names, or the one next to this module, or an installed
one; it finds its charset directory by itself. With the extension _pvzan short texts are converted
faster, but with the same result. Unicode encodings use Python's own codecs, except in convert.

Every piece that is encoded to ISO-2022-JP ends in ASCII, since codecs are not told that a file is being
closed. For the same reason nothing is held back: a letter and its combining mark that are one code in a
2004 encoding must be written together.
"""

import array
import codecs
import collections
import ctypes
import functools
import itertools
import os
import re
import sys

try:
    import _pvzan
except ImportError:
    _pvzan = None

__all__ = ["Detection", "FAULTS", "PvzanError", "charset_directory", "convert", "convert_arrow", "convert_list"]
__all__ += ["detect", "use_charsets"]
__version__ = "1.1.0"

FAULTS = (None, "invalid", "cut off", "missing in the target", "would come back as another", "left open")
_MISSING, _OTHER_BACK = 3, 4
_DONE, _MORE_ROOM, _FAULT = 0, 2, 3
_PART, _LAST, _FLUSH = 0, 1, 2
_NO_DIRECTORY, _NO_MEMORY = 1, 5
_LEAVE_INPUT, _OFFSETS_ALONE = 16, 64
_UTF_8, _UNICODE = 1, {2: "utf-16", 3: "utf-16", 4: "utf-32"}
_PREFIX, _NATIVE = "pvzan:", "le" if sys.byteorder == "little" else "be"
_UTF16, _UTF32 = f"utf-16{_NATIVE}", f"utf-32{_NATIVE}"
_MARKS = (codecs.BOM_UTF8, codecs.BOM_UTF16_LE, codecs.BOM_UTF16_BE, codecs.BOM_UTF32_BE)
_PIECE, _MOST_CLOSING = 16384, 16
_CONVERT, _DECODE, _ENCODE = 0, 1, 2


class PvzanError(OSError):
    """The library or its charset directory cannot be used."""


# ---- The library -----------------------------------------------------------------------------------


def _record(name, fields):
    """A record that begins with its size, from a list of "name:type"; a number means that many bytes of text."""
    types = {"i32": ctypes.c_int32, "u32": ctypes.c_uint32, "u64": ctypes.c_uint64, "scalars": ctypes.c_uint32 * 2}
    pairs = (field.split(":") for field in fields.split())
    members = [(n, ctypes.c_char * int(t) if t.isdigit() else types[t]) for n, t in pairs]
    record = type(name, (ctypes.Structure,), {"_fields_": [("size", ctypes.c_uint32), *members]})
    return lambda **values: record(size=ctypes.sizeof(record), **values)


_fault = _record(
    "_Fault",
    "kind:u32 reason:u32 length:u32 offset:u64 line:u64 column:u64 blamed:u32 follower:i32 scalars_count:u32"
    " scalars:scalars back_count:u32 back:scalars back_bytes_count:u32 look_alike:u32 back_bytes:8 bytes:16 why:192",
)
_error = _record("_Error", "code:i32 line:u64 column:u64 text:256 file:256")
_options = _record(
    "_Options",
    "flags:u32 from_order:u32 to_order:u32 mark:u32 breaks:u32 on_invalid:u32 on_missing:u32 on_cut:u32"
    " substitute:u32 most_faults:u64",
)
_NAME = "kind:u32 unit:u32 order:u32 mark:u32 exact:u32 charset:64 shown:64"
_name = _record("_Name", _NAME)

# Each call's result and arguments, by letters of _TYPES.
_TYPES = {"v": None, "p": ctypes.c_void_p, "t": ctypes.c_char_p, "z": ctypes.c_size_t, "i": ctypes.c_int32,
          "u": ctypes.c_uint64}
_CALLS = """open:pttpp close:vp reset:vp feed:ipppppi last_fault:ipp convert:zppzpzp convert_rows:zppzpzpzpip
    most:zpz shift:up begin_in:ipu resolve:itip set_directory:itp directory:zpz guess:ipzip"""


@functools.cache
def _library():
    name = "libPVZAN.so.1"
    beside = os.path.join(os.path.dirname(os.path.abspath(__file__)), name)
    # The environment counts for nothing in a program that runs with another user's rights.
    named = os.environ.get("PVZAN_LIBRARY") if os.getuid() == os.geteuid() else None
    wanted = named or (beside if os.path.exists(beside) else name)
    try:
        library = ctypes.CDLL(wanted)
        for call, types in re.findall(r"(\w+):(\w+)", _CALLS):
            function = getattr(library, "pvzan_" + call)
            function.restype, *function.argtypes = map(_TYPES.get, types)
            setattr(library, call, function)
    except (OSError, AttributeError) as reason:
        raise PvzanError(f"{wanted}: {reason}") from None
    library.convert_address = ctypes.cast(library.convert, ctypes.c_void_p).value
    return library


def use_charsets(path):
    """Chooses the charset directory. Call it before everything else, or not at all."""
    error = _error()
    if not _library().set_directory(os.fsencode(path), ctypes.byref(error)):
        raise PvzanError(error.text.decode())


def charset_directory():
    """The charset directory in use."""
    path = ctypes.create_string_buffer(4096)
    if not _library().directory(path, len(path)):
        _Converter("utf-8", "utf-8")  # which says why
    return os.fsdecode(path.value)


def _open(source, target):
    """The address of a converter that leaves faults in its input."""
    options, error = _options(flags=_LEAVE_INPUT | _OFFSETS_ALONE), _error()
    opened = _library().open(source.encode(), target.encode(), ctypes.byref(options), ctypes.byref(error))
    if not opened:
        kind = PvzanError if error.code in (_NO_DIRECTORY, _NO_MEMORY) else LookupError
        raise kind(error.text.decode("utf-8", "replace"))
    return opened


class _Converter:
    """A converter, a buffer for its output, and the positions that the library moves."""

    address = None

    def __init__(self, source, target):
        self.address, self.library, self.room, self.data = _open(source, target), _library(), b"", None
        self.source, self.left, self.target, self.free = (kind() for kind in (ctypes.c_void_p, ctypes.c_size_t) * 2)
        self.moved = [ctypes.byref(number) for number in (self.source, self.left, self.target, self.free)]

    def __del__(self):
        if self.address:
            self.library.close(self.address)

    def feed(self, data, at, how):
        """Converts from a place in data until an event: returns the event, the place, and the output."""
        if data is not self.data:
            self.data, self.start = data, ctypes.cast(data, ctypes.c_void_p).value
        written, ready = [], False
        while not ready:
            end = min(at + _PIECE, len(data))
            if len(self.room) < 4 * (end - at) + 64:
                self.room = ctypes.create_string_buffer(4 * (end - at) + 64)
                self.begin = ctypes.addressof(self.room)
            self.source.value, self.left.value = self.start + at, end - at
            self.target.value, self.free.value = self.begin, len(self.room)
            said = self.library.feed(self.address, *self.moved, how if end == len(data) else _PART)
            assert said >= 0
            written.append(ctypes.string_at(self.begin, self.target.value - self.begin))
            at = end - self.left.value
            ready = said == _FAULT or said != _MORE_ROOM and end == len(data)
        return said, at, written[0] if len(written) == 1 else b"".join(written)

    def fault(self):
        fault = _fault()
        self.library.last_fault(self.address, ctypes.byref(fault))
        return fault


class _Idle(list):
    """Addresses of converters; None for those in use."""

    def __init__(self, source, target):
        super().__init__()
        self.names, self.close = (source, target), _library().close
        self.fill()

    def __del__(self):
        for address in self:
            self.close(address)

    def fill(self):
        """Adds one for another thread."""
        if not any(self):
            self.append(_open(*self.names))


def _made_fast(task, slow, *pairs):
    """A function of _pvzan, which calls slow if the text has a fault, or if no converter is free."""
    if _pvzan is None:
        return slow

    def fill_and_slow(*arguments, **options):
        for converters in idle:
            converters.fill()
        return slow(*arguments, **options)

    idle = [_Idle(*pair) for pair in pairs]
    return _pvzan.function(task, _library().convert_address, fill_and_slow, *idle)


# ---- Decoding and encoding -------------------------------------------------------------------------


def _bytes(data):
    return data if isinstance(data, bytes) else bytes(memoryview(data))


def _behind(place, size):
    """The place where an error handler wants to continue."""
    place += size if place < 0 else 0
    if not 0 <= place <= size:
        raise IndexError(f"position {place} from error handler out of bounds")
    return place


class _Decoder:
    def __init__(self, charset):
        self.encoding = _PREFIX + charset
        self.converter = _Converter(charset, _UTF16)
        self.reset()

    def shift(self):
        return self.converter.library.shift(self.converter.address)

    def reset(self, shift=0):
        """shift: the sets that escape sequences before the text have designated."""
        self.converter.library.begin_in(self.converter.address, shift)

    def decode(self, data, errors, final):
        """The text, and the number of bytes used. If the handler raises an exception, nothing has changed."""
        before, pieces, at, said = self.shift(), [], 0, _FAULT
        try:
            while said == _FAULT:
                said, at, text = self.converter.feed(data, at, _LAST if final else _PART)
                pieces.append(text.decode(_UTF16))
                if said == _FAULT:
                    fault = self.converter.fault()
                    error = UnicodeDecodeError(self.encoding, data, at, at + fault.length, fault.why.decode())
                    replacement, at = codecs.lookup_error(errors)(error)
                    pieces.append(replacement)
                    at = _behind(at, len(data))
        except BaseException:
            self.reset(before)
            raise
        if final:
            self.reset()
        return "".join(pieces), at


def _encode(charset, text, errors):
    converter, pieces, said = _Converter(_UTF32, charset), [], _FAULT
    at, begin, data = 0, 0, b""  # data is what of text is at work, from begin on
    while said != _DONE:
        if not begin <= at < begin + len(data) // 4:
            begin, data = at, str.encode(text[at : at + _PIECE], _UTF32, "surrogatepass")
        last = begin + len(data) // 4 == len(text)
        said, place, written = converter.feed(data, 4 * (at - begin), _LAST if last else _PART)
        at = begin + place // 4
        pieces.append(written)
        if said == _FAULT:
            fault = converter.fault()
            why = fault.why.decode() if fault.scalars_count else "surrogates not allowed"
            error = UnicodeEncodeError(_PREFIX + charset, text, at, at + fault.length // 4, why)
            error.similar = _like(fault)
            replacement, at = codecs.lookup_error(errors)(error)
            if isinstance(replacement, bytes):
                pieces += converter.feed(b"", 0, _FLUSH)[2], replacement
            else:
                again, _, written = converter.feed(replacement.encode(_UTF32, "surrogatepass"), 0, _PART)
                if again == _FAULT:
                    raise error
                pieces.append(written)
            at = _behind(at, len(text))
    return b"".join(pieces)


def _like(fault):
    """A similar character in the charset; for a yen sign this is never a backslash."""
    like = fault.look_alike or (fault.back[0] if fault.back_count == 1 else 0)
    return chr(like) if like >= 0x80 else None


def _similar(error):
    """The error handler "pvzan:similar"."""
    if getattr(error, "similar", None):
        return error.similar, error.end
    raise error


# ---- Codecs ----------------------------------------------------------------------------------------


@functools.cache
def _codec(charset):
    def slow_encode(text, errors="strict"):
        return _encode(charset, text, errors or "strict"), len(text)

    def slow_decode(data, errors="strict"):
        return _Decoder(charset).decode(_bytes(data), errors or "strict", True)

    encode = _made_fast(_ENCODE, slow_encode, (_UTF16, charset), ("utf-8", charset))
    decode = _made_fast(_DECODE, slow_decode, (charset, _UTF16))

    class IncrementalEncoder(codecs.IncrementalEncoder):
        def encode(self, text, final=False):
            return encode(text, self.errors)[0]

    class IncrementalDecoder(codecs.BufferedIncrementalDecoder):
        def __init__(self, errors="strict"):
            super().__init__(errors)
            self.decoder = _Decoder(charset)

        def _buffer_decode(self, data, errors, final):
            return self.decoder.decode(_bytes(data), errors, final)

        def reset(self):
            super().reset()
            self.decoder.reset()

        def getstate(self):
            return self.buffer, self.decoder.shift()

        def setstate(self, state):
            self.buffer, shift = state
            self.decoder.reset(shift)

    class StreamWriter(codecs.StreamWriter):
        def encode(self, text, errors="strict"):
            return encode(text, errors)

    class StreamReader(codecs.StreamReader):
        def __init__(self, stream, errors="strict"):
            super().__init__(stream, errors)
            self.decoder = _Decoder(charset)

        def decode(self, data, errors="strict"):
            return self.decoder.decode(_bytes(data), errors, False)

        def reset(self):
            super().reset()
            self.decoder.reset()

    incremental = IncrementalEncoder, IncrementalDecoder
    return codecs.CodecInfo(encode, decode, StreamReader, StreamWriter, *incremental, name=_PREFIX + charset)


def _codec_name(meaning):
    order = "be" if meaning.order == 1 else "le"
    if meaning.kind == _UTF_8:
        return "utf-8-sig" if meaning.mark else "utf-8"
    if meaning.kind not in _UNICODE:
        return _PREFIX + meaning.charset.decode()
    if meaning.mark == 2 and order != _NATIVE:
        raise LookupError(f"Python has no codec for {meaning.shown.decode()}")
    return _UNICODE[meaning.kind] if meaning.mark else f"{_UNICODE[meaning.kind]}-{order}"


def _search(asked):
    if not re.match("pvzan[:_-].", asked):
        return None
    meaning, charset = _name(), asked[len(_PREFIX) :]
    if not _library().resolve(charset.encode(), 0, ctypes.byref(meaning)):
        _Converter(charset, _UTF16)  # which says why there is no such charset
    name = _codec_name(meaning)
    return _codec(name[len(_PREFIX) :]) if name.startswith(_PREFIX) else codecs.lookup(name)


codecs.register(_search)
codecs.register_error("pvzan:similar", _similar)


# ---- Bytes to bytes --------------------------------------------------------------------------------


def convert(data, source, target):
    """Converts a whole text from bytes to bytes. Names have no prefix "pvzan:".

    Raises UnicodeDecodeError for the first bytes that are invalid or cut off, and UnicodeEncodeError for
    the first character that is missing in the target or would come back as a different one.
    """
    return _conversion(source, target)(data)


@functools.lru_cache(64)
def _conversion(source, target):
    def slow(data):
        data, converter = _bytes(data), _Converter(source, target)
        said, at, result = converter.feed(data, 0, _LAST)
        if said != _FAULT:
            return result
        fault = converter.fault()
        end, why = at + fault.length, fault.why.decode()
        if fault.kind not in (_MISSING, _OTHER_BACK):
            raise UnicodeDecodeError(_PREFIX + source, data, at, end, why)
        text = _Converter(source, _UTF16).feed(data[:end], 0, _FLUSH)[2].decode(_UTF16)
        raise UnicodeEncodeError(_PREFIX + target, text, len(text) - fault.scalars_count, len(text), why)

    return _made_fast(_CONVERT, slow, (source, target))


def convert_list(rows, source, target):
    """Converts many texts. Returns a list of bytes in the target encoding, and a list of faults.

    A row with a fault becomes None, and its fault is an index of FAULTS; 0 means no fault. A row that is
    None stays None.
    """
    rows = list(rows)
    data = b"".join(row for row in rows if row is not None)
    sizes = (0 if row is None else len(row) for row in rows)
    offsets = array.array("q", itertools.accumulate(sizes, initial=0))
    places, result, faults = convert_arrow(offsets, data, source, target)
    ends = zip(rows, faults, places, places[1:])
    return [None if row is None or fault else result[begin:end] for row, fault, begin, end in ends], list(faults)


def convert_arrow(offsets, data, source, target, offset_bytes=None):
    """Converts many texts stored as in Arrow: offsets and bytes, in objects with the buffer protocol.

    Offsets have 4 or 8 bytes; pass offset_bytes if their buffer does not have this item size. Returns
    offsets and bytes of the results, and one byte for each row, as in convert_list; a row with a fault
    is empty.
    """
    size = offset_bytes or memoryview(offsets).itemsize
    if size not in (4, 8):
        raise ValueError("offsets have 4 or 8 bytes")
    places = array.array("i" if size == 4 else "q", _bytes(offsets))
    data, rows = _bytes(data), len(places) - 1
    if rows < 0:
        raise ValueError("there is no offset")
    converter, library = _Converter(source, target), _library()
    ends, faults = array.array(places.typecode, bytes(size * (rows + 1))), array.array("B", bytes(rows))
    begins, behind, kinds = (buffer.buffer_info()[0] for buffer in (places, ends, faults))
    most, room, done = library.most(converter.address, len(data)) + _MOST_CLOSING * rows, 2 * len(data), -1
    while done < rows:
        if room > most:
            raise ValueError("the offsets decrease, lead out of the data, or are too small for the result")
        room = 2 * room + 64
        result = ctypes.create_string_buffer(room)
        done = library.convert_rows(converter.address, data, len(data), begins, rows, result, room, behind, size, kinds)
    return ends, ctypes.string_at(result, ends[-1]), faults


# ---- Detection -------------------------------------------------------------------------------------

Detection = collections.namedtuple("Detection", "encoding name bom declared newline")
Detection.__doc__ = """The charset of a text: encoding is the name of a codec, name the library's name; bom and
declared say whether there is a byte-order mark or an XML declaration; newline is the string that ends lines, or
None."""


def detect(data):
    """Guesses the charset of a text; None if no charset fits."""
    data, found = _bytes(data), _name()
    if not data or _library().guess(data, len(data), 1, ctypes.byref(found)) not in (1, 2) or not found.shown:
        return None
    bom = found.kind != 0 and data.startswith(_MARKS)
    found.mark = max(found.mark, bom)
    encoding = _codec_name(found)
    start = data[:_PIECE].decode(encoding, "replace")
    declared = re.match(r"\s*<\?xml\s[^>]*\bencoding\b", start) is not None
    newline = re.search("\r\n|[\r\n\u2028\u2029]", start)
    return Detection(encoding, found.shown.decode(), bom, declared, newline and newline.group())
