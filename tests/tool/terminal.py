#!/usr/bin/env python3
"""Runs pvzan as a person does at a terminal, and as a filter: terminal.py PVZAN Terminal|Filter

PVZAN_FAULTS names the library of faults.c; without it, what the system does seldom is not tried."""
import faulthandler
import os
import pathlib
import pty
import random
import re
import resource
import select
import signal
import struct
import subprocess
import sys
import tempfile
import time
import unicodedata
import unittest

TOOL = os.path.abspath(sys.argv.pop(1))
FAULTS = os.environ.get("PVZAN_FAULTS")


def at_terminal(arguments, directory, environment=None):
    """Both outputs on a pseudo-terminal; what they say, and the status."""
    child, terminal = pty.fork()
    if child == 0:
        os.chdir(directory)
        os.execve(TOOL, [TOOL] + arguments, {"TERM": "xterm", "LC_ALL": "C.UTF-8", **(environment or {})})
    with open(terminal, "rb", buffering=0) as screen:
        text = b""
        try:
            while more := screen.read(65536):
                text += more
        except OSError:  # the other end is closed
            pass
    return text.decode("utf-8", "replace"), os.waitstatus_to_exitcode(os.waitpid(child, 0)[1])


def run(arguments, directory, **settings):
    return subprocess.run([TOOL] + arguments, cwd=directory, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                          check=False, **settings)


