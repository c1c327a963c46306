"""Runs what documents show, and compares it with what they say it prints.

In Markdown a block of c, cpp, python or console is run; an output block behind it is what it prints. A
C++ block is the body of a function, a C block without main is left alone. Links and paths lead
somewhere. In manual pages the blocks between .EX and .EE that have a main are C programs, and the next
such block is their output; a block behind a comment "file: NAME" is that file.
"""

import os
import re
import subprocess
import sys
import tempfile

HEADERS = "#include <pvzan.hpp>\n#include <fstream>\n#include <iostream>\n#include <sstream>\n"


def build(language, code, place, settings):
    source, program = os.path.join(place, f"program.{language}"), os.path.join(place, f"program_{language}")
    with open(source, "w", encoding="utf-8") as file:
        file.write(code)
    compiler = [settings["CXX"], "-std=c++17"] if language == "cpp" else [settings["CC"], "-std=c99"]
    library = os.path.dirname(settings["PVZAN_LIBRARY"])
    command = [*compiler, "-Wall", "-Wextra", "-Werror", *settings["FLAGS"].split(), source, "-o", program]
    command += ["-I", settings["INCLUDE"], settings["PVZAN_LIBRARY"], f"-Wl,-rpath,{library}"]
    subprocess.run(command, check=True)
    return program


def build_fragments(fragments, place, settings):
    """All of them in one program, which runs the one whose number it is given."""
    code = HEADERS
    for number, fragment in enumerate(fragments):
        code += f"static void block_{number}() {{\n{fragment}}}\n"
    calls = ", ".join(f"block_{number}" for number in range(len(fragments)))
    code += f"int main(int, char** n) {{ void (*const all[])() = {{{calls}}}; all[std::stoi(n[1])](); }}\n"
    return build("cpp", code, place, settings)


def run(command, place):
    done = subprocess.run(command, cwd=place, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=120)
    return done.stdout.decode("utf-8", "replace") + (f"[exit {done.returncode}]\n" if done.returncode > 2 else "")


def blocks_of(text, name):
    """Language, code, expected output or None, line."""
    if name.endswith(".md"):
        pattern = r"^```(c|cpp|python|console)\n(.*?)^```\n(?:\n```output\n(.*?)^```\n)?"
        for found in re.finditer(pattern, text, re.M | re.S):
            if found.group(1) != "c" or "main(" in found.group(2):
                yield found.group(1), found.group(2), found.group(3), text.count("\n", 0, found.start()) + 1
        return
    examples = [(m.start(), m.group(1)) for m in re.finditer(r"^\.EX\n(.*?)^\.EE\n", text, re.M | re.S)]
    plain = [(at, block.replace("\\e", "\\").replace("\\-", "-").replace("\\&", "")) for at, block in examples]
    for (at, code), (_, expected) in zip(plain, plain[1:] + [(0, None)]):
        if "main(" in code:
            yield "c", code, expected, text.count("\n", 0, at) + 1


def copies_in(text):
    """What stands for a file, and the file's name."""
    for found in re.finditer(r'^\.\\" file: (\S+)\n\.EX\n(.*?)^\.EE\n', text, re.M | re.S):
        yield found.group(1), found.group(2).replace("\\-", "-").replace("\\e", "\\")


def lost_names(text, name, source):
    """Links, and paths in back quotes, to files that do not exist."""
    for target in re.findall(r"\]\(([^)#:]+)\)", text):
        if not os.path.exists(os.path.join(os.path.dirname(name), target)):
            yield target
    folders = "|".join(entry for entry in os.listdir(source) if os.path.isdir(os.path.join(source, entry)))
    for target in re.findall(rf"`((?:{folders})/[^` *]*)`", text):
        if not os.path.exists(os.path.join(source, target)) and "NAME" not in target:
            yield target


def console_steps(code):
    for step in re.split(r"^\$ ", code, flags=re.M)[1:]:
        command, _, expected = step.partition("\n")
        yield command, expected


def main(settings, names):
    failures = count = 0
    for name in names:
        with open(name, encoding="utf-8") as file:
            text = file.read()
        for target in lost_names(text, name, settings["SOURCE"]) if name.endswith(".md") else ():
            failures += 1
            print(f"{name}: there is no {target}")
        for copied, shown in copies_in(text):
            count += 1
            with open(os.path.join(settings["SOURCE"], copied), encoding="utf-8") as file:
                if file.read().rstrip("\n") != shown.rstrip("\n"):
                    failures += 1
                    print(f"{name}: {copied} is another now")
        if not name.endswith(".md") and not text.startswith(".so "):
            warnings = run(["groff", "-man", "-ww", "-Kutf8", "-Tutf8", "-z", os.path.abspath(name)], ".")
            failures += warnings != ""
            print(warnings, end="")
        with tempfile.TemporaryDirectory() as place:
            for folder in ("samples", "examples"):
                os.symlink(os.path.join(settings["SOURCE"], folder), os.path.join(place, folder))
            blocks = list(blocks_of(text, name))
            fragments = [code for language, code, _, _ in blocks if language == "cpp"]
            if fragments:
                cpp_program = build_fragments(fragments, place, settings)
            for language, code, expected, line in blocks:
                count += 1
                if language == "console":
                    results = [(run(["sh", "-c", command], place), e) for command, e in console_steps(code)]
                elif language == "python":
                    results = [(run([sys.executable, "-B", "-c", code], place), expected)]
                elif language == "cpp":
                    results = [(run([cpp_program, str(fragments.index(code))], place), expected)]
                else:
                    results = [(run([build(language, code, place, settings)], place), expected)]
                for got, wanted in results:
                    if got != (wanted or ""):
                        failures += 1
                        print(f"{name}:{line}: expected\n{wanted or ''}got\n{got}")
    print(f"{count} blocks run, {failures} wrong")
    return failures > 0


if __name__ == "__main__":
    keys = [argument.partition("=")[::2] for argument in sys.argv[1:] if "=" in argument]
    given = dict(keys)
    os.environ["PATH"] = os.path.dirname(given["TOOL"]) + os.pathsep + os.environ["PATH"]
    os.environ["PYTHONPATH"] = os.path.join(given["SOURCE"], "bindings", "python")
    os.environ["PVZAN_LIBRARY"] = given["PVZAN_LIBRARY"]
    os.environ["PVZAN_CHARSET_DIR"] = given["PVZAN_CHARSET_DIR"]
    sys.exit(main(given, [argument for argument in sys.argv[1:] if "=" not in argument]))
