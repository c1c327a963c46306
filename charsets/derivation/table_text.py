"""Code grids, and the text form of a mapping table (README.md describes it)."""

import itertools
import unicodedata


class Grid:
    """The codes whose bytes each lie in a given set, in ascending order: Grid("81-FE 40-7E,80-FE")."""

    def __init__(self, pattern):
        self.pattern = pattern
        self._columns = [self._column(column) for column in pattern.split()]

    @staticmethod
    def _column(pattern):
        values = []
        for part in pattern.split(","):
            low, _, high = part.partition("-")
            values += range(int(low, 16), int(high or low, 16) + 1)
        return values

    @property
    def digits(self):
        return 2 * len(self._columns)

    def codes(self):
        for code_bytes in itertools.product(*self._columns):
            yield int.from_bytes(code_bytes, "big")

    def following(self, code):
        """The next code of the grid, None behind the last."""
        code_bytes = list(code.to_bytes(len(self._columns), "big"))
        for place in reversed(range(len(self._columns))):
            column = self._columns[place]
            index = column.index(code_bytes[place]) + 1
            if index < len(column):
                code_bytes[place] = column[index]
                return int.from_bytes(bytes(code_bytes), "big")
            code_bytes[place] = column[0]
        return None


def is_private(scalar):
    return 0xE000 <= scalar <= 0xF8FF or 0xF0000 <= scalar


def any_scalar(_scalar):
    return True


class Table:
    """One mapping table: pairs that go both ways, pairs that only decode since there is another code for their
    character, and pairs whose characters are not written. A code's character is a scalar, or a letter and a mark."""

    def __init__(self, name, title, grid, pairs, *, decode_only=(), read_only=(), origin, extra=False,
                 charset=(), linear=is_private, counted=False):
        self.name = name
        self.title = title
        self.grid = Grid(grid)
        self.pairs = sorted(dict(pairs).items())
        self.decode_only = sorted(dict(decode_only).items())
        self.read_only = sorted(dict(read_only).items())
        self.origin = origin
        self.extra = extra
        self.charset = charset  # what it says of the charset that is nothing but this table
        self.linear = linear  # which scalars may be written as ranges
        self.counted = counted

    def mapping(self):
        return dict(self.decode_only + self.read_only + self.pairs)

    def _runs(self, pairs):
        """Yields (first code, last code, first scalar) with neighbours joined where they are linear."""
        first = last = scalar = None
        count = 0
        for code, value in pairs:
            if (first is not None and isinstance(value, int) and self.linear(value)
                    and isinstance(scalar, int) and self.linear(scalar) and self.grid.following(last) == code
                    and value == scalar + count):
                last, count = code, count + 1
                continue
            if first is not None:
                yield first, last, scalar
            first = last = code
            scalar, count = value, 1
        if first is not None:
            yield first, last, scalar

    @staticmethod
    def _character(scalars):
        """In numbers, and for people."""
        letters = [scalars] if isinstance(scalars, int) else scalars
        numbers = "+".join(f"{letter:04X}" for letter in letters)
        visible = unicodedata.category(chr(letters[0]))[0] in "LNPS"
        return numbers + ("\t" + "".join(map(chr, letters)) if visible else "")

    def _lines(self, pairs):
        for first, last, scalar in self._runs(pairs):
            code = f"{first:0{self.grid.digits}X}"
            if first != last:
                yield f"{code}..{last:0{self.grid.digits}X}\t{scalar:04X}"
            else:
                yield f"{code}\t{self._character(scalar)}"

    def text(self):
        header = [f"# {self.title}", "#"]
        header += [f"# {line}" if line else "#" for line in self.origin.strip().split("\n")]
        header += ["", *self.charset[:1], f"%bytes {self.grid.pattern}", *self.charset[1:]]
        if self.extra:
            header += ["%extra"]
        if self.counted:
            header += ["%linear"]
        sections = [("decode-only", self.decode_only), ("read-only", self.read_only), ("two-way", self.pairs)]
        header += [f"%pairs {sum(len(pairs) for _, pairs in sections)}"]
        if len(self.pairs) < sum(len(pairs) for _, pairs in sections):
            for name, pairs in sections[:2]:
                if pairs:
                    header += [f"%{name} {len(pairs)}", "", *self._lines(pairs), ""]
            header += [f"%two-way {len(self.pairs)}"]
        return "\n".join([*header, "", *self._lines(self.pairs)]) + "\n"
