"""What the program that builds charset directories refuses and writes, and what "pvzan list --check" says of them:
builder_test.py BUILD_CHARSETS PVZAN SOURCE BASE2"""
import ctypes
import os
import pathlib
import shutil
import signal
import struct
import subprocess
import sys
import tempfile
import unittest

BUILDER, TOOL, SOURCE, BASE2 = map(pathlib.Path, sys.argv[1:])
NOT_HERE = (77, 127)  # the exit statuses of a derivation that lacks a source or a program


def run(*command, given=b""):
    done = subprocess.run(command, input=given, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False)
    return done.returncode, done.stdout.decode("utf-8", "replace")


def rows_of(file):
    """The rows of a table in tests/data: file, a text and its replacement, as bytes with escapes, and a message."""
    lines = [line for line in (SOURCE / "tests/data" / file).read_text().splitlines() if line[0] != "#"]
    assert len(lines) > 15
    for line in lines:
        file, text, by, message = line.split("\t")
        yield line, file, *(part.encode().decode("unicode_escape").encode("latin-1") for part in (text, by)), message


class Room(unittest.TestCase):
    def setUp(self):
        room = tempfile.TemporaryDirectory()
        self.addCleanup(room.cleanup)
        self.room = pathlib.Path(room.name)

    def spoil(self, folder, file, text, by):
        """A text of the file, the whole file where the text is empty, is replaced."""
        path = self.room / folder / file
        old = path.read_bytes() if path.exists() else b""
        self.assertIn(text, old)
        path.write_bytes(old.replace(text, by, 1) if text else by)


