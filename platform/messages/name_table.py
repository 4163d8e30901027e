"""Makes the name table of the performance object for the system's loader: tnwdiskperf.ini and its symbols.

usage: name_table.py TITLES HELP FOLDER
TITLES is tnwmsg.mc, whose strings 0 to 16 are the counters' titles; HELP is counter_help.txt. Writes
FOLDER/tnwdiskperf.ini and FOLDER/tnwdiskperf_counters.h, lines end CR LF.
"""
import pathlib
import re
import sys

OBJECT = "Cluster Disk Resource Performance"
COUNTERS = 17
FORBIDDEN = set("\\()*#")  # they have a meaning in counter paths
LANGUAGE = "009"


def read_titles(path):
    """{counter: title}; the message compiler's form: a number, four lines later the text, ended by %0 against a line end."""
    found = re.findall(r"^MessageId=(\d+)\n(?:\w+=\w+\n)+(.*)%0\n\.$", path.read_text(), re.M)
    return {int(number): text.replace("%%", "%") for number, text in found if int(number) < COUNTERS}


def read_help(path):
    lines = [line for line in path.read_text().splitlines() if line and not line.startswith("#")]
    return dict(line.split(" ", 1) for line in lines)


def main():
    titles_file, help_file, folder = (pathlib.Path(argument) for argument in sys.argv[1:4])
    titles, texts = read_titles(titles_file), read_help(help_file)
    if sorted(titles) != list(range(COUNTERS)):
        sys.exit(f"{titles_file}: titles of the counters {sorted(titles)} instead of 0 to {COUNTERS - 1}")
    if set(texts) != {"object", *map(str, range(COUNTERS))}:
        sys.exit(f"{help_file}: texts for {sorted(texts)}")
    entries = [("DKPF_OBJECT", OBJECT, texts["object"])]
    entries += [(f"DKPF_COUNTER_{i}", titles[i], texts[str(i)]) for i in range(COUNTERS)]
    for _, title, _ in entries:
        if FORBIDDEN & set(title):
            sys.exit(f"{title!r} holds one of {''.join(sorted(FORBIDDEN))}")

    ini = ["[info]", "drivername=tnwdiskperf", "symbolfile=tnwdiskperf_counters.h", "",
           "[languages]", f"{LANGUAGE}=English", "", "[objects]", f"DKPF_OBJECT_{LANGUAGE}_NAME={OBJECT}", "", "[text]"]
    for symbol, title, text in entries:
        ini += [f"{symbol}_{LANGUAGE}_NAME={title}", f"{symbol}_{LANGUAGE}_HELP={text}"]
    header = ["// Offsets of the titles against the service's First Counter, for the system's loader."]
    header += [f"#define {symbol} {2 * i}" for i, (symbol, _, _) in enumerate(entries)]
    folder.mkdir(parents=True, exist_ok=True)
    for name, lines in (("tnwdiskperf.ini", ini), ("tnwdiskperf_counters.h", header)):
        (folder / name).write_bytes("".join(line + "\r\n" for line in lines).encode("ascii"))


main()
