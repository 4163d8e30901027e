"""The installed product, as a user has it: a private prefix and home below build/system, one folder for each case.

A case is a script that calls main(check); check gets the Product, and raises Failed through expect() and wait_for().
"""
import datetime
import errno
import os
import pathlib
import re
import shlex
import signal
import subprocess
import sys
import time
import traceback

ROOT = pathlib.Path(__file__).resolve().parents[2]
WINE = "/usr/lib/wine/wine64"
LOGS = ("diskperf", "diskperf_trace", "diskperf_event", "velcorfeed")
WAIT_S = 100  # bound of every wait; only what hangs comes near it


class Failed(Exception):
    """What was expected and not found, in words."""


def expect(condition, words):
    if not condition:
        raise Failed(words)


def wait_for(what, condition, seconds=WAIT_S):
    """Polls until condition() is true, and returns what it gave."""
    end = time.monotonic() + seconds
    while True:
        result = condition()
        if result:
            return result
        expect(time.monotonic() < end, f"in {seconds} s not seen: {what}")
        time.sleep(0.1)


def lines_of(path):
    """The lines of a CSV file, without their ends. Each has to end in CR LF, and no CR or LF stands elsewhere."""
    data = path.read_bytes()
    expect(data.endswith(b"\r\n"), f"{path.name} ends in {data[-20:]!r}")
    lines = data[:-2].split(b"\r\n")
    for number, line in enumerate(lines, 1):
        expect(b"\r" not in line and b"\n" not in line, f"{path.name}:{number} holds a single CR or LF: {line!r}")
    return [line.decode("ascii") for line in lines]


def fields_of(line, count):
    """Time and numbers of a data line; each field is quoted, and there are count of them behind the time."""
    shape = r'"\d\d/\d\d/\d{4} \d\d:\d\d:\d\d\.\d{3}"(,"\d+"){%d}' % count
    expect(re.fullmatch(shape, line), f"no data line: {line!r}")
    fields = line[1:-1].split('","')
    return fields[0], [int(field) for field in fields[1:]]


def expect_whole_passes(stamps, since):
    """Each pass later than a moment has its line in every file."""
    def is_later(stamp):
        return datetime.datetime.strptime(stamp, "%m/%d/%Y %H:%M:%S.%f") > since
    passes = {stamp for each in stamps.values() for stamp in each if is_later(stamp)}
    expect(passes, f"no pass since {since}")
    missing = {name: len(passes - set(each)) for name, each in stamps.items() if passes - set(each)}
    expect(not missing, f"lines that are missing of {len(passes)} passes since {since}: {missing}")


def fill(path):
    """Takes all space that is left, to the last page."""
    with open(path, "wb", buffering=0) as file:
        try:
            while file.write(b"\0" * 4096):
                pass
        except OSError as error:
            expect(error.errno == errno.ENOSPC, str(error))


