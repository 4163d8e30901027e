"""The object through the system's Performance Library: its shape, and values equal to those of the CSV files; the
example of a program that reads it; and dkpfctl top on a terminal."""
import datetime
import fcntl
import json
import os
import pathlib
import pty
import re
import select
import shutil
import signal
import struct
import subprocess
import termios

import model
from product import ROOT, WINE, Failed, expect, fields_of, main, wait_for

SCENARIO = """
disk 1 on async writes 100 bytes 8K latency 400 longest 900 request 64K
disk 2 on sync writes 50 bytes 4K latency 700 ratio 45
disk 5 on async writes 10 bytes 64K latency 1000 link 512K
step 1000
"""
DISKS = (1, 2, 5)
SERVICE = r"HKLM\SYSTEM\CurrentControlSet\Services\tnwdiskperf"

# By counter, 0 to 16: the power of ten by which viewers draw it. Bytes -5, what was written -6, us of transfers 2.
SCALES = [0, -5, -5, -5, -5, 2, 2, -5, -5, -5, -5, -6, -6, -5, -5, 0, 0]
TYPE = 0x10100  # PERF_COUNTER_LARGE_RAWCOUNT: eight bytes, shown as they are
PEAKS = {title for title in model.DISPLAY_TITLES if title.endswith("Peak") or title.startswith("Max.")}

# Titles by counter: the CSV columns have Write Bytes/sec and Write Bytes changed.
TITLES = list(model.DISPLAY_TITLES)
TITLES[11], TITLES[12] = TITLES[12], TITLES[11]


def reg(product, *arguments):
    code, text = product.run([WINE, "reg", *arguments])
    return code, text


def first_title(product):
    """What set-up wrote: the provider's values, and the table of names. Returns the first title index."""
    code, text = reg(product, "query", SERVICE + r"\Performance")
    expect(code == 0, f"the provider is not registered: {text}")
    library = product.must('windows_path "$1"', product.home / "bin/tnwdiskperf.dll").strip()
    found = dict(re.findall(r"^ +(\S.*?) +REG_(?:SZ|DWORD) +(.*?) *$", text, re.M))
    first = int(found.get("First Counter", "0"), 16)
    expect(first > 0, text)
    for name, value in (("Library", library), ("Open", "DkpfOpenForPerfmon"), ("Collect", "DkpfCollectForPerfmon"),
                        ("Close", "DkpfCloseForPerfmon"), ("Last Counter", f"{first + 34:#x}"),
                        ("First Help", f"{first + 1:#x}"), ("Last Help", f"{first + 35:#x}")):
        expect(found.get(name, "").lower() == value.lower(), f"{name} is not {value}:\n{text}")
    expect((product.home / "etc/tnwdiskperf.ini").exists(), "set-up installed no table of names")
    return first


def check_object(product, query, first):
    """The answer holds our object, whole and with the right definitions."""
    code, text = product.run([WINE, str(ROOT / "build/win/tests/bin/perf_objects.exe"), query])
    expect(code == 0 and "damage" not in text, f"{query}: exit code {code}\n{text}")
    lines = text.split("\n")
    head = f"object {first} {first + 1} 65"
    expect(head in lines, f"{query}: no {head} in\n{text}")
    ours = lines[lines.index(head) + 1:]
    counters = [f"counter {first + 2 * i} {first + 2 * i + 1} {SCALES[i - 1]} {TYPE:x} 8" for i in range(1, 18)]
    expect(ours[:17] == counters, f"{query}: counters\n" + "\n".join(ours[:17]))
    names = [line.split(" ")[1] for line in ours[17:17 + 65]]
    expect(names == ["_Total"] + [f"NMP{i}" for i in range(1, 65)], f"{query}: instances {names}")
    for line in ours[17:17 + 65]:
        expect(len(line.split(" ")) == 2 + 17, f"{query}: {line}")


def csv_row(product, name, time, count):
    """Numbers of the line of this time, and of the one in front of it; None where it is not written yet."""
    rows = [fields_of(line, count) for line in product.csv(name)[1:]]
    for before, now in zip(rows, rows[1:]):
        if now[0] == time:
            return before[1], now[1]
    return None


