"""The systems that the tables are derived from and checked against.

Each source is a function from the bytes of one character to its scalar value, or None where the system refuses the
bytes, decodes them to more than one scalar, or needs more of them.
"""

import ctypes
import gzip
import re
import subprocess

_libc = ctypes.CDLL(None, use_errno=True)
_libc.iconv_open.restype = ctypes.c_void_p
_libc.iconv_open.argtypes = [ctypes.c_char_p, ctypes.c_char_p]
_libc.iconv.restype = ctypes.c_size_t
_libc.iconv.argtypes = [ctypes.c_void_p] + [ctypes.c_void_p] * 4


class SourceMissing(Exception):
    """A system that the derivation needs is not on this machine."""


def single_scalar(text):
    return ord(text) if text is not None and len(text) == 1 else None


class Iconv:
    """The C library's converter."""

    def __init__(self, charset):
        self.name = "iconv " + charset
        self._handle = _libc.iconv_open(b"UTF-32BE", charset.encode())
        if self._handle == ctypes.c_void_p(-1).value:
            raise SourceMissing(self.name)
        self._output = ctypes.create_string_buffer(64)

    def text(self, code_bytes):
        source = ctypes.create_string_buffer(code_bytes, len(code_bytes))
        source_pointer = ctypes.c_void_p(ctypes.addressof(source))
        source_left = ctypes.c_size_t(len(code_bytes))
        output_pointer = ctypes.c_void_p(ctypes.addressof(self._output))
        output_left = ctypes.c_size_t(64)
        result = _libc.iconv(self._handle, ctypes.byref(source_pointer), ctypes.byref(source_left),
                             ctypes.byref(output_pointer), ctypes.byref(output_left))
        # A base character is held back until it is known whether a mark follows: ask for it.
        if result == 0:
            _libc.iconv(self._handle, None, None, ctypes.byref(output_pointer),
                        ctypes.byref(output_left))
        _libc.iconv(self._handle, None, None, None, None)
        if result != 0 or source_left.value != 0:
            return None
        return self._output.raw[:64 - output_left.value].decode("utf-32-be")

    def __call__(self, code_bytes):
        return single_scalar(self.text(code_bytes))


class Python:
    """A codec of this interpreter."""

    def __init__(self, codec):
        self.name = "Python " + codec
        self._codec = codec

    def __call__(self, code_bytes):
        try:
            return single_scalar(code_bytes.decode(self._codec))
        except UnicodeDecodeError:
            return None


class Perl:
    """A codec of Perl's Encode; asked once for all the byte strings that will be looked up."""

    _PROGRAM = r"""
        use Encode;
        my $codec = find_encoding($ARGV[0]) or exit 3;
        while (my $line = <STDIN>) {
            chomp $line;
            my $bytes = pack("H*", $line);
            my $text = eval { $codec->decode($bytes, Encode::FB_CROAK) };
            print defined $text && length $text ? join("+", map { sprintf "%X", ord } split //, $text) : "-", "\n";
        }
    """

    def __init__(self, codec, all_bytes):
        self.name = "Perl " + codec
        request = "\n".join(code_bytes.hex() for code_bytes in all_bytes) + "\n"
        try:
            answer = subprocess.run(["perl", "-e", self._PROGRAM, codec], input=request.encode(),
                                    stdout=subprocess.PIPE, check=True).stdout.decode().split()
        except (OSError, subprocess.CalledProcessError) as error:
            raise SourceMissing(self.name) from error
        self._texts = {code_bytes: None if word == "-" else "".join(chr(int(scalar, 16)) for scalar in word.split("+"))
                       for code_bytes, word in zip(all_bytes, answer, strict=True)}

    def text(self, code_bytes):
        return self._texts[code_bytes]

    def __call__(self, code_bytes):
        return single_scalar(self.text(code_bytes))


class Icu:
    """A converter of ICU, of charsets of single bytes: asked once for all 256."""

    def __init__(self, charset):
        self.name = "ICU " + charset
        try:
            text = subprocess.run(["uconv", "-f", charset, "-t", "UTF-32BE", "--callback", "substitute"],
                                  input=bytes(range(0x100)), stdout=subprocess.PIPE, check=True).stdout
        except (OSError, subprocess.CalledProcessError) as error:
            raise SourceMissing(self.name) from error
        self._scalars = [ord(character) for character in text.decode("utf-32-be")]

    def __call__(self, code_bytes):
        scalar = self._scalars[code_bytes[0]]
        return None if scalar == 0xFFFD else scalar


class Charmap:
    """The description of a charset that comes with the C library, beside its converter."""

    def __init__(self, charset):
        self.name = "charmap " + charset
        try:
            with gzip.open(f"/usr/share/i18n/charmaps/{charset}.gz", "rt", encoding="latin-1") as lines:
                found = [re.match(r"(?:%IRREVERSIBLE%)?<U([0-9A-F]+)>\s+((?:/x[0-9a-f]{2})+)\s", line)
                         for line in lines]
        except OSError as error:
            raise SourceMissing(self.name) from error
        self._scalars = {bytes.fromhex(pair[2].replace("/x", "")): int(pair[1], 16) for pair in found if pair}

    def __call__(self, code_bytes):
        return self._scalars.get(code_bytes)