class Product:
    def __init__(self, folder):
        self.folder = folder
        self.home = folder / "home"
        self.prefix = folder / "pfx"
        self.perf = self.home / "perf"
        self.log = self.home / "log"
        self.environment = dict(os.environ, WINEPREFIX=str(self.prefix), WINEDEBUG="-all", LC_ALL="C.UTF-8",
                                WINEDLLOVERRIDES="mscoree,mshtml=;winedbg.exe=d")

    # ---- Programs ----

    def run(self, command, **more):
        """Exit code and output. The output goes through a file: services would keep a pipe open."""
        path = self.folder / "output.txt"
        # Where Wine fails to create a process (fixed_addresses in common.sh), the command ends with 1 before its first word,
        # having done nothing, and is given once more.
        for _ in range(2):
            with open(path, "wb") as output:
                code = subprocess.run(command, stdin=subprocess.DEVNULL, stdout=output, stderr=subprocess.STDOUT,
                                      env=self.environment, cwd=self.folder, timeout=WAIT_S, **more).returncode
            text = path.read_text(errors="replace").replace("\r", "")
            if code != 1 or text:
                break
        with open(self.folder / "commands.txt", "a") as record:
            record.write(f"$ {' '.join(map(str, command))[-200:]}\n{text}exit code {code}\n")
        return code, text

    def shell(self, commands, *arguments):
        """Runs functions of scripts/product.sh; they find the home in $home."""
        head = f'root={shlex.quote(str(ROOT))}\n. "$root/scripts/common.sh"\n. "$root/scripts/product.sh"\n' \
               f'use_prefix {shlex.quote(str(self.prefix))}\nhome={shlex.quote(str(self.home))}\n'
        return self.run(["bash", "-eu", "-o", "pipefail", "-c", head + commands, "bash", *map(str, arguments)])

    def must(self, commands, *arguments):
        code, text = self.shell(commands, *arguments)
        expect(code == 0, f"{commands}: exit code {code}\n{text}")
        return text

    def ctl(self, *arguments):
        """dkpfctl: exit code and all it printed."""
        return self.run([WINE, str(self.home / "bin/dkpfctl.exe"), *arguments])

    # ---- Its life ----

    def install(self, scenario=None, feeder="", **settings):
        """scenario: text of a script, or the path of one that is installed. Collects and writes every second."""
        # Whatever an earlier run of this case left behind goes first.
        self.remove()
        self.folder.mkdir(parents=True)
        code, text = self.run([str(ROOT / "tests/support/wine-slot"), "--copy", str(self.prefix)])
        expect(code == 0, f"no prefix: {text}")
        self.must('start_prefix; product_install "$home"')
        if scenario is not None:
            path = self.home / scenario if scenario.startswith("etc/") else self.home / "etc/case.scn"
            if not path.exists():
                path.write_text(scenario)
            feeder = '--scenario "%s"' % self.must('windows_path "$1"', path).strip()
        if feeder:
            self.must('product_feed "$home" "$1"', feeder)
        for key, value in {"collectinterval": 1, "writeinterval": 1, **settings}.items():
            self.set(key, value)

    def set(self, key, value):
        self.must('product_set "$home" "$1" "$2"', key, value)

    def start(self, *names):
        for name in names or ("velcor", "velcorfeed", "dkpfagent"):
            self.must('product_start "$1"', name)

    def stop(self):
        self.must("product_stop")

    def state(self, service):
        return self.must('product_state "$1"', service).strip()

    def processes(self, program):
        """Process numbers, of this machine, of a program of this home."""
        found = []
        for process in pathlib.Path("/proc").glob("[0-9]*"):
            try:
                command = (process / "cmdline").read_bytes()
                environment = (process / "environ").read_bytes()
            except OSError:
                continue
            if program.encode() in command and f"WINEPREFIX={self.prefix}".encode() in environment.split(b"\0"):
                found.append(int(process.name))
        return found

    def kill(self, program):
        numbers = self.processes(program)
        expect(numbers, f"{program} does not run")
        for number in numbers:
            os.kill(number, signal.SIGKILL)
        wait_for(f"{program} gone", lambda: not self.processes(program))

    def mount(self, folder, options):
        """Puts a small disk over a folder of the home. False: this account may not, the one reason that counts; a case
        whose main part that is ends with NotTried."""
        done = subprocess.run(["mount", "-t", "tmpfs", "-o", options, "tmpfs", str(folder)], capture_output=True,
                              text=True)
        if done.returncode != 0:
            print(f"no small disk can be made here, mount says: {done.stderr.strip()}")
            expect("permission denied" in done.stderr or "must be superuser" in done.stderr, done.stderr)
        return done.returncode == 0

    def unmount(self):
        """Takes every small disk away, also one that a killed case left."""
        for folder in (self.home / "etc", self.perf, self.log):
            while os.path.ismount(folder):
                subprocess.run(["umount", str(folder)], check=True)

    def remove(self):
        """Ends everything of this case and removes its folder."""
        if self.prefix.exists():
            self.shell("product_stop || true; stop_prefix \"$WINEPREFIX\"")
        self.unmount()
        subprocess.run(["rm", "-rf", str(self.folder)], check=True)

    def end(self):
        """Ends everything; the files stay, for whoever looks at a failure. The prefix is made anew each time."""
        if self.prefix.exists():
            self.shell("product_stop || true; stop_prefix \"$WINEPREFIX\"")
        self.unmount()
        subprocess.run(["rm", "-rf", str(self.prefix)], check=True)

    # ---- What it left ----

    def csv(self, name):
        return lines_of(self.perf / f"{name}.csv")

    def stamps(self):
        """Times of the lines of each current CSV file, as texts; every line is looked at."""
        return {path.stem: [fields_of(line, 19 if path.stem.endswith("_raw") else 17)[0] for line in lines_of(path)[1:]]
                for path in self.perf.glob("nmp*.csv") if "." not in path.stem}

    def count(self, name):
        """Whole lines of a file that may grow at this moment, the header counted; 0: not there."""
        path = self.perf / f"{name}.csv"
        return path.read_bytes().count(b"\r\n") if path.exists() else 0

    def wait_lines(self, name, count):
        wait_for(f"{count} lines in {name}.csv", lambda: self.count(name) >= count)

    def journal(self, disk):
        """(bytes, us, writes) of each step fed for a mirror disk, as texts, in order."""
        rows = (self.log / "velcorfeed.journal").read_text().split("\n")
        cells = [row.rstrip("\r").split(",") for row in rows[1:-1]]
        return [(row[3], row[5], row[4]) for row in cells if row[1] == str(disk)]

    def text(self, name):
        path = self.log / name
        return path.read_text(errors="replace").replace("\r", "") if path.exists() else ""

    def events(self, number):
        """Entries of the event log with this number."""
        return [line for line in self.text("diskperf_event.log").split("\n") if f" {number} " in line]

    def failures(self, status):
        """How many CSV files have answered a write with this status."""
        return len(set(re.findall(r"log_util_write\((\w+)\) failed\(%d,0xb0000027\)" % status,
                                  self.text("diskperf_trace.log"))))

    def computer_name(self):
        key = r"HKLM\System\CurrentControlSet\Control\ComputerName\ActiveComputerName"
        code, text = self.run([WINE, "reg", "query", key, "/v", "ComputerName"])
        expect(code == 0, text)
        return re.search(r"REG_SZ\s+(\S+)", text)[1]


NOT_TRIED_CODE = 77  # as in system.cmake


class NotTried(Exception):
    """The main part of a case could not be tried here; what was shown before it holds."""


def main(check):
    product = Product(ROOT / "build" / "system" / pathlib.Path(sys.argv[0]).stem)
    status = 1
    # A time-out of the test runner must not leave services behind.
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(143))
    try:
        check(product)
        status = 0
    except NotTried as error:
        print(f"NOT TRIED: {error}")
        status = NOT_TRIED_CODE
    except Exception as error:  # whatever it is, the logs below belong to it
        print(f"FAILED: {error}" if isinstance(error, Failed) else traceback.format_exc())
        for name in ("commands.txt", *(f"home/log/{log}.log" for log in LOGS)):
            path = product.folder / name
            if path.exists():
                print(f"---- {name}, last lines\n" + "\n".join(path.read_text(errors="replace").splitlines()[-12:]))
    finally:
        product.end()
    sys.exit(status)