def check_values(product, first_names, code, text, again=False):
    """One answer as JSON: all but the peaks are what the CSV line of the same sample says. FALSE: it covers several
    samples. again: whether it has to say that the agent was started again."""
    expect(code == 0, f"query: exit code {code}\n{text}")
    answer = json.loads(text)
    expect(answer["format"] == 1 and answer["object"] == model.OBJECT, text)
    expect([disk["name"] for disk in answer["disks"]] == first_names, text)
    described = [(each["number"], each["name"], each["index"], each["scale"]) for each in answer["counters"]]
    index = answer["object_index"]
    expect(described == [(i, TITLES[i], index + 2 + 2 * i, SCALES[i]) for i in range(17)], text)
    expect(answer["object_help"] and all(each["help"] for each in answer["counters"]), text)
    expect(answer["age_ms"] >= 0 and answer["attached_again"] == again, text)
    moment = datetime.datetime.fromisoformat(answer["time"])
    time = moment.strftime("%m/%d/%Y %H:%M:%S.") + f"{moment.microsecond // 1000:03}"
    expect(moment.utcoffset() is not None, answer["time"])
    for disk in answer["disks"]:
        name = "nmp_total" if disk["disk"] == 0 else f"nmp{disk['disk']}"
        lines = wait_for(f"the sample of {time} in {name}.csv", lambda: csv_row(product, name, time, 17))
        raw = csv_row(product, name + "_raw", time, 19)
        expect(raw is not None, f"{name}_raw.csv has no line of {time}")
        shown = dict(zip(model.DISPLAY_TITLES, lines[1]))
        expect([counter["number"] for counter in disk["counters"]] == list(range(17)), text)
        expect([counter["name"] for counter in disk["counters"]] == TITLES, text)
        written = dict(zip(TITLES, disk["counters"]))["Write Bytes"]["value"]
        if written != (raw[1][model.WRITTEN] - raw[0][model.WRITTEN]):
            return False
        moved = {"Transfer Ratio %": (model.HANDED, model.SENT), "Avg. us/Transfer": (model.TRANSFERS,),
                 "Avg. us/Write": (model.WRITES,)}
        for counter in disk["counters"]:
            title = counter["name"]
            idle = title in moved and any(raw[0][column] == raw[1][column] for column in moved[title])
            expect(counter["state"] == ("idle" if idle else "value"), f"{name}, {title}: {counter}")
            if not idle and title not in PEAKS:
                expect(counter["value"] == shown[title],
                       f"{name}, {time}, {title}: {counter['value']} instead of {shown[title]}")
    return True


def check_example(product):
    """What examples/total.c prints: of one reading each, what was written in some span of samples, and its rate."""
    shutil.copy(ROOT / "build/win/examples/total.exe", product.home / "bin")
    code, text = product.run([WINE, str(product.home / "bin/total.exe"), "4"])
    shape = r"(\d+) bytes written, (\d+) bytes/s, (\d+) us per write"
    lines = [re.fullmatch(shape, line) for line in text.splitlines()]
    expect(code == 0 and len(lines) == 4 and all(lines), f"total: exit code {code}\n{text}")
    written = sum(int(line[1]) for line in lines)
    expect(written > 0, f"total: nothing written\n{text}")

    def spans():
        """All readings together are the difference of two samples, and so is each of them: rows of the raw total."""
        rows = [fields_of(line, 19)[1] for line in product.csv("nmp_total_raw")[1:]]
        starts = range(len(rows))
        for line in lines:
            starts = [j for i in starts for j in range(i, min(i + 8, len(rows)))
                      if rows[j][model.WRITTEN] - rows[i][model.WRITTEN] == int(line[1]) and
                      (i == j or model.average(rows[i], rows[j], model.WRITE_US, model.WRITES) == int(line[3]))]
        return starts
    wait_for(f"the samples behind\n{text}", spans, 20)
    for line in lines:
        expect((line[1] == "0") == (line[2] == "0"), f"total: {line[0]}")


