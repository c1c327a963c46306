"""Compares a derived mapping with what another system says, code by code."""


class UnexpectedDifference(Exception):
    pass


def show(scalar):
    return "nothing" if scalar is None else f"U+{scalar:04X}"


def cross_check(name, mapping, codes, to_bytes, source, expected=None, refused=lambda scalar: False):
    """Over `codes`, mapped or not, `source` must agree with `mapping` but for the differences in `expected`
    (code: the scalar that the source gives, None for nothing) and the scalars that it refuses as a group."""
    expected = expected or {}
    problems = []
    for code in codes:
        ours = mapping.get(code)
        theirs = source(to_bytes(code))
        if code in expected:
            if theirs != expected[code] or theirs == ours:
                problems.append(f"{code:X}: {source.name} was expected to say "
                                f"{show(expected[code])}, unlike us ({show(ours)}); it says {show(theirs)}")
        elif theirs is None and ours is not None and refused(ours):
            pass
        elif ours != theirs:
            problems.append(f"{code:X}: {show(ours)}, but {source.name} says {show(theirs)}")
    if problems:
        raise UnexpectedDifference("\n".join([f"{name}: {len(problems)} differences", *problems[:40]]))


def expect_count(name, mapping, count):
    if len(mapping) != count:
        raise UnexpectedDifference(f"{name}: {len(mapping)} pairs, expected {count}")
