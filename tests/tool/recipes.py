#!/usr/bin/env python3
"""Runs the recipes of README.md and docs/tool.md as they stand there, with good and with bad text:

    recipes.py PVZAN LIBRARY CHARSETS SOURCE Commands|Parallel|PostgreSQL|Spark

An indented line, or a command in a table, that no test here knows is an error.
"""
import faulthandler
import gzip
import os
import pathlib
import pwd
import re
import shutil
import subprocess
import sys
import tempfile
import time
import unittest

TOOL, LIBRARY, CHARSETS, SOURCE = map(pathlib.Path, sys.argv[1:5])
LINES = [f"{i},日本語の表と、文字コードの話" for i in range(3000)]
TEXT = "\n".join(LINES) + "\n"
UTF8, CP932 = TEXT.encode(), TEXT.encode("cp932")
SERVER = "/usr/lib/postgresql/15/bin"

# Where the result is, what it is with good text, and the status with bad.
COMMANDS = {
    "pvzan letter.txt": ("-", UTF8, 1),
    "pvzan -f windows-31j letter.txt -o letter.utf8.txt": ("letter.utf8.txt", UTF8, 1),
    "pvzan check -t windows-31j memo.txt": ("memo.txt", UTF8, 1),
    "pvzan -t windows-31j --similar -e ref memo.txt -o memo.sjis": ("memo.sjis", CP932, 0),
    "pvzan -r -i=.orig --eol lf src/": ("src/text.csv", UTF8, 1),
    "pvzan detect *.txt; pvzan list; pvzan list --check my-charsets": ("letter.txt", CP932, 0),
    "pvzan -f sjis x": ("-", UTF8, 1),
    "pvzan x": ("-", UTF8, 1),
    "pvzan detect x": ("x", CP932, 0),
    "pvzan repair x": ("-", UTF8, 0),
    "pvzan -i -t windows-31j --eol crlf x": ("x", CP932.replace(b"\n", b"\r\n"), 1),
    "pvzan -c -f cp932 -t euc-jp x": ("-", TEXT.encode("euc_jp"), 0),
    "pvzan -t ascii -e subst=? x": ("-", TEXT.encode("ascii", "replace"), 1),
    "pvzan check -r -t windows-31j archive/": ("archive/text.csv", CP932, 1),
    "pvzan -r -j 8 -o archive.utf8 archive/": ("archive.utf8/archive/text.csv", UTF8, 1),
    "find . -name '*.csv' -print0 | xargs -0 -P 4 pvzan -i -f cp932": ("src/text.csv", UTF8, 123),
    "pvzan -f windows-31j -j 8 big.csv -o big.utf8.csv": ("big.utf8.csv", UTF8, 1),
    "hadoop jar hadoop-streaming.jar -D mapreduce.job.reduces=0 -input in -output out -mapper 'pvzan -f windows-31j'":
        ("out/part", UTF8, 1),
}  # fmt: skip
# A job of two pieces, which keeps nothing when one fails.
HADOOP = """#!/bin/bash
[ "$4 $5 $7 $9" = "mapreduce.job.reduces=0 -input -output -mapper" ] || exit 9
split -n l/2 "$6/text.csv" piece. && mkdir "$8" || exit 9
for piece in piece.*; do eval "${10}" <$piece >>"$8/part" || { rm -r "$8"; exit 1; }; done
"""


def recipes():
    """Commands of the indented lines, and of tables: what it is there in place of, if anything."""
    found = {}
    readme = (SOURCE / "README.md").read_text().split("## The library")[0].split("## The tool")[1]
    for text in (readme, (SOURCE / "docs/tool.md").read_text()):
        for lines in re.findall(r"^    (\S.*(?:\n     .*)*)", text.split("    import pvzan")[0], re.M):
            found[re.sub(r"  +# .*", "", lines)] = None
        for left, right in re.findall(r"^\| `([^`]*)`[^|]*\| `(pvzan[^`]*)`", text, re.M):
            found[right] = left
    return found