class Room(unittest.TestCase):
    def setUp(self):
        room = tempfile.TemporaryDirectory()
        self.addCleanup(room.cleanup)
        self.dir = pathlib.Path(room.name)

    def fill(self, files, size):
        text = ("日本語の文章 ABC\r\n" * (size // 20)).encode("cp932")
        for i in range(files):
            (self.dir / f"f{i:04}").write_bytes(text)


class Terminal(Room):
    def test_color_and_excerpt_only_at_a_terminal(self):
        (self.dir / "bad").write_bytes("二行".encode("cp932") + b"\xff\n")
        arguments = ["-f", "cp932", "-o", "x", "bad"]
        seen, status = at_terminal(arguments, self.dir)
        self.assertEqual(status, 1)
        self.assertIn("\x1b[1;31merror:\x1b[0m", seen)
        self.assertIn("    二行▒\r\n        \x1b[1;32m^", seen)  # under the fifth column
        plain = run(arguments, self.dir).stderr.decode()
        self.assertNotIn("\x1b", plain)
        self.assertNotIn("▒", plain)
        self.assertNotIn("\x1b", at_terminal(arguments, self.dir, {"NO_COLOR": "1"})[0])
        self.assertNotIn("\x1b", at_terminal(["--color", "never"] + arguments, self.dir)[0])
        self.assertIn("\x1b[1;31m", run(["--color", "always"] + arguments, self.dir).stderr.decode())

    def test_progress_is_drawn_after_a_second_and_erased(self):
        self.fill(2, 4000)
        (self.dir / "bad").write_bytes(b"\xff")
        os.mkfifo(self.dir / "slow")
        arguments = ["check", "-v", "-f", "cp932", "f0000", "slow", "bad", "f0001"]
        slow = ["timeout", "60", "bash", "-c", "sleep 1.2; echo done > slow"]  # its open waits for a reader
        with subprocess.Popen(slow, cwd=self.dir):
            seen, status = at_terminal(arguments, self.dir)
        self.assertEqual(status, 1)
        bar = re.search(r"\[#+-+\] +\d+ %  2/4 files  \S+ kB  \S+ \S+/s  \d+:\d\d left", seen)
        self.assertIsNotNone(bar, seen)
        self.assertTrue(seen[bar.end():].startswith("\r\x1b[K"), "erased before the next line")
        self.assertTrue(seen.endswith("\r\x1b[K3 passed, 1 failed\r\n"), seen)
        with subprocess.Popen(slow, cwd=self.dir):
            self.assertNotIn(b"left", run(arguments, self.dir).stderr)


class Filter(Room):
    def test_interrupt_leaves_no_temporary_and_keeps_what_is_done(self):
        self.fill(300, 200_000)
        before = {file.name: file.read_bytes() for file in self.dir.iterdir()}
        tool = subprocess.Popen([TOOL, "-i", "-j", "2", "-f", "cp932"] + sorted(before), cwd=self.dir,
                                stderr=subprocess.DEVNULL)
        while any((self.dir / name).read_bytes() == before[name] for name in ("f0000", "f0003")):
            time.sleep(0.001)  # either worker may be held up by the disk
        tool.send_signal(signal.SIGINT)
        self.assertEqual(tool.wait(), -signal.SIGINT)  # a shell tells 130
        self.assertEqual({file.name for file in self.dir.iterdir()}, set(before))
        wanted = before["f0000"].decode("cp932").encode()
        for name, old in before.items():
            self.assertIn((self.dir / name).read_bytes(), (old, wanted))
        self.assertEqual((self.dir / "f0000").read_bytes(), wanted)

    def test_filter_passes_lines_on(self):
        """At once, or, to guess by what has come, after a pause."""
        for arguments, passed in ((["-f", "cp932"], "あ\n"), ([], "ab\n"), ([], "これは日本語の行です\n")):
            tool = subprocess.Popen([TOOL] + arguments, stdin=subprocess.PIPE, stdout=subprocess.PIPE)
            self.addCleanup(tool.communicate)
            for _ in range(3):
                tool.stdin.write(passed.encode("cp932"))
                tool.stdin.flush()
                self.assertTrue(select.select([tool.stdout], [], [], 10)[0])
                self.assertEqual(os.read(tool.stdout.fileno(), 100).decode(), passed)

    def test_a_replaced_file_keeps_what_belongs_to_it(self):
        """What belongs to the file stays, and what its folder gives to new files does not come."""
        def access_list(*entries):  # tag, permissions, id
            return struct.pack("<I", 2) + b"".join(struct.pack("<HHI", *entry) for entry in entries)
        none = 0xFFFFFFFF
        listed = access_list((1, 6, none), (2, 4, 1234), (4, 0, none), (16, 4, none), (32, 0, none))
        root = os.geteuid() == 0
        modes = {"plain": 0o640, "listed": 0o640, "runs": 0o6755}
        for name, mode in modes.items():
            (self.dir / name).write_bytes(b"\x82\xa0\n")
            if root:
                os.chown(self.dir / name, 1234, 1234)
            (self.dir / name).chmod(mode)
        try:
            os.setxattr(self.dir / "listed", "user.note", b"kept")
            os.setxattr(self.dir / "listed", "system.posix_acl_access", listed)
            os.setxattr(self.dir, "system.posix_acl_default", listed)
        except OSError as error:
            print(f"skipped: no attributes here: {error}", flush=True)
            self.skipTest("no attributes")

        def belongings(name):
            path = self.dir / name
            status = path.stat()
            attributes = {key: os.getxattr(path, key) for key in os.listxattr(path)}
            return status.st_mode, status.st_uid, status.st_gid, attributes
        before = {name: belongings(name) for name in modes}
        self.assertEqual(len(before["listed"][3]), 2)
        done = run(["-i", "-f", "cp932"] + list(modes), self.dir)
        self.assertEqual((done.returncode, done.stderr), (0, b""))
        self.assertEqual({name: belongings(name) for name in modes}, before)
        for name in modes:
            with subprocess.Popen([TOOL, "-f", "cp932", "-o", name], cwd=self.dir, stdin=subprocess.PIPE) as tool:
                for _ in range(10_000):
                    if new := [file for file in self.dir.iterdir() if file.name not in modes]:
                        break
                    time.sleep(0.001)
                # The ones who own it, or run it as its owner, are so only once it is theirs.
                self.assertEqual((new[0].stat().st_mode & 0o7777, new[0].stat().st_uid), (0o600, os.geteuid()))
                tool.communicate(b"\x82\xa2\n")
            self.assertEqual((tool.returncode, (self.dir / name).read_text()), (0, "い\n"))
        self.assertEqual({name: belongings(name) for name in modes}, before)
        if root:  # who may not give files away, or make any there, writes into them, or leaves them
            plain = self.dir / "plain"
            plain.chmod(0o666)
            powerless = ["setpriv", "--bounding-set=-chown,-dac_override", TOOL]
            for folder_of, text in ((0, "う"), (1234, "え")):
                os.chown(self.dir, folder_of, folder_of)
                (self.dir / "in").write_text(text)
                for arguments, status in (("-f utf-8 -o plain in", 0), ("-i -t utf-16 plain", 2)):
                    seen = subprocess.run(powerless + arguments.split(), cwd=self.dir, stderr=subprocess.PIPE)
                    self.assertEqual(seen.returncode, status, seen.stderr)
                    self.assertEqual((plain.read_text(), plain.stat().st_uid), (text, 1234))

    def test_trouble_of_one_file_is_told_and_spares_the_others(self):
        """Others write to a file meanwhile; there are no threads; the disk is slow; memory is too small, wherever that
        shows."""
        if not FAULTS:
            self.skipTest("without the faults")

        def with_fault(environment, arguments):
            return run(arguments, self.dir, env={"LD_PRELOAD": FAULTS, **environment})
        self.fill(1, 200)
        old = (self.dir / "f0000").read_bytes()
        done = with_fault({"AT_FSYNC": "echo more >> f0000"}, ["-i", "-f", "cp932", "f0000"])
        self.assertEqual((done.returncode, (self.dir / "f0000").read_bytes()), (2, old + b"more\n"), done.stderr)
        with tempfile.NamedTemporaryFile() as waits:
            slowly = f"echo begun >> {waits.name}; sleep 0.2; echo ended >> {waits.name}"
            for limits in ({"MOST_THREADS": "0"}, {"MOST_THREADS": "1"}, {"AT_FSYNC": slowly}):
                self.fill(40, 2000)
                done = with_fault(limits, ["-i", "-j", "1", "-f", "cp932"] + sorted(os.listdir(self.dir)))
                self.assertEqual((done.returncode, done.stderr), (0, b""))
            self.assertIn(b"begun\nbegun\n", waits.read(), "one waits for the disk behind the other")
        results = set()
        for kilobytes in range(8_000, 18_000, 200):
            self.fill(8, 100_000)
            old, names = (self.dir / "f0000").read_bytes(), sorted(f"f{i:04}" for i in range(8))
            done = run(["-i", "-j", "4", "-f", "cp932"] + names, self.dir, preexec_fn=lambda most=kilobytes * 1024:
                       resource.setrlimit(resource.RLIMIT_AS, (most, most)))
            new = [(self.dir / name).read_bytes() for name in names]
            self.assertIn(done.returncode, (0, 2, 127), done.stderr)  # 127: not even the program has room
            results.add(done.returncode)
            self.assertEqual(len(os.listdir(self.dir)), 40)
            self.assertLessEqual(set(new), {old, old.decode("cp932").encode()})
            self.assertEqual(old in new, done.returncode != 0, done.stderr)
        self.assertLessEqual({0, 2}, results)

    def test_threads_change_nothing(self):
        """-j over files and inside a text: output, messages and their order are those of one thread."""
        chance = random.Random(5)
        lines = ["これは試験です、かな", "short", "俱A𠀋か゚〜①", "a" * 300]
        for encoding in ("cp932", "utf-16-le", "iso-2022-jp", "utf-8"):
            text = bytearray()
            while len(text) < 2_500_000:
                line = (chance.choice(lines) + chance.choice(["\n", "\r\n"])).encode(encoding, "ignore")
                if chance.random() < 0.001:
                    # A set that stands open where the text is cut, or bytes that are no character.
                    kanji = b"\x1b$B" + b"0!\n" * 100_000 + b"\x1b(B\n"
                    line = kanji if "2022" in encoding else line[:2] + b"\xff\xdc" + line[2:]
                text += line
            (self.dir / encoding).write_bytes(text)
            for target, how in (("utf-16", "stop"), ("iso-2022-jp", "hex")):
                arguments = ["-f", encoding.replace("16-le", "16le"), "-t", target, "-e", how, "-v", encoding]
                one, four = (run(["-j", jobs] + arguments, self.dir) for jobs in "14")
                self.assertEqual((one.returncode, one.stderr), (four.returncode, four.stderr), arguments)
                self.assertTrue(one.stdout == four.stdout, arguments)
        # Lines up to and beyond what a thread takes at once; also where the system gives no threads.
        block = 1024 * 1024
        for encoding, line, limit, lengths in (
                ("cp932", b"\x82\xa0ab", "", [0, 1, block, 16 * block - 70_000, 16 * block, 40 * block, 3, 70_000]),
                ("utf-16-le", b"B0a\0", "ulimit -s 1000000000000 && ", [0, 70_000, 9 * block, 17 * block, 3])):
            chance.shuffle(lengths)
            bad = line[:2] + b"\xff\xdc" + "\n".encode(encoding)
            (self.dir / "long").write_bytes(bad.join(line * (length // 4) for length in [30_000] + lengths))
            script = TOOL + f" -f {encoding.replace('16-le', '16le')} -c --json long -j %s 2> told | sha256sum - told"
            one, four = (subprocess.check_output(["bash", "-c", way % jobs], cwd=self.dir)
                         for way, jobs in ((script, 1), (limit + script, 4)))
            self.assertEqual(one, four, (encoding, lengths))
        (self.dir / "long").unlink()
        names = [file.name for file in self.dir.iterdir()] * 3 + ["missing"]
        one, four = (run(["check", "-t", "cp932", "--json", "-j", jobs] + names, self.dir) for jobs in "14")
        self.assertEqual((one.returncode, one.stderr), (four.returncode, four.stderr))
        self.assertTrue(one.stdout == four.stdout)

    @unittest.skipIf(len(os.sched_getaffinity(0)) < 2, "one processor: no two files at a time anyway")
    def test_files_at_a_time(self):
        """Two that wait for their text are open at once where each has an output of its own."""
        for how, at_once in ((["-o", "out/"], True), (["-j", "1", "-o", "out/"], False), (["check"], False)):
            names = [f"{how[0]}{len(how)}{i}" for i in (1, 2)]
            for name in names:
                os.mkfifo(self.dir / name)
            paths = [f"../{self.dir.name}/{name}" for name in names]
            tool = subprocess.Popen([TOOL] + how + ["-f", "cp932", "--"] + paths, cwd=self.dir)
            opened, patience = set(), time.monotonic() + (10 if at_once else 0.5)
            while len(opened) < 2 and time.monotonic() < patience:
                for name in set(names) - opened:
                    try:
                        os.open(self.dir / name, os.O_WRONLY | os.O_NONBLOCK)  # succeeds once there is a reader
                        opened.add(name)
                    except OSError:
                        time.sleep(0.01)
            tool.kill()
            tool.wait()
            self.assertEqual(len(opened), 1 + at_once, how)

    def test_letters_and_marks_are_what_unicode_says(self):
        """Where a target has a character but not its marks, it gets the character: the same that Unicode's own tables
        compose."""
        characters = [c for c in map(chr, range(0xA0, 0x3400)) if unicodedata.normalize("NFC", c) == c]
        text = "\n".join(characters).encode()
        for target in ("cp932", "euc-jp", "iso-2022-jp", "shift_jis-2004", "iso-8859-1", "gbk", "big5", "euc-kr"):
            there = run(["-f", "utf-8", "-t", target, "-e", "hex"], self.dir, input=text).stdout
            back = run(["-f", target], self.dir, input=there).stdout.decode().split("\n")
            held = "\n".join(c for c, b in zip(characters, back) if c == b)
            apart = unicodedata.normalize("NFD", held).encode()
            self.assertNotEqual(apart, held.encode())
            for verb in ([], ["--read-back"]):
                done = run(verb + ["-f", "utf-8", "-t", target], self.dir, input=apart)
                self.assertEqual(done.returncode, 0, done.stderr)
                again = run(["-f", target], self.dir, input=done.stdout).stdout.decode()
                self.assertEqual(unicodedata.normalize("NFC", again), held, target)

    def test_no_policy_eats_a_break_or_a_delimiter(self):
        """Whatever is between them, they come through, and the output is text."""
        chance = random.Random(11)
        parts = [b",", b",", b"\t", b"\n", b"\n", b'"', b"\r\n", b" :a0", b"\x82\xa0", b"\xe3\x81\x82", b"\x8f",
                 b"\x1b$B", b"\x1b(B"]
        for name in run(["-l"], self.dir).stdout.decode().split("\n")[:-1]:
            name = name.split()[0]
            if re.match("U..-[1-4]|.*FIX|OASYS-O|IBM|ARMSCII|.*JP-web", name):
                continue  # of several bytes, not those of ASCII alone, or faults among kanji
            kept = b"\r" if name == "HZ" else b"\r\n" if re.match(".*2022|CP502|UTF-7", name) else b",\t\r\n\": "
            text = b"".join(chance.choice(parts) if chance.random() < 0.6 else bytes([chance.randrange(256)])
                            for _ in range(3000))
            for how, target in ("subst", "cp932"), ("ref", "iso-2022-jp"), ("hex", "gb18030"), ("skip", "utf-8"):
                done = run(["-q", "-e", how, "-f", name, "-t", target], self.dir, input=text)
                again = run(["-f", target], self.dir, input=done.stdout)
                self.assertEqual((done.returncode, again.returncode, again.stderr), (0, 0, b""), (name, how))
                parts_kept = [bytes(b for b in whole if b in kept) for whole in (again.stdout, text)]
                self.assertEqual(*parts_kept, (name, how))

    @unittest.skipIf(re.search(rb"__[at]san_init", pathlib.Path(TOOL).read_bytes()), "a sanitizer takes memory")
    def test_memory_does_not_grow_with_the_input(self):
        script = "yes '日本語の文章、長い行' | head -c 60000000 | /usr/bin/env python3 -c \"" \
                 "import resource, subprocess, sys; subprocess.run(sys.argv[1:], stdout=subprocess.DEVNULL); " \
                 "print(resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss)\" "
        for arguments in ("-t cp932", "-t iso-2022-jp --read-back", "-f utf-8 -t utf-16"):
            peak = subprocess.check_output(["bash", "-c", script + TOOL + " " + arguments])
            self.assertLess(int(peak), 16 * 1024, arguments)


if __name__ == "__main__":
    faulthandler.dump_traceback_later(300, exit=True)  # tells where it stopped
    unittest.main()
