"""The staged name table against the message table that the titles come from, read by other means than the build's.

usage: name_table.py STAGE TITLES HELP
"""
import configparser
import pathlib
import sys

COUNTERS = 17


def titles_of(path):
    """The text line behind each MessageId, walked line by line."""
    titles, number, lines = {}, None, path.read_text().splitlines()
    for line in lines:
        key, _, value = line.partition("=")
        if key == "MessageId":
            number = int(value, 0)
        elif number is not None and key not in ("Severity", "Facility", "Language"):
            titles[number] = line[:-len("%0")].replace("%%", "%") if line.endswith("%0") else line
            number = None
    return [titles[i] for i in range(COUNTERS)]


def main():
    stage, titles_file, help_file = (pathlib.Path(argument) for argument in sys.argv[1:4])
    faults = []
    ini_bytes = (stage / "etc/tnwdiskperf.ini").read_bytes()
    header_bytes = (stage / "etc/tnwdiskperf_counters.h").read_bytes()
    for name, data in (("ini", ini_bytes), ("header", header_bytes)):
        if data.count(b"\n") != data.count(b"\r\n") or data.count(b"\r") != data.count(b"\r\n") or data[-2:] != b"\r\n":
            faults.append(f"{name}: lines do not all end in CR LF")
    ini = configparser.RawConfigParser(delimiters="=", comment_prefixes=None, strict=True)
    ini.optionxform = str
    ini.read_string(ini_bytes.decode("ascii"))
    offsets = {}
    for line in header_bytes.decode("ascii").split("\r\n"):
        words = line.split()
        if words[:1] == ["#define"]:
            offsets[words[1]] = int(words[2])
    names = ["Cluster Disk Resource Performance", *titles_of(titles_file)]
    helps = [line.split(" ", 1)[1] for line in help_file.read_text().splitlines() if line[:1] not in ("", "#")]

    if dict(ini["info"]) != {"drivername": "tnwdiskperf", "symbolfile": "tnwdiskperf_counters.h"}:
        faults.append(f"[info]: {dict(ini['info'])}")
    if dict(ini["languages"]) != {"009": "English"}:
        faults.append(f"[languages]: {dict(ini['languages'])}")
    if sorted(offsets.values()) != list(range(0, 36, 2)):
        faults.append(f"offsets: {offsets}")
    symbols = sorted(offsets, key=offsets.get)
    if list(dict(ini["objects"]).items()) != [(f"{symbols[0]}_009_NAME", names[0])]:
        faults.append(f"[objects]: {dict(ini['objects'])}")
    text = dict(ini["text"])
    for symbol, name, words in zip(symbols, names, helps, strict=True):
        for key, expected in ((f"{symbol}_009_NAME", name), (f"{symbol}_009_HELP", words)):
            if text.pop(key, None) != expected:
                faults.append(f"{key} is not {expected!r}")
        if set(name) & set("\\()*#") or not words.strip():
            faults.append(f"{symbol}: {name!r}, {words!r}")
    if text:
        faults.append(f"unknown texts: {sorted(text)}")
    print("\n".join(faults) if faults else f"{len(symbols)} names and help texts agree")
    return 1 if faults else 0


sys.exit(main())