class Builder(Room):
    def source(self):
        shutil.rmtree(self.room)
        shutil.copytree(SOURCE / "tests/data/charsets", self.room / "source")

    def build(self, *overlay):
        return run(BUILDER, self.room / "source", self.room / "output", *overlay)

    def output(self, folder="output"):
        top = self.room / folder
        return {str(file.relative_to(top)): file.read_bytes() for file in top.rglob("*") if file.is_file()}

    def test_faults_are_named_with_file_and_line(self):
        for row, file, text, by, message in rows_of("charset_faults.tsv"):
            with self.subTest(row):
                self.source()
                self.spoil("source", file, text, by)
                status, said = self.build()
                place = str(self.room / "source") + "/" + (file if message[0] == ":" else "")
                self.assertEqual((status, said[:len(place + message)]), (1, place + message))
                self.assertFalse((self.room / "output").exists())

    def test_overlays(self):
        """One that changes a pair of more.tsv, and leaves out the one charset that uses it or not."""
        good = "%bytes 21 21-7E\n%changes 1\n2122\t3046\n"
        for table, changes, omit, message in (
                ("more", good, "# none\n", None),
                ("more", good.replace("changes", "pairs"), "mini.xml\nshift.xml\n", None),
                ("more", good.replace("2122", "2124"), "\n", "tables/more.tsv:3: the table has no two-way code 2124"),
                ("more", good.replace("3046", "3044"), "\n", "tables/more.tsv:3: the table already has this pair"),
                ("more", good.replace("changes 1", "changes 2"), "\n", "tables/more.tsv: declares 2 pairs, has 1"),
                ("less", good, "\n", "tables/less.tsv: there is no such table to change"),
                ("more", good, "\nnone.xml\n", "omit:2: there is no definition none.xml")):
            with self.subTest(message or omit):
                self.source()
                overlay = self.room / "overlay"
                (overlay / "tables").mkdir(parents=True)
                (overlay / "tables" / f"{table}.tsv").write_text(changes)
                (overlay / "omit").write_text(omit)
                status, said = self.build(overlay)
                if message:
                    self.assertEqual((status, said.startswith(f"{overlay}/{message}")), (1, True), said)
                    continue
                self.assertEqual(status, 0, said)
                used = {"mini.xml", "more.set", "more.txt", "more.cmp", "signs.txt"} & set(self.output())
                self.assertEqual(len(used), 0 if "mini.xml\n" in omit and "none" not in omit else 5)
                if used:
                    self.assertIn("2122\t3046", self.output()["more.txt"].decode("utf-16"))
        self.source()
        self.spoil("source", "tables/more.tsv", b"%pairs", b"%changes")
        self.assertIn("more.tsv: only an overlay has %changes", self.build()[1])

    def test_numbers_that_collide(self):
        """4000 plus each byte times its place: 'o' + 2 'w' + 3 'n' is also 'm' + 2 'x' + 3 'n'."""
        self.source()
        sets = self.room / "source" / "sets"
        (sets / "mxn.set").write_bytes((sets / "own.set").read_bytes().replace(b"Own", b"mxn"))
        status, said = self.build()
        self.assertEqual((status, "own.set: the coded sets mxn and Own share the number" in said), (1, True), said)

    def test_output_is_whole_and_new(self):
        self.source()
        (self.room / "output").mkdir()
        for name in ("old.xml", "old.set", "old.txt", "old.cmp", "kept.md"):
            (self.room / "output" / name).write_text("stale")
        self.assertEqual(self.build(), (0, ""))
        files = self.output()
        self.assertEqual([name for name, text in files.items() if text == b"stale"], ["kept.md"])
        # What only further charsets use lies where they do, and is named so.
        self.assertTrue({"further/rest.cmp", "latin.set"} <= files.keys())
        for named in ("latin.set", "further/rest.set", "further/rest.txt"):
            self.assertIn(f'"{named}"', files["further/other.xml"].decode("utf-16"))
        self.assertEqual(files["more.txt"].decode("utf-16"), "2121\t3042\r\n2122\t3044\r\n2123\t3045\r\n")
        # The pair that only decodes comes first, so that the other one encodes.
        cache = files["latin.cmp"]
        self.assertEqual((len(cache), struct.unpack("=3I", cache[:12])), (129 * 8, (0x80, 0x41, 0)))

    def killed_at_call(self, n):
        """Runs the builder up to its nth call of the system; False when it ended before."""
        trace = ctypes.CDLL(None).ptrace
        trace_me, next_call = 0, 24
        child = os.fork()
        if child == 0:
            trace(trace_me, 0, None, None)
            os.execv(BUILDER, [BUILDER, self.room / "source", self.room / "output"])
        while os.WIFSTOPPED(os.waitpid(child, 0)[1]):
            n -= 1
            if n < 0:
                os.kill(child, signal.SIGKILL)
                os.waitpid(child, 0)
                return True
            trace(next_call, child, None, None)
        return False

    def test_killed_at_any_call_it_leaves_no_part(self):
        """There is the old directory, the new one, or none: a table that is not there would let its codes through."""
        self.source()
        self.assertEqual(self.build()[0], 0)
        (self.room / "output" / "kept.md").touch()
        (self.room / "output" / "further" / "kept.md").touch()
        shutil.copytree(self.room / "output", self.room / "old")
        self.spoil("source", "tables/more.tsv", "2121\t3042\tあ".encode(), b"2121\t3043")
        self.assertEqual(self.build()[0], 0)
        old, new, found, n = self.output("old"), self.output(), [], 0
        self.assertNotEqual(old, new)
        killed = True
        while killed:
            shutil.rmtree(self.room / "output", ignore_errors=True)
            shutil.copytree(self.room / "old", self.room / "output")
            killed = self.killed_at_call(n)
            if (self.room / "output").exists():
                found.append(self.output())
                self.assertIn(found[-1], (old, new), f"killed at call {n}")
            n += 1
        self.assertGreater(found.count(old), 100)
        self.assertGreater(found.count(new), 1)
        self.assertEqual({file.name for file in self.room.iterdir()}, {"source", "old", "output"})

    def test_caches_equal_the_librarys_own(self):
        """Converting with all charsets loads all their texts, of which the library then writes the caches."""
        shutil.copytree(BASE2, self.room, dirs_exist_ok=True, ignore=shutil.ignore_patterns("*.cmp"))
        names = run(TOOL, "-l", "--charset-dir", self.room)[1].split("\n")[:-1]
        names = {name.split()[0] for name in names}
        for name in names:
            run(TOOL, "--charset-dir", self.room, "-c", "-f", "utf-8", "-t", name, given="あ☃\U0010FFFD".encode())
        caches = {file.relative_to(self.room) for file in self.room.rglob("*.cmp")}
        self.assertEqual(caches, {file.relative_to(BASE2) for file in BASE2.rglob("*.cmp")})
        for name in caches:
            self.assertEqual((self.room / name).read_bytes(), (BASE2 / name).read_bytes(), name)

    def test_derivation_reproduces_the_tables(self):
        """Of a copy with three faults it complains of these and of nothing else."""
        for part in ("tables", "further"):
            shutil.copytree(SOURCE / "charsets" / part, self.room / part)
        self.spoil("further", "koi8-r.tsv", b"\t", b"\t\t")
        (self.room / "tables/stray.tsv").touch()
        (self.room / "tables/jis.tsv").unlink()
        status, said = run(sys.executable, "-B", SOURCE / "charsets/derive.py", "--check", self.room)
        if status in NOT_HERE:
            print("skipped: no Perl or iconv here to derive the tables: " + said)
            return
        faults = ("further/koi8-r.tsv is not what the sources say", "tables/jis.tsv is not what the sources say",
                  "tables/stray.tsv is not derived here")
        self.assertEqual((status, said), (1, "".join(f"derive.py: {self.room}/{fault}\n" for fault in faults)))


