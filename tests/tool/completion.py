#!/usr/bin/env python3
"""Asks the completion of bash, fish or zsh for words: completion.py PVZAN DIRECTORY-OF-THE-SCRIPTS SHELL"""
import faulthandler
import os
import pty
import re
import shutil
import subprocess
import sys
import tempfile

tool, scripts = map(os.path.abspath, sys.argv[1:3])
faulthandler.dump_traceback_later(300, exit=True)
os.environ["PATH"] = os.path.dirname(tool) + ":" + os.environ["PATH"]

# What is typed, and the word that is to come; "-" before one that must not.
CASES = [("-f windows-31", "windows-31j"), ("-t shift_jis-2", "shift_jis-2004"), ("onef", "onefile"),
         ("--from utf-8,euc-jp-f", "utf-8,euc-jp-fix"), ("--recu", "--recursive"), ("detect --js", "--json"),
         ("detect --recu", "-recursive"), ("det", "detect"), ("list koreank", "koreanksc"), ("--eol k", "keep"),
         ("--color al", "always"), ("-e re", "ref"), ("check -t cp949", "cp949"), ("-o one", "onefile")]


def in_bash(typed):
    words = typed.split(" ")
    script = '. "$0"; COMP_WORDS=(pvzan "$@") COMP_CWORD=$#; _pvzan; printf "%s\\n" "${COMPREPLY[@]}"'
    return subprocess.check_output(["bash", "-c", script, f"{scripts}/completion.bash"] + words, text=True)


def in_fish(typed):
    script = f"source {scripts}/completion.fish; complete -C 'pvzan {typed}'"
    return subprocess.check_output(["fish", "--no-config", "-c", script], text=True)


def in_zsh(typed):
    """At a terminal: completion lives in its line editor. Tab, then the key that lists what fits."""
    child, terminal = pty.fork()
    if child == 0:
        os.environ.update(TERM="dumb", PS1="", LINES="50", COLUMNS="300")
        os.execvp("zsh", ["zsh", "-f", "-i"])
    os.write(terminal, b"fpath=($PWD $fpath); autoload -Uz compinit; compinit -u -d $PWD/dump; bindkey -e; "
             b"LISTMAX=999; echo re''ady\n")
    text = b""

    def read_until(mark):
        nonlocal text
        while mark not in text:
            text += os.read(terminal, 65536)
        text = text.split(mark, 1)[1]
    read_until(b"ready\r\n")
    # The line with its completion, as an argument of echo.
    os.write(terminal, f"pvzan {typed}\t".encode() + b"\x01echo be''gun \x05 en''ded\n")
    seen = b""
    while not re.search(rb"begun (.*) ended", seen):
        seen += os.read(terminal, 65536)
    os.write(terminal, b"exit\n")
    os.close(terminal)
    os.waitpid(child, 0)
    return re.search(rb"begun (.*) ended", seen).group(1).decode()


failed = False
with tempfile.TemporaryDirectory() as room:
    os.chdir(room)
    open("onefile", "w").close()
    shutil.copy(f"{scripts}/completion.zsh", "_pvzan")
    for typed, wanted in CASES:
        forbidden = wanted.startswith("-r")
        answer = {"bash": in_bash, "fish": in_fish, "zsh": in_zsh}[sys.argv[3]](typed)
        words = re.split(r"[ \t\n]+", answer)
        there = ("-" * forbidden + wanted) in words
        if there == forbidden:
            failed = True
            print(f"{typed!r} gives {answer!r}, {'not' * forbidden} {wanted!r} was expected")
sys.exit(failed)
