"""The version stands once, in project(VERSION), and every shipped binary carries it.

usage: check_version.py SOURCES STAGE
"""
import pathlib
import re
import sys

from pe import Binary

SOURCE_SUFFIXES = {".c", ".cpp", ".h", ".rc", ".in", ".cmake", ".def", ".mc", ".sh", ".py", ".xml", ""}
FOLDERS = ["agent", "cmake", "diskperf", "examples", "platform", "scripts", "tools"]


def main():
    sources, stage = (pathlib.Path(argument) for argument in sys.argv[1:3])
    version = re.search(r"project\(tnwdiskperf VERSION ([0-9.]+)", (sources / "CMakeLists.txt").read_text())[1]
    faults = []
    files = [path for folder in FOLDERS for path in (sources / folder).rglob("*")
             if path.is_file() and path.suffix in SOURCE_SUFFIXES]
    files += [sources / name for name in ("CMakePresets.json", "run", "test", "bench") if (sources / name).is_file()]
    for path in files:
        for number, line in enumerate(path.read_text(errors="replace").splitlines(), 1):
            if re.search(rf"(?<![0-9.]){re.escape(version)}(?![0-9.])", line):
                faults.append(f"{path.relative_to(sources)}:{number}: {line.strip()}")
    binaries = [path for folder in ("bin", "driver") for path in sorted((stage / folder).glob("*"))
                if path.suffix in (".dll", ".exe", ".sys")]
    if not binaries:
        faults.append(f"no binaries in {stage}: nothing was checked")
    for path in binaries:
        for key in ("FileVersion", "ProductVersion"):
            found = Binary(path).version_text(key)
            if found != version:
                faults.append(f"{path.name}: {key} is {found}, not {version}")
    print("\n".join(faults) if faults else f"{version}: once in {len(files)} sources, in all {len(binaries)} binaries")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