class Room(unittest.TestCase):
    def setUp(self):
        room = tempfile.TemporaryDirectory()
        self.addCleanup(room.cleanup)
        self.dir, self.system = pathlib.Path(room.name) / "here", pathlib.Path(room.name)
        path = f"{self.system}:{TOOL.parent}:{SERVER}:{os.environ['PATH']}"
        self.environment = {**os.environ, "PATH": path, "LC_ALL": "C.UTF-8"}
        (self.system / "hadoop").write_text(HADOOP)
        (self.system / "hadoop").chmod(0o755)
        self.prepare()

    def prepare(self, bad=False, command=""):
        """The directory and the texts of the recipes anew."""
        shutil.rmtree(self.dir, ignore_errors=True)
        self.dir.mkdir()
        (self.dir / "my-charsets").symlink_to(CHARSETS)
        at = CP932.index(b"\n", len(CP932) * 3 // 4)
        data = CP932[:at] + b"\xff" * bad + CP932[at:]
        for name in ("letter.txt", "x", "big.csv", "t.csv", "src/text.csv", "archive/text.csv", "in/text.csv"):
            (self.dir / name).parent.mkdir(exist_ok=True)
            (self.dir / name).write_bytes(data)
        (self.dir / "memo.txt").write_bytes(UTF8 + "☃".encode() * bad)
        (self.dir / "t.csv.gz").write_bytes(gzip.compress(data))
        if "repair" in command:
            (self.dir / "x").write_bytes(UTF8.decode("latin-1").encode())

    def run_in(self, command):
        done = subprocess.run(["bash", "-c", command], cwd=self.dir, env=self.environment, stdin=subprocess.DEVNULL,
                              capture_output=True, timeout=120)
        return done.returncode, done.stdout, done.stderr.decode()

    def try_command(self, command, result, wanted, bad_status):
        target = self.dir / result
        self.prepare(command=command)
        status, output, messages = self.run_in(command)
        self.assertEqual(status, 0, command + messages)
        self.assertTrue((output if result == "-" else target.read_bytes()) == wanted, command)
        self.prepare(bad=True, command=command)
        before = target.read_bytes() if target.is_file() else None
        status, _, messages = self.run_in(command)
        self.assertEqual(status, bad_status, command + messages)
        if status != 0 and result != "-":
            self.assertTrue((target.read_bytes() if target.exists() else None) == before, command)


class Commands(Room):
    def test_commands(self):
        shown = recipes()
        others = {command for command in shown if re.search("psql|^parallel", command)}
        self.assertEqual(set(shown) - others, set(COMMANDS))
        for command, row in COMMANDS.items():
            with self.subTest(command):
                self.try_command(command, *row)
                if " -f " in (shown[command] or ""):
                    self.prepare()
                    self.assertEqual(self.run_in(shown[command])[1], row[1])


class Parallel(Room):
    def test_parallel(self):
        command, = (command for command in recipes() if command.startswith("parallel"))
        self.try_command(command, "big.utf8.csv", UTF8, 1)


class PostgreSQL(Room):
    def setUp(self):
        """A server of its own, for five minutes at most. It neither runs as root nor reads root's files."""
        super().setUp()
        for file in (TOOL, LIBRARY):
            shutil.copy(file, self.system)
        shutil.copytree(CHARSETS, self.system / "base2")
        place = str(self.system)
        self.environment.update(LD_LIBRARY_PATH=place, PVZAN_CHARSET_DIR=place + "/base2", PGHOST=place,
                                PGUSER="postgres")
        rights = {}
        if os.geteuid() == 0:
            user = pwd.getpwnam("postgres")
            os.chown(place, user.pw_uid, user.pw_gid)
            rights = {"user": user.pw_uid, "group": user.pw_gid, "extra_groups": []}
        settings = {"env": self.environment, "cwd": place, "stdout": subprocess.DEVNULL, **rights}
        subprocess.run("initdb -D data -A trust -E UTF8 --locale=C -N -U postgres".split(), check=True, **settings)
        command = f"timeout -s QUIT 300 postgres -D data -k {place} -c listen_addresses= -F -c log_min_messages=panic"
        server = subprocess.Popen(command.split(), **settings)
        self.addCleanup(server.wait)
        self.addCleanup(server.terminate)
        while self.run_in("psql -c 'create table t (number int, line text)'")[0] != 0:
            self.assertIsNone(server.poll())
            time.sleep(0.1)

    def loaded(self):
        return self.run_in("psql -Atc 'select number, line from t order by number' && psql -qc 'truncate t'")[1]

    def test_all_rows_or_none(self):
        for command in recipes():
            if "psql" in command:
                with self.subTest(command):
                    command = command.replace("/data/", f"{self.dir}/")
                    self.prepare()
                    status, _, messages = self.run_in(command)
                    self.assertEqual((status, self.loaded() == UTF8.replace(b",", b"|")), (0, True), messages)
                    self.prepare(bad=True)
                    self.assertEqual((self.run_in(command)[0], self.loaded()), (1, b""))
                    (self.dir / "t.csv.gz").write_bytes(gzip.compress(CP932)[:-8])  # still with all of the text
                    self.assertEqual((self.run_in(command)[0], self.loaded()), (1, b""))


class Spark(Room):
    def test_bytes_stay_bytes(self):
        sys.path.insert(0, str(SOURCE / "bindings/python"))
        page = (SOURCE / "docs/tool.md").read_text()
        recipe = re.search(r"(^    import pvzan\n(?:    .*\n|\n)*)", page, re.M).group(1)
        files = {"a": CP932, "b": "終".encode("cp932")}

        class Cluster:
            def binaryFiles(self, _):
                return self

            def mapPartitions(self, function):
                return list(function(iter(files.items())))

        names = {"sc": Cluster()}
        exec(re.sub("^    ", "", recipe, flags=re.M), names)
        self.assertTrue(names["rdd"] == LINES + ["終"])
        files["b"] = b"\x8fI\x8f"
        with self.assertRaisesRegex(ValueError, "^b: .* position 2"):
            names["sc"].mapPartitions(names["lines"])
        rows = {"data": [CP932, None, b"\xff", b"\x82"]}
        frame = type("Frame", (dict,), {"assign": lambda self, **columns: {**self, **columns}})(rows)
        names["df"] = type("Data", (), {"mapInPandas": lambda self, function, _: list(function([frame]))})()
        recipe = re.search(r"(^    def texts.*\n(?:    .*\n|\n)*)", page, re.M).group(1)
        exec(re.sub("^    ", "", recipe, flags=re.M), names)
        self.assertEqual(names["table"], [{**rows, "text": [UTF8, None, None, None], "fault": [0, 0, 1, 2]}])


if __name__ == "__main__":
    faulthandler.dump_traceback_later(300, exit=True)
    unittest.main(argv=sys.argv[:1] + sys.argv[5:])
