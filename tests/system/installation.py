"""What the cases of install and uninstall share: the whole machine as a table, and runs of set-up."""
import re

from product import ROOT, WINE, expect, wait_for

STAGE = ROOT / "build/stage"
SERVICES = ("dkpfagent", "velcor", "velcorfeed")
# What the system itself writes at each start of its own: new numbers of displays, dates of display drivers, the count of
# starts under the name of each, the number of the last service that was started, and which devices are up by now.
VOLATILE_KEY = re.compile(r"\\Control\\Video\b|\\Control\\DeviceClasses\\.*\\Control$|\\Control\\ServiceCurrent\b|"
                          r"\\Hardware Profiles\\|\\Control\\Class\\\{4D36E968", re.I)
VOLATILE_VALUE = {"DriverDateData", "DriverError"}
# Lists of a service that are empty; the system writes them when any setting of the service changes.
NOTHING = {(f'"{name}"', "hex(7):00,00") for name in ("DependOnGroup", "DependOnService")}


def keys_of(path):
    """{key: {name: value}} of an exported part of the registry."""
    keys, key = {}, None
    text = path.read_bytes().decode("utf-16").replace("\r\n", "\n").replace("\\\n  ", "")
    for line in text.split("\n")[1:]:
        if line.startswith("["):
            key = line[1:-1]
            if not VOLATILE_KEY.search(key):
                keys[key] = {}
        elif line and key in keys:
            name, value = re.fullmatch(r'(@|"(?:[^"\\]|\\.)*")=(.*)', line, re.S).groups()
            if name.strip('"') not in VOLATILE_VALUE and (name, value) not in NOTHING:
                keys[key][name] = value
    return keys


def machine(product):
    """Registry keys with their values, and files with their sizes and folders, of the whole machine but for this test's
    own."""
    registry = {}
    for root in ("System", "Software"):
        path = product.folder / f"{root}.reg"
        code, text = product.run([WINE, "reg", "export", f"HKLM\\{root}", str(path), "/y"])
        expect(code == 0, f"reg export: {text}")
        registry |= keys_of(path)
    expect(len(registry) > 500, f"{len(registry)} keys were exported")
    files = {str(path.relative_to(product.prefix)): "folder" if path.is_dir() else path.stat().st_size
             for path in (product.prefix / "drive_c").rglob("*")
             if (path.is_dir() or path.is_file()) and "/temp/" not in str(path).lower()}
    return registry, files


def compare(what, before, after):
    for name, one, other in zip(("key", "file"), before, after):
        for entry in sorted(one.keys() | other.keys()):
            expect(one.get(entry) == other.get(entry),
                   f"{what}: {name} {entry}: {one.get(entry)} before, {other.get(entry)} after")


def restart(product):
    product.must('stop_prefix "$WINEPREFIX"; "$common_wineserver" -w; start_prefix')


def command_line(product, program, command, *options):
    return [WINE, str(program / "bin/dkpfctl.exe"), command, "--home", product.windows_home, *options]


def setup(product, program, command, *options, code=0):
    ended, text = product.run(command_line(product, program, command, *options))
    expect(ended == code, f"{command}: exit code {ended}\n{text}")
    return text


def wait_running(product):
    for name in SERVICES:
        wait_for(f"{name} running", lambda: product.state(name) == "RUNNING")


def bare(product):
    """A machine without the product; returns what is on it."""
    product.remove()
    product.folder.mkdir(parents=True)
    code, text = product.run([str(ROOT / "tests/support/wine-slot"), "--copy", str(product.prefix)])
    expect(code == 0, f"no prefix: {text}")
    product.must("start_prefix")
    product.windows_home = product.must('windows_path "$home"').strip()
    # A window of the system's own writes keys when it comes up first; it shall stand on both sides.
    restart(product)
    return machine(product)


def expect_in_place(product):
    """The files of the stage are those of the home, and nothing was left beside them."""
    for path in STAGE.rglob("*"):
        if path.is_file():
            installed = product.home / path.relative_to(STAGE)
            expect(installed.exists() and installed.read_bytes() == path.read_bytes(), f"{installed} is not as in the stage")
    beside = [*product.home.rglob("*.place"), *product.home.rglob("*.old-*")]
    expect(not beside, f"left beside the files: {beside}")
