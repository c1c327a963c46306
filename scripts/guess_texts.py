"""Texts of Debian packages by language, in parts that share no package.

models: what scripts/derive-guess-models counts. margins: what the margins of text/guess were chosen
by. figures, words and names: what scripts/guess-figures measures, which nothing else has seen. Packages are fetched
with apt-get download into a directory of the caller's and unpacked there, never installed.
"""
import gettext
import glob
import gzip
import html
import os
import pathlib
import re
import subprocess
import unicodedata
import zipfile

# Language: how its files are called in packages, where that is not the language itself.
LANGUAGES = ["en", "de", "fr", "es", "it", "pt", "nl", "da", "sv", "nb", "fi", "is", "ca",
             "cy", "ga", "pl", "cs", "sk", "hu", "ro", "hr", "sl", "et", "lt", "lv", "tr", "vi",
             "ru", "uk", "bg", "sr", "be", "el", "he", "ar", "th", "ja", "ko", "zh_CN", "zh_TW"]
LITTLE = ["cy", "ga", "et", "lt", "lv"]  # of which there is little text besides
MANUALS = {"pt": "pt-br", "zh_CN": "zh", "zh_TW": "zh"}
FIREFOX = {"es": "es-es", "ga": "ga-ie", "pt": "pt-pt", "nb": "nb-no", "sv": "sv-se", "zh_CN": "zh-cn",
           "zh_TW": "zh-tw"}
HANDBOOK = {"en": "en-US", "nb": "nb-NO", "pt": "pt-BR", "zh_CN": "zh-CN", "zh_TW": "zh-TW", "ar": "ar-MA",
            "ca": "ca-ES", "cs": "cs-CZ", "da": "da-DK", "el": "el-GR", "ja": "ja-JP", "ko": "ko-KR",
            "sv": "sv-SE", "vi": "vi-VN"}


def packages(part, language):
    manuals = "manpages-" + MANUALS.get(language, language)
    firefox = "firefox-esr-l10n-" + FIREFOX.get(language, language)
    thunderbird = "thunderbird-l10n-" + FIREFOX.get(language, language)
    return {
        "models": [manuals, firefox, "iso-codes"] +
                  ["libreoffice-l10n-" + language] * (language in LITTLE) +
                  {"ja": ["mecab-ipadic", "debian-reference-ja"],
                   "en": ["debian-reference-en"],
                   "zh_CN": ["debian-reference-zh-cn", "fortunes-zh"],
                   "zh_TW": ["debian-reference-zh-tw"]}.get(language, []),
        "margins": ["debian-handbook", "krita-l10n"],
        "figures": ["gnome-user-docs", "aptitude-doc-" + language, thunderbird],
        "words": ["edict"] if language == "ja" else [],
        "names": ["skkdic-extra"] if language == "ja" else ["kgeography-data"],
    }[part]


def unpacked(name, cache):
    """The directory of a package, or None where Debian has no such package."""
    directory = pathlib.Path(cache, "x", name)
    if not directory.exists():
        archives = pathlib.Path(cache, "deb")
        archives.mkdir(parents=True, exist_ok=True)
        found = glob.glob(f"{archives}/{name}_*.deb")
        if not found:
            subprocess.run(["apt-get", "download", name], cwd=archives, stdout=subprocess.DEVNULL,
                           stderr=subprocess.DEVNULL, check=False)
            found = glob.glob(f"{archives}/{name}_*.deb")
        directory.mkdir(parents=True)
        if found:
            subprocess.run(["dpkg-deb", "-x", found[0], directory], check=True)
    return directory


# ---- Kinds of files ------------------------------------------------------------------------------

def manual(text):
    text = re.sub(r'^[.\'].*$', "", text, flags=re.M)
    return re.sub(r"\\f.|\\\(..|\\[-&%|]|\\s[-+]?\d", "", text)


def without_markup(text):
    text = re.sub(r"<(script|style|pre|code)[^>]*>.*?</\1>", " ", text, flags=re.S)
    return html.unescape(re.sub(r"<[^>]*>", " ", text))


def assignments(text):
    text = re.sub(r"\{[^}]*\}|<[^>]*>|&\w+;|%\S+", " ", text)
    return "\n".join(re.findall(r'^[^#\n]*?(?:=|ENTITY\s+\S+\s+")(.*?)"?>?$', text, flags=re.M))


def without_placeholders(text):
    return without_markup(re.sub(r"[&_]|\{[^}]*\}|\$\[[^]]*\]|%\S+|.*\|/\|.*", "", text.replace("\n", " ")))