class Top:
    """dkpfctl top on a terminal of 80 columns, below a shell that outlives it, as a user has it: at the end of a terminal's
    first program the system itself would put the terminal's settings back."""

    def __init__(self, product, *arguments, lines=24, program=None):
        """program: another one than top, that shows a screen with _Total in its place."""
        self.name = f"{program or 'top'} {arguments}"
        self.lines = lines
        self.text = b""
        self.master, self.slave = pty.openpty()
        self.resize(lines, 80)
        self.settings = termios.tcgetattr(self.slave)
        commands = 'trap : INT; while :; do "$@"; printf "\\nended with %d\\n" $?; read -r line; done'
        program = [WINE, *([str(ROOT / f"build/win/tests/bin/{program}.exe")] if program else
                           [str(product.home / "bin/dkpfctl.exe"), "top"]), *arguments]
        self.shell = subprocess.Popen(
            ["bash", "-c", commands, "bash", *program], stdin=self.slave, stdout=self.slave, stderr=self.slave,
            env=dict(product.environment, TERM="xterm"), start_new_session=True,
            preexec_fn=lambda: fcntl.ioctl(0, termios.TIOCSCTTY, 0))  # or Ctrl+C reaches nobody
        # What Product.run() says about Wine that does not create a process.
        if wait_for(f"a word of {self.name}", lambda: "".join(self.frame()).strip()) == "ended with 1":
            self.text = b""
            self.type(b"\n")

    def __enter__(self):
        return self

    def __exit__(self, *_):
        for number in self.programs():
            os.kill(number, signal.SIGKILL)
        self.shell.kill()
        self.shell.wait()
        self.hang_up()

    def resize(self, lines, columns):
        fcntl.ioctl(self.master, termios.TIOCSWINSZ, struct.pack("HHHH", lines, columns, 0, 0))

    def hang_up(self):
        """The window is closed."""
        for number in (self.slave, self.master):
            if number is not None:
                os.close(number)
        self.slave = self.master = None

    def programs(self):
        """Process numbers of top, none where it has ended."""
        try:
            return [int(each) for each in
                    pathlib.Path(f"/proc/{self.shell.pid}/task/{self.shell.pid}/children").read_text().split()]
        except OSError:
            return []

    def type(self, keys):
        os.write(self.master, keys)

    def read(self):
        while select.select([self.master], [], [], 0.1)[0]:
            self.text += os.read(self.master, 65536)
        return self.text

    def frame(self):
        """The screen as it was drawn last, by lines, without colours."""
        last = re.sub(rb"\x1b\[[0-9;?]*[A-GI-Za-z]", b"", self.read()).split(b"\x1b[H")[-1]
        return last.decode().replace("\r", "").split("\n")

    def shows(self, words, line):
        """Waits until a line of the screen starts with these words."""
        def shown():
            frame = self.frame()
            return len(frame) > line and frame[line].startswith(words)
        try:
            wait_for(f"{words} in line {line}", shown, 40)
        except Failed as error:
            raise Failed(f"{self.name}: {error}\n" + "\n".join(self.frame()))

    def ended(self):
        """Waits for the end, and returns the exit code."""
        found = wait_for(f"the end of {self.name}", lambda: re.search(rb"\nended with (\d+)", self.read()), 40)
        return int(found[1])

    def check_restored(self):
        """The last thing drawn, from the upper left corner on, is lines without a letter; the cursor is back."""
        tail = self.text[self.text.rindex(b"_Total"):]
        blank = rb"\x1b\[H(\x1b\[\?25h)?(\x1b\[K[\r\n]*){%d}" % self.lines
        expect(re.search(blank, tail), f"{self.name} left its screen: {tail!r}")
        cursor = re.findall(rb"\x1b\[\?25[hl]", self.text)
        expect(cursor and cursor[-1].endswith(b"h"), f"{self.name} left the cursor hidden: {cursor}")
        expect(termios.tcgetattr(self.slave) == self.settings, f"{self.name}: the terminal's settings changed")


def check_terminal(product):
    """The screen is shown, follows the keys, and is taken away again, whatever ends it."""
    for keys, arguments in ((b"q", ()), (b"\x03", ()), (b"", ("--seconds", "3"))):
        with Top(product, *arguments) as top:
            top.shows("_Total", 6)
            top.shows("q or Ctrl+C ends", 10)
            top.type(keys)
            code = top.ended()
            expect(code == 0, f"{top.name} {keys}: exit code {code}\n{top.text[-500:]!r}")
            top.check_restored()

    # An end that nobody wanted takes the screen away as well.
    for end in ("crash", "exception"):
        with Top(product, end, program="broken_screen") as top:
            top.shows("_Total", 6)
            top.type(b"q")
            code = top.ended()
            expect(code not in (0, 2), f"{top.name}: exit code {code}\n{top.text[-500:]!r}")
            top.check_restored()

    # Six lines hold the sample, two of titles, the total, one disk and the count of the others.
    with Top(product, lines=6) as top:
        top.shows("NMP1", 4)
        for keys, disk, others in ((b"\x1b[B", 2, "1 disk above, 1 below"), (b"\x1b[6~", 5, "2 disks above"),
                                   (b"\x1b[H", 1, "2 more disks"), (b"\x1b[F", 5, "2 disks above"),
                                   (b"\x1b[A", 2, "1 disk above, 1 below"), (b"\x1b[5~", 1, "2 more disks")):
            top.type(keys)
            top.shows(f"NMP{disk}", 4)
            top.shows(others, 5)
        # A window of another size: Wine keeps the first one, and nothing else happens.
        top.resize(24, 100)
        top.type(b"\x1b[B")
        top.shows("NMP2", 4)
        top.type(b"q")
        expect(top.ended() == 0, f"resized: {top.text[-500:]!r}")
        top.check_restored()

    # Killed it cannot give anything back; its row goes with the next reader (see the end of the case).
    with Top(product) as top:
        top.shows("_Total", 6)
        os.kill(top.programs()[0], signal.SIGKILL)
        expect(top.ended() == 137, f"killed: {top.text[-500:]!r}")

    # Where the window is closed nobody stays behind.
    with Top(product) as top:
        top.shows("_Total", 6)
        numbers = top.programs()
        top.hang_up()
        wait_for("the end of top in a closed window",
                 lambda: not any(pathlib.Path(f"/proc/{number}").exists() for number in numbers), 40)
    code, text = product.ctl("query")
    expect(code == 0, f"behind a killed reader: {code}\n{text}")


