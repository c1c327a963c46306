#!/usr/bin/env python3
"""Runs console transcripts: every line "$ command" is run by bash, and what it prints must be what stands below it.

    console.py PVZAN [--rewrite] TRANSCRIPT...

Both outputs are joined; a status other than 0 follows as "[1]". --rewrite puts in what was printed. All commands of a
transcript share a directory; $SOURCE is the project's. Lines before the first command, or with "# ", are comments.
"""
import difflib
import os
import pathlib
import subprocess
import sys
import tempfile


def run(command, directory, environment):
    done = subprocess.run(["bash", "-c", command], cwd=directory, env=environment, stdin=subprocess.DEVNULL,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=120)
    text = done.stdout.decode("utf-8", "backslashreplace").replace("\r", "\\r").replace("\0", "\\0")
    text = "".join("⏎\n" if line == "\n" else line for line in text.splitlines(keepends=True))
    if text and not text.endswith("\n"):
        text += "\\\n"  # no final line feed
    return text + (f"[{done.returncode}]\n" if done.returncode else "")


def replay(transcript, environment):
    """The transcript as it is now."""
    result = []
    with tempfile.TemporaryDirectory() as directory:
        copying = True  # comments, until a command's output begins
        for line in transcript.splitlines(keepends=True):
            if line.startswith("$ "):
                result += [line, run(line[2:], directory, environment)]
                copying = False
            elif copying or line.startswith("# ") or line == "\n":
                result.append(line)
    return "".join(result)


def main():
    tool, *names = sys.argv[1:]
    rewrites = "--rewrite" in names
    environment = {"PATH": f"{os.path.dirname(os.path.abspath(tool))}:{os.environ['PATH']}",
                   "SOURCE": str(pathlib.Path(__file__).resolve().parents[2]), "LC_ALL": "C.UTF-8", "TERM": "xterm"}
    for name in ("ASAN_OPTIONS", "UBSAN_OPTIONS", "TSAN_OPTIONS"):
        if name in os.environ:
            environment[name] = os.environ[name]
    wrong = False
    for path in map(pathlib.Path, names[rewrites:]):
        expected = path.read_text()
        actual = replay(expected, environment)
        if rewrites:
            path.write_text(actual)
        elif actual != expected:
            wrong = True
            sys.stdout.writelines(difflib.unified_diff(expected.splitlines(True), actual.splitlines(True),
                                                       str(path), "now"))
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())