def messages(path):
    with open(path, "rb") as file:
        catalog = gettext.GNUTranslations(file)
    return [v for k, v in catalog._catalog.items() if k and isinstance(v, str)]


def decode(data):
    for charset in ("utf-8", "euc-jp", "euc-jis-2004"):
        try:
            return data.decode(charset)
        except UnicodeDecodeError:
            pass
    return ""


def texts_of(directory, package, language):
    def named(*patterns):
        return [path for pattern in patterns
                for path in sorted(glob.glob(f"{directory}/usr/share/{pattern}", recursive=True))
                if not os.path.islink(path)]
    short = {"pt": "pt_BR", "zh_TW": "zh_TW"}.get(language, language)
    if package.startswith("manpages-"):
        for path in named(f"man/{short}/**/*.gz", f"man/{language}.UTF-8/**/*.gz"):
            yield manual(decode(gzip.open(path).read()))
    elif package.startswith("libreoffice"):
        for path in sorted(glob.glob(f"{directory}/usr/lib/**/*.mo", recursive=True)):
            yield "\n".join(map(without_placeholders, messages(path)))
    elif "-l10n-" in package:
        for path in glob.glob(f"{directory}/usr/**/*.xpi", recursive=True):
            with zipfile.ZipFile(path) as archive:
                for name in sorted(archive.namelist()):
                    if name.endswith((".ftl", ".properties", ".dtd")):
                        yield assignments(decode(archive.read(name)))
    elif package in ("iso-codes", "krita-l10n", "kgeography-data"):
        own = package == "iso-codes" or language != "pt"
        for path in named(f"locale/{short if own else 'pt'}/LC_MESSAGES/*.mo"):
            yield "\n".join(messages(path) if package == "iso-codes" else map(without_placeholders, messages(path)))
    elif package == "edict":
        words = named("edict/edict")[0]
        yield re.sub(r"[ (;].*", "", decode(pathlib.Path(words).read_bytes()), flags=re.M)
    elif package == "skkdic-extra":  # of persons, alone and with what they are called
        for path in named("skk/SKK-JISYO.jinmei", "skk/SKK-JISYO.fullname"):
            entries = decode(pathlib.Path(path).read_bytes())
            yield "\n".join(re.findall("/([^/;\n]+);", re.sub(r"^;;.*$", "", entries, flags=re.M)))
    elif package == "mecab-ipadic":
        for path in named("mecab/dic/ipadic/*.csv"):
            words = decode(pathlib.Path(path).read_bytes()).splitlines()
            yield "\n".join(line.split(",")[0] for line in words)
    elif package == "debian-handbook":
        for path in named(f"doc/{package}/html/{HANDBOOK.get(language, language + '-' + language.upper())}/*.html"):
            yield without_markup(pathlib.Path(path).read_text())
    elif package == "gnome-user-docs":
        for path in named(f"help/{'C' if language == 'en' else language}/**/*.page"):
            yield without_markup(pathlib.Path(path).read_text())
    elif package == "fortunes-zh":
        for path in named("games/fortunes/*"):
            if "." not in os.path.basename(path):
                yield decode(pathlib.Path(path).read_bytes())
    else:  # documentation in HTML
        for path in named("**/*.html", "**/*.html.gz"):
            data = pathlib.Path(path).read_bytes()
            yield without_markup(decode(gzip.decompress(data) if path.endswith(".gz") else data))


def lines(part, language, cache):
    """Different lines with a letter beyond ASCII (of English: all), composed."""
    kept = pathlib.Path(cache, "lines", f"{part}-{language}")
    if kept.exists():
        return kept.read_text().split("\n")[:-1]
    seen = {}
    for package in packages(part, language):
        for text in texts_of(unpacked(package, cache), package, language):
            for line in text.splitlines():
                line = unicodedata.normalize("NFC", " ".join(line.split()))
                if line and (language == "en" or not line.isascii()):
                    seen.setdefault(line)
    kept.parent.mkdir(parents=True, exist_ok=True)
    kept.write_text("".join(line + "\n" for line in seen))
    return list(seen)


def toned(c):
    """As windows-1258 writes it: a letter, and its tone as a mark behind it."""
    parts = unicodedata.normalize("NFD", c)
    tone = [m for m in parts if m in "\u0300\u0301\u0303\u0309\u0323"]
    return unicodedata.normalize("NFC", "".join(m for m in parts if m not in tone)) + "".join(tone)