def check_lines(text, names):
    """A heading, then a line for the total and each disk, sample by sample, and no escape sequence."""
    expect("\x1b" not in text and re.search(r"^\S.*: %s, collected every 1 s$" % model.OBJECT, text, re.M) and
           re.search(r"^time +disk +per s ", text, re.M), f"no heading, or more than lines:\n{text!r}")
    rows = re.findall(r"^\d\d:\d\d:\d\d (_Total|NMP\d+) ", text, re.M)
    expect(rows and rows == names * (len(rows) // len(names)), f"lines of {rows} instead of {names}:\n{text}")


def check_plain(product, names):
    """Lines instead of a screen: where there is no terminal, and on one with --plain."""
    code, text = product.ctl("top", "--seconds", "3")
    expect(code == 0, f"top without a terminal: {code}\n{text}")
    check_lines(text, names)
    with Top(product, "--plain", "--seconds", "3") as top:
        code = top.ended()
        expect(code == 0, f"{top.name}: {code}\n{top.text!r}")
        # Wine's console takes the cursor away while anything is written.
        check_lines(re.sub(r"\r|\x1b\[\?25[hl]", "", top.text.decode()), names)


def check_disabled(product):
    """What the doctor alone calls wrong makes the status wrong too; that bin holds the example, a warning, does not."""
    value = ("/v", "Disable Performance Counters")
    code, text = product.ctl("status")
    expect(code == 0 and text.startswith("all is well\ndoctor: 1 finding, "), f"status: {code}\n{text}")
    code, text = reg(product, "add", SERVICE + r"\Performance", *value, "/t", "REG_DWORD", "/d", "1", "/f")
    expect(code == 0, text)
    code, text = product.ctl("status")
    expect(code == 1 and text.startswith("WRONG: the doctor found ") and "\ndoctor: 2 findings, " in text,
           f"status of a provider that is switched off: {code}\n{text}")
    code, text = product.ctl("status", "--json")
    answer = json.loads(text)
    expect(code == 1 and not answer["well"] and answer["doctor"]["wrong"] == 1, f"{code}\n{text}")
    code, text = reg(product, "delete", SERVICE + r"\Performance", *value, "/f")
    expect(code == 0, text)


def readers(product):
    """Process numbers in the consumer rows; nothing where there is no table at this moment."""
    code, text = product.ctl("dump", "--rows")
    return re.findall(r"^ +\d+  process (\d+), ", text, re.M) if code == 0 else None


def check_restart(product, names):
    """The agent is killed and started again under two readers: both say so, attach again, and read on."""
    again = b"the disk agent was started again: attached to it anew"
    output, words = product.folder / "query.json", product.folder / "query.txt"
    with Top(product) as top:
        top.shows("_Total", 6)
        before = wait_for("the row of top", lambda: readers(product))
        expect(len(before) == 1, f"rows of top alone: {before}")
        with open(output, "wb") as out, open(words, "wb") as error:
            # The restart falls into the time in which only the region is looked at, and has to be over within it.
            query = subprocess.Popen([WINE, str(product.home / "bin/dkpfctl.exe"), "query", "--interval", "8", "--format",
                                      "json"], stdin=subprocess.DEVNULL, stdout=out, stderr=error,
                                     env=product.environment, cwd=product.folder)
        try:
            wait_for("the row of query", lambda: len(readers(product) or []) == 2)
            expect(again not in top.read(), f"before the restart: {top.text[-500:]!r}")
            product.kill("dkpfagent.exe")
            product.start("dkpfagent")
            code = query.wait(60)
        finally:
            query.kill()
            query.wait()
        expect(code == 0 and "reading over 8 s" in words.read_text(), f"query: {code}\n{words.read_text()}")
        check_values(product, names, code, output.read_text(), again=True)

        # The words stand for one reading, and the total is back in its line with the next one.
        wait_for(f"{again} on the screen", lambda: again in top.read(), 40)
        top.shows("_Total", 6)
        # Of the query no row is left, and top has one row only: nobody attached twice.
        expect(readers(product) == before, f"rows behind the restart: {readers(product)} instead of {before}")
        top.type(b"q")
        expect(top.ended() == 0, f"top behind the restart: {top.text[-500:]!r}")
        top.check_restored()


def check_killed(product):
    """The agent dies under a query: its last sample is new to the reader, and too old to be shown."""
    output = product.folder / "killed.txt"
    with open(output, "wb") as out:
        # A sample is dead after 7 s, so what is killed in the first half is.
        query = subprocess.Popen([WINE, str(product.home / "bin/dkpfctl.exe"), "query", "--interval", "15"],
                                 stdin=subprocess.DEVNULL, stdout=out, stderr=out, env=product.environment,
                                 cwd=product.folder)
    try:
        wait_for("the row of query", lambda: readers(product))
        product.wait_lines("nmp_total_raw", product.count("nmp_total_raw") + 2)
        product.kill("dkpfagent.exe")
        code = query.wait(60)
    finally:
        query.kill()
        query.wait()
    text = output.read_text().replace("\r", "")
    expect(code == 1 and re.search(r"^dkpfctl: the last sample is \d+\.\d s old, over the limit of 7\.0 s: ", text, re.M) and
           "_Total" not in text, f"query without its agent: {code}\n{text}")
    product.start("dkpfagent")
    product.wait_lines("nmp_total_raw", product.count("nmp_total_raw") + 2)


def check(product):
    product.install(SCENARIO)
    first = first_title(product)
    code, text = product.ctl("query")
    expect(code == 1 and "is the disk agent running? (net start dkpfagent)" in text, f"without an agent: {code}\n{text}")
    code, text = product.ctl("top", "--seconds", "1")
    expect(code == 1 and re.search(r"^\S.* NO VALUES", text, re.M) and "(net start dkpfagent)" in text,
           f"top without an agent: {code}\n{text}")
    product.start()
    product.wait_lines("nmp_total_raw", 3)
    for query in ("Global", str(first), f"2 {first}"):
        check_object(product, query, first)
    names = ["_Total"] + [f"NMP{disk}" for disk in DISKS]
    wait_for("a query over one interval",
             lambda: check_values(product, names, *product.ctl("query", "--format", "json")))

    code, text = product.ctl("query", "--disk", "2", "--counter", "unsynchronized bytes", "--format", "csv")
    # The note on standard error comes first; on a system with a loader of names there would be none.
    note, head = text.split("\n")[:2]
    expect(code == 0 and head.endswith('"disk","name","Unsynchronized Bytes"'), f"csv: {code}\n{text}")
    expect(re.fullmatch(r"dkpfctl: names from .*\\etc\\tnwdiskperf\.ini, since the system has none", note), text)
    expect(re.search(r'^"[^"]*","[^"]*",\d+,\d+,\d+,2,"NMP2",\d+$', text, re.M), text)
    code, text = product.ctl("query", "--disk", "total", "--interval", "3")
    expect(code == 0 and "Write Bytes/sec" in text and "reading over 3 s" in text, f"table: {code}\n{text}")
    code, text = product.ctl("query", "--disk", "9")
    expect(code == 1 and "mirror disk 9 is not present; present: 1, 2, 5" in text, f"{code}\n{text}")
    code, text = product.ctl("query", "--counter", "nothing")
    expect(code == 2 and "Avg. us/Write" in text, f"{code}\n{text}")
    code, text = product.ctl("query", "--disk", "65")
    expect(code == 2, f"{code}\n{text}")

    check_example(product)
    check_plain(product, names)
    check_terminal(product)
    check_disabled(product)
    check_restart(product, names)
    check_killed(product)

    # Nothing of a reader stays in the table behind it.
    code, text = product.ctl("dump", "--rows")
    expect(code == 0 and text.count("process") == 0, text)
    product.stop()


main(check)
