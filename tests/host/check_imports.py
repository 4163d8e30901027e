"""Every shipped binary calls what tests/host/allowed_imports.txt allows, and nothing else.

usage: check_imports.py STAGE ALLOWED DEF_FOLDER
Fails for a binary that no family names, a call that its family does not list, a listed call that nobody makes any more, a
platform library bound by name or by an ordinal that its .def does not have, and another set of exports than the product's.
"""
import pathlib
import re
import sys

from pe import Binary

PRODUCT = "tnwdiskperf.dll"
EXPORTS = {"DkpfInitialize", "DkpfReinitialize", "DkpfTerminate",
           "DkpfOpenForPerfmon", "DkpfCollectForPerfmon", "DkpfCloseForPerfmon"}


def read_allowed(path):
    """[(family, set of binaries, {dll: set of calls})]"""
    families = []
    dll = None
    for number, line in enumerate(path.read_text().splitlines(), 1):
        line = line.split("#")[0].rstrip()
        if not line:
            continue
        if match := re.fullmatch(r"\[(\w+): (.+)\]", line):
            families.append((match[1], set(match[2].split()), {}))
        elif match := re.fullmatch(r"(\S+\.\w+):(.*)", line):
            dll = families[-1][2].setdefault(match[1], set())
            dll.update(match[2].split())
        elif line.startswith(" "):
            dll.update(line.split())
        else:
            sys.exit(f"{path}:{number}: neither a family, a library nor its calls: {line}")
    return families


def read_ordinals(folder):
    """{dll: set of ordinals} of the libraries that are bound by ordinal alone"""
    return {f"{path.stem}.dll": {int(n) for n in re.findall(r"@(\d+)", path.read_text())}
            for path in folder.glob("*.def")}


def main():
    stage, allowed_file, def_folder = (pathlib.Path(argument) for argument in sys.argv[1:4])
    faults = []
    families = read_allowed(allowed_file)
    ordinals = read_ordinals(def_folder)
    binaries = {path.name: Binary(path) for path in sorted([*stage.glob("bin/*"), *stage.glob("driver/*")])
                if path.suffix in (".dll", ".exe", ".sys")}
    if PRODUCT not in binaries or not ordinals:
        sys.exit(f"{PRODUCT} is not in {stage}, or there is no .def in {def_folder}: nothing was checked")

    for name in binaries.keys() - set().union(*(members for _, members, _ in families)):
        faults.append(f"{name}: no family in {allowed_file.name} names it")
    for family, members, allowed in families:
        used = {}
        for name in sorted(members & binaries.keys()):
            for dll, calls in binaries[name].imports().items():
                if dll in ordinals:
                    faults += [f"{name}: binds {dll} by the name {call}; only ordinals are allowed"
                               for call in calls if isinstance(call, str)]
                    faults += [f"{name}: binds ordinal {call} of {dll}, which its .def does not have"
                               for call in calls if isinstance(call, int) and call not in ordinals[dll]]
                    continue
                used.setdefault(dll, set()).update(calls)
                faults += [f"{name}: calls {call} of {dll}. If it exists on Windows Server 2016, add it to [{family}] in "
                           f"{allowed_file.name}" for call in sorted(map(str, calls - allowed.get(dll, set())))]
        if members <= binaries.keys():
            faults += [f"[{family}] lists {call} of {dll}, which none of its binaries calls: remove it"
                       for dll in allowed for call in sorted(allowed[dll] - used.get(dll, set()))]
    names, unnamed = binaries[PRODUCT].exports()
    if names != EXPORTS or unnamed:
        faults.append(f"{PRODUCT}: exports {sorted(names)} and ordinals {sorted(unnamed)}, not the six routines")
    print("\n".join(faults) if faults else f"{len(binaries)} binaries checked: {' '.join(binaries)}")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