class ListCheck(Room):
    """"pvzan list --check" of a directory with one sound charset of one set and table, or with what a test spoils."""
    FILES = {"private.xml": '<?xml version="1.0" encoding="UTF-16"?>\r\n'
             '<!DOCTYPE charset [<!ENTITY set-one SYSTEM "one.set"> <!ENTITY table-one SYSTEM "one.txt"> ]>\r\n'
             '<charset><name>private</name><rule construle="constSAME" destrule="destSAME"/>'
             '<baseset>&set-one;</baseset></charset>\r\n',
             "one.set": '<?xml version="1.0" encoding="UTF-16"?>\r\n<subseta><name>One</name><lang domain="en"/>'
             '<code bytenum="1" linear="41-44"/><srtable>&table-one;</srtable></subseta>\r\n',
             "one.txt": "41 61\r\n42 62\r\n43 63\r\n"}

    def write(self, file="one.txt", text="", by="", length=None):
        self.assertIn(text, self.FILES[file])
        for name, content in self.FILES.items():
            content = content.replace(text, by) if name == file and text else content
            (self.room / name).write_bytes(b"\xff\xfe" + content[:length if name == file else None].encode("utf-16-le"))

    def expect(self, complaint):
        status, said = run(TOOL, "list", "--check", self.room)
        self.assertIn(complaint, said)
        self.assertEqual(status, 1)

    def test_what_is_wrong_and_where(self):
        for row, file, text, by, complaint in rows_of("check_faults.tsv"):
            with self.subTest(row):
                self.write(file, text.decode() or self.FILES[file], by.decode())
                self.expect(complaint)

    def test_missing_files_and_other_caches(self):
        self.write()
        self.assertEqual(run(TOOL, "list", "--check", self.room), (0, "private.xml: accepted as private (7015)\n"))
        (self.room / "one.cmp").write_text("AAAABBBB")
        self.expect("one.cmp: the cache differs from its table")
        shutil.copy(self.room / "private.xml", self.room / "second.xml")
        self.expect("second.xml: not accepted: private is already defined by private.xml")
        for name, what in (("one.txt", "table"), ("one.set", "file")):
            (self.room / name).unlink()
            self.expect(f"{name}: the {what} is missing")
        (self.room / "private.xml").write_text("<charset>utf-8</charset>")
        self.expect("private.xml: not accepted: the file is not in UTF-16, UCS-2 or UCS-4")

    def test_numbers_that_collide(self):
        """They are sums of letters times positions: 97 + 2 * 98 = 99 + 2 * 97."""
        for name in ("ab", "ca"):
            self.write("private.xml", "private", name)
            (self.room / "private.xml").rename(self.room / f"{name}.xml")
        self.expect("ca.xml: the name ca has the number 4293, as ab does")

    def test_it_agrees_with_the_library_on_cut_definitions(self):
        for length in range(0, len(self.FILES["private.xml"]), 7):
            self.write("private.xml", length=length)
            status, said = run(TOOL, "list", "--check", self.room)
            listed = subprocess.run([TOOL, "list", "--charset-dir", self.room], capture_output=True).stdout
            self.assertEqual((status in (0, 1), ": accepted as " in said), (True, listed != b""), (length, said))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
