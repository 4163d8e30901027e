"""Each finding of dkpfctl doctor, provoked on the installed product and cured by following its own words."""
import json
import os
import pathlib
import re
import shutil
import signal
import subprocess
import time

from product import ROOT, WINE, Failed, expect, main, wait_for

PERFORMANCE = r"HKLM\SYSTEM\CurrentControlSet\Services\tnwdiskperf\Performance"
DEBUG = r"HKLM\Software\OSK\TARNWELL\work"
SOURCE = r"HKLM\SYSTEM\CurrentControlSet\Services\EventLog\Application\tnwdiskperf"
ENVIRONMENT = r"HKLM\SYSTEM\CurrentControlSet\Control\Session Manager\Environment"
ROLE = ROOT / "build/win/tests/diskperf_role.exe"
QUERIES = ROOT / "build/win/tests/bin/perf_queries.exe"
PROVOKE = ROOT / "build/win/tests/bin/provoke.exe"
STAGE = ROOT / "build/stage"
PACKAGE = "out of the package of the version that is wanted: "
# Parts of cures that are for people, or only to be waited for.
SAID_ONLY = ("programs see it when they are started again", "services after a restart of the machine",
             "a running disk agent takes it up by itself", "it writes the file anew", "the module log may hold the cause",
             "the disk agent then takes the driver up by itself within 5 s")


def commands_of(cure):
    return re.split(r"; |, then |, |: (?=the disk agent|it writes)", cure)


def words_of(command):
    return [word.strip('"') for word in re.findall(r'"[^"]*"|\S+', command)]


class Helper:
    """A program of the tests that runs beside the product until it is ended."""

    def __init__(self, product, program, *arguments):
        self.process = subprocess.Popen([WINE, str(program), *arguments], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                        stderr=subprocess.DEVNULL, text=True,
                                        # the library's own libraries are found over the path
                                        env=dict(product.environment, WINEPATH=product.must(
                                            'windows_path "$1"', product.home / "bin").strip()))
        self.line = self.process.stdout.readline().strip()

    def ask(self, command):
        self.tell(command)
        return self.process.stdout.readline().strip()

    def tell(self, command):
        self.process.stdin.write(command + "\n")
        self.process.stdin.flush()

    def leave(self):
        """A reader gives its row back first."""
        self.ask("term")
        self.end()

    def end(self):
        self.process.stdin.close()
        self.process.wait(60)


class Case:
    def __init__(self, product):
        self.product = product
        self.bin = product.home / "bin"
        self.dll = self.bin / "tnwdiskperf.dll"
        self.config = product.home / "etc/cluster.xml"
        self.good = self.config.read_text()
        self.bad = self.good.replace("<writeinterval>1<", "<writeinterval>often<")
        self.holders = []  # programs that a cure ends

    # ---- Programs ----

    def windows(self, path):
        return self.product.must('windows_path "$1"', path).strip()

    def wine(self, *command):
        code, text = self.product.run([WINE, *command])
        expect(code == 0, f"{command}: exit code {code}\n{text}")

    def reader(self, dll=None):
        """A process that is attached as a consumer."""
        role = Helper(self.product, ROLE, self.windows(dll or self.dll))
        expect(role.line == "READY", f"the role says {role.line}")
        expect(role.ask("init 0") == "1 b0000000", "the role could not attach")
        return role

    def provoke(self, *arguments):
        helper = Helper(self.product, PROVOKE, *arguments)
        expect(helper.line == "done", f"provoke {arguments}: {helper.line}")
        return helper

    # ---- Registry ----

    def add(self, key, value, kind, data):
        self.wine("reg", "add", key, "/v", value, "/t", kind, "/d", str(data), "/f")

    def delete(self, key, value):
        self.wine("reg", "delete", key, "/v", value, "/f")

    # ---- Doctor ----

    def findings(self):
        """{code: finding} of all that is not ok, with the exit code that goes with them."""
        code, text = self.product.ctl("doctor", "--json")
        report = json.loads(text)
        levels = {finding["level"] for finding in report["findings"]}
        worst = 1 if "wrong" in levels else 3 if "warning" in levels else 0
        expect(code == worst == report["exit_code"], f"exit code {code} for {levels}")
        expect(report["format"] == 1 and re.search(r"[+-]\d\d:\d\d$", report["time"]), text)
        found = {}
        for finding in report["findings"]:
            if finding["level"] != "ok":
                found.setdefault(finding["code"], finding)
        return found

    def find(self, code, level):
        found = wait_for(f"the finding {code}", lambda: self.findings().get(code))
        expect(found["level"] == level, f"{code} is a {found['level']}")
        return found

    def gone(self, *codes):
        wait_for(f"no {codes}", lambda: not set(codes) & set(self.findings()))

    def well(self, part):
        try:
            wait_for(f"nothing but well behind {part}", lambda: not self.findings())
        except Failed as failure:
            raise Failed(f"{failure}: {self.findings()}") from None

    def find_all(self, *wanted):
        """Findings, each (code, level), which one run of the doctor shows together."""
        def look():
            found = self.findings()
            return found if all(code in found for code, _ in wanted) else None
        found = wait_for(f"the findings {wanted}", look)
        for code, level in wanted:
            expect(found[code]["level"] == level, f"{code} is a {found[code]['level']}")
        return found

    def cure(self, code, level, *more):
        """Finds it, follows its words, and it is gone; so are those that came with it."""
        self.cure_all((code, level), more=more)

    def cure_all(self, *wanted, more=()):
        """The same for several at once; a command that several of them say is given once."""
        found = self.find_all(*wanted)
        commands = {}
        for code, _ in wanted:
            commands.update(dict.fromkeys(commands_of(found[code]["cure"])))
        for command in commands:
            self.do(command)
        self.gone(*(code for code, _ in wanted), *more)

    def follow(self, cure):
        """Does what the words say, command by command."""
        for command in commands_of(cure):
            self.do(command)

    def do(self, command):
        if command.startswith(("dkpfctl ", PACKAGE)):
            if command == "dkpfctl config reload":
                time.sleep(1.5)  # more than an interval: several reloads in one may stop the collecting
            home = STAGE if command.startswith(PACKAGE) else self.product.home
            words = words_of(command.removeprefix(PACKAGE))
            code, text = self.product.run([WINE, str(home / "bin/dkpfctl.exe"), *words[1:]])
            expect(code == 0, f"{command}: exit code {code}\n{text}")
        elif command == "free space on its volume":
            (self.product.perf / "filler").unlink()
        elif command == "restart the disk agent":
            self.wine("net", "stop", "dkpfagent")
            self.wine("net", "start", "dkpfagent")
        elif command == "correct the configuration file":
            self.config.write_text(self.good)
        elif command == "stop the disk agent and every reader":
            if self.product.state("dkpfagent") == "RUNNING":
                self.wine("net", "stop", "dkpfagent")
            while self.holders:
                self.holders.pop().end()
        elif command.startswith(("net ", "reg ", "taskkill ")):
            self.wine(*words_of(command))
        elif command.startswith(("del ", "mkdir ")):
            verb, path = command.split(" ", 1)
            local = path.strip('"').replace("\\", "/")[2:]  # every path here is one of Z:
            expect(str(self.product.home) in local, command)
            self.wine("cmd", "/c", verb, path.strip('"'))
        else:
            expect(command in SAID_ONLY, f"nobody knows how to do this: {command}")

    # ---- The cases ----

    def services(self):
        product = self.product
        self.wine("net", "stop", "velcorfeed")
        product.kill("dkpfagent.exe")
        self.cure_all(("feeder_not_running", "wrong"), ("agent_died", "wrong"), more=("service_process_gone",))

        # The state is written at each change of it, so that what is broken here stays until the restart.
        (product.log / "agent.state").write_text("{")
        self.cure("agent_state_damaged", "wrong")

        product.stop()
        self.wine("sc", "delete", "velcor")
        self.cure("driver_not_installed", "wrong")

        product.stop()
        self.find("not_looked_at", "note")  # the device
        self.cure_all(("driver_not_running", "wrong"), ("feeder_not_running", "wrong"), ("agent_not_running", "wrong"),
                      more=("no_region", "not_looked_at"))

        # The agent starts where there is no driver. The driver comes later, and the file that is refused meanwhile keeps
        # the agent from taking it up.
        product.stop()
        driver = product.prefix / "drive_c/windows/system32/drivers/velcor.sys"
        aside = product.folder / "velcor.sys"
        shutil.move(driver, aside)
        count = len(product.events("0xC00012C5"))
        product.start("velcorfeed", "dkpfagent")
        wait_for("the event", lambda: len(product.events("0xC00012C5")) > count)
        self.config.write_text(self.bad)
        shutil.move(aside, driver)
        product.start("velcor")
        self.find("config_refused", "wrong")
        self.cure("wrong_order", "wrong", "warning_open", "no_sample", "config_refused", "readers_fail_on_file")

    def device(self):
        """A driver that runs and cannot be reached, or does not answer."""
        helper = self.provoke("unlink")
        helper.end()
        self.cure("device_not_opened", "wrong")

        host = [number for number in self.product.processes("winedevice.exe")
                if "/velcor.sys" in pathlib.Path(f"/proc/{number}/maps").read_text()]
        expect(len(host) == 1, f"processes with the driver: {host}")
        os.kill(host[0], signal.SIGSTOP)
        try:
            self.find("driver_hangs", "wrong")
        finally:
            os.kill(host[0], signal.SIGCONT)
        self.gone("driver_hangs", "sample_old")  # by looking again

    def agent(self):
        """It hangs: the reload that the words try first does not reach it."""
        wait_for("a sample that can grow old", lambda: json.loads(self.product.ctl("status", "--json")[1])["sample"])
        state = json.loads(self.product.text("agent.state"))
        helper = self.provoke("suspend", str(state["pid"]))
        helper.end()
        first, rest = self.find("sample_old", "wrong")["cure"].split("; if that does not help, ")
        expect(first == "dkpfctl config reload", first)
        code, text = self.product.ctl("config", "reload")
        expect(code != 0, text)
        self.follow(rest)
        self.gone("sample_old")

    def configuration(self):
        product = self.product
        self.config.write_text(self.bad)
        self.find_all(("readers_fail_on_file", "wrong"), ("config_refused", "wrong"))
        # Refused by the agent too, and corrected behind its back: with a key that nobody reads, and more files than fit.
        helper = self.provoke("reload")
        wait_for("the agent's refusal", lambda: '"result": "refused"' in product.text("agent.state"))
        helper.end()
        text = self.good.replace("<writeinterval>", "<writeintervall>5</writeintervall><writeinterval>")
        for key, value in (("perflogsize", 1048576), ("perflogrotation", 99)):
            text = re.sub(f"(?<=<{key}>)\\d+", str(value), text)
        self.config.write_text(text)
        found = self.find_all(("reload_failed", "wrong"), ("unknown_key", "warning"), ("space_short", "warning"))
        expect("/root/diskperf/parameters/writeintervall" in found["unknown_key"]["text"], "no key")
        for code, what in (("unknown_key", "correct its name or take it out, then "), ("reload_failed", "")):
            expect(found[code]["cure"] == what + "dkpfctl config reload", found[code]["cure"])
        expect(found["space_short"]["cure"] == "free space, or lower perflogsize or perflogrotation, "
                                               "then restart the disk agent", found["space_short"]["cure"])
        self.config.write_text(self.good)
        self.do("dkpfctl config reload")
        self.gone("reload_failed", "unknown_key", "config_refused", "readers_fail_on_file")
        self.do("restart the disk agent")
        self.gone("space_short")

    def region(self):
        """Damaged, and of the size of another version, kept alive by a reader of that version."""
        helper = self.provoke("damage")
        helper.end()
        self.cure("region_damaged", "wrong")

        self.wine("net", "stop", "dkpfagent")
        self.holders.append(self.provoke("hold", "smaller"))
        self.cure("region_refused", "wrong", "region_size", "agent_not_running")

        self.wine("net", "stop", "dkpfagent")
        self.holders.append(self.provoke("hold", "larger"))
        self.follow("net start dkpfagent")
        self.cure("region_size", "wrong")

    def registration(self):
        """What one installation mends is broken together; each finding has to say these words itself."""
        delete, add = self.delete, self.add
        code, text = self.product.run([WINE, "reg", "query", ENVIRONMENT, "/v", "Path"])
        kind, path = re.search(r"(REG_\w+)\s+(.*)", text).groups()
        ours = f";{self.windows(self.bin)}"
        expect(path.endswith(ours), f"set-up left the PATH {path}")
        add(ENVIRONMENT, "Path", kind, path.removesuffix(ours))
        for value in ("Library", "Open", "Last Counter", "First Help", "Object List"):
            delete(PERFORMANCE, value)
        self.wine("reg", "delete", SOURCE, "/f")
        self.cure_all(("library_value_missing", "wrong"), ("export_value_missing", "wrong"), ("index_missing", "wrong"),
                      ("object_list_missing", "warning"), ("event_source_missing", "warning"),
                      ("path_lacks_bin", "warning"))

        add(PERFORMANCE, "Collect", "REG_SZ", "Collect")
        add(PERFORMANCE, "Library", "REG_SZ", "tnwdiskperf.dll")
        add(PERFORMANCE, "Last Help", "REG_DWORD", 2030)
        add(PERFORMANCE, "Object List", "REG_SZ", "20 200 20000")
        add(SOURCE, "EventMessageFile", "REG_SZ", r"C:\gone\tnwmsg.dll")
        self.cure_all(("export_value_wrong", "wrong"), ("library_no_full_path", "wrong"), ("index_range", "wrong"),
                      ("object_list_wrong", "wrong"), ("event_file_missing", "warning"))

        add(PERFORMANCE, "Library", "REG_SZ", r"C:\gone\tnwdiskperf.dll")
        self.cure("library_file_missing", "wrong")
        add(PERFORMANCE, "Library", "REG_SZ", self.windows(self.bin / "tnwlog.dll"))
        self.cure_all(("library_elsewhere", "wrong"), ("export_missing", "wrong"))
        add(PERFORMANCE, "Library", "REG_SZ", self.windows(self.config))
        self.cure("library_damaged", "wrong", "library_elsewhere")
        self.wine("reg", "delete", PERFORMANCE, "/f")
        self.cure("not_registered", "wrong", "not_looked_at")

        # Set-up would take the debug switch away too: here its own words have to do it.
        # The library takes the switch of any type.
        add(DEBUG, "dkpf_debug", "REG_BINARY", "02000000")
        add(PERFORMANCE, "Collect Supports Metadata", "REG_DWORD", 1)
        self.cure_all(("debug_stops", "wrong"), ("metadata_claimed", "wrong"))
        add(DEBUG, "dkpf_debug", "REG_DWORD", 8)
        self.cure("debug_value_left", "note")
        self.wine("reg", "delete", DEBUG, "/f")
        self.cure("debug_key_missing", "warning")

        # A range in which the system's table has a name of its own: here there are two, 1 and 1846.
        for value, data in (("First Counter", 1846), ("Last Counter", 1880), ("First Help", 1847), ("Last Help", 1881)):
            add(PERFORMANCE, value, "REG_DWORD", data)
        add(PERFORMANCE, "Object List", "REG_SZ", "1846")
        text = self.find("names_differ", "wrong")["text"]
        expect(text == 'the system\'s table calls title index 1846 "End Marker", which has to be '
               '"Cluster Disk Resource Performance"', text)
        self.cure("names_differ", "wrong")

    def provider(self):
        """Switched off by the system: on again only where its next open would succeed."""
        self.add(PERFORMANCE, "Disable Performance Counters", "REG_DWORD", 1)
        self.wine("net", "stop", "dkpfagent")
        code, text = self.product.ctl("doctor", "--fix")
        expect(code == 1 and "the provider stays switched off, since its next open would fail: there is no shared "
                             "region: is the disk agent running?\n" in text, text)
        self.find("provider_disabled", "wrong")
        self.do("net start dkpfagent")
        wait_for("a sample, so that it says --fix",
                 lambda: self.findings()["provider_disabled"]["cure"] == "dkpfctl doctor --fix")
        self.cure("provider_disabled", "wrong")
        code, _ = self.product.run([WINE, "reg", "query", PERFORMANCE, "/v", "Disable Performance Counters"])
        expect(code != 0, "the value is still there")

    def readers(self):
        product = self.product
        # A reader that was killed leaves its row to the next one.
        reader = self.reader()
        reader.tell("die")
        reader.process.wait(60)
        self.find("dead_row", "note")
        reader = self.reader()
        self.gone("dead_row")

        # One of another copy of the library. Ours is replaced under the other reader and the agent, and the agent's next
        # start wipes the region of both.
        folder = product.folder / "other/bin"
        shutil.copytree(self.bin, folder)
        shutil.copytree(product.home / "etc", folder.parent / "etc")
        other = self.reader(folder / "tnwdiskperf.dll")
        aside = self.bin / "tnwdiskperf.dll.old-1"
        self.wine("cmd", "/c", "ren", self.windows(self.dll), aside.name)
        shutil.copy(STAGE / "bin/tnwdiskperf.dll", self.dll)
        self.do("restart the disk agent")
        found = self.find_all(("old_reader", "warning"), ("old_library", "warning"), ("old_library_held", "note"))
        expect("(diskperf_role.exe)" in found["old_reader"]["text"], found["old_reader"]["text"])
        # Who holds the replaced one is not said here: this system knows a mapped file by the name of its opening only.
        path = found["old_library"]["text"].rsplit(": ", 1)[1]
        expect(path == self.windows(folder / "tnwdiskperf.dll"), path)
        for code in ("old_reader", "old_library"):
            expect(found[code]["cure"] == "end that program and start it again", found[code]["cure"])
        reader.leave()
        other.leave()
        reader = self.reader()
        self.cure("old_library_left", "note", "old_library", "old_library_held", "old_reader")

        # It hangs with the lock.
        owners = {row["pid"] for row in json.loads(product.ctl("status", "--json")[1])["consumers"]}
        expect(len(owners) == 1, f"the reader is not alone: {owners}")
        expect(reader.ask("hold") == "held", "not held")
        text = self.find("region_busy", "wrong")["text"]
        expect(f"process {owners.pop()} (diskperf_role.exe)" in text.split("; held by one of: ")[1], text)
        reader.end()
        self.gone("region_busy", "sample_old")
        self.reader().leave()  # frees the row of the one that ended with the lock

    def rows(self):
        """Each open that fails leaves a row where the host unloads the library, as the system here does."""
        product = self.product
        product.set("perfenable", 0)
        self.follow("dkpfctl config reload")
        hosts = [Helper(product, QUERIES, "29")]
        found = self.find_all(("rows_repeated", "warning"), ("rows_scarce", "warning"))
        expect("has 29 consumer rows" in found["rows_repeated"]["text"], "not 29 rows")
        hosts.append(Helper(product, QUERIES, "4"))
        expect(self.find("rows_full", "wrong")["text"].count("(perf_queries.exe)") == 2, "no owners")
        for host in hosts:
            host.end()
        self.config.write_text(self.good)
        self.follow("dkpfctl config reload")
        host = Helper(product, QUERIES, "1")
        self.gone("rows_repeated", "rows_full", "rows_scarce", "dead_row")
        host.end()

    def installation(self):
        product = self.product
        shutil.copy(self.foreign, self.bin / "stranger.dll")
        for name in ("bin/tnwmsg.dll", "bin/velcorfeed.exe", "driver/velcor.sys", "etc/tnwdiskperf.ini"):
            (product.home / name).unlink()
        shutil.copy(self.foreign, self.bin / "tnwmsg.dll")
        text = product.ctl("doctor")[1]
        expect("binary_missing: driver\\velcor.sys is missing\n" in text, text)
        self.cure_all(("foreign_binary", "warning"), ("binary_missing", "wrong"), ("version_differs", "wrong"),
                      ("name_table_bad", "wrong"))

        self.wine("net", "stop", "dkpfagent")
        # Names of files may run out before the space does.
        if product.mount(product.perf, "nr_inodes=2"):
            (product.perf / "filler").touch()
            self.cure("folder_not_writable", "wrong")
            product.unmount()

        aside = product.folder / "log"
        product.log.rename(aside)
        self.cure("folder_missing", "wrong")
        shutil.rmtree(product.log)
        aside.rename(product.log)
        self.follow("net start dkpfagent")

    foreign = "/usr/lib/x86_64-linux-gnu/wine/x86_64-windows/version.dll"


def check(product):
    product.install("disk 1 on async\nstep 1000\n")
    case = Case(product)
    product.start()
    code, text = product.ctl("doctor")
    expect(wait_for("nothing", lambda: product.ctl("doctor")[0] == 0), text)
    code, text = product.ctl("status")
    expect(code == 0 and re.match(r"all is well\ndoctor: all \d+ checks are well\n", text), text)
    code, text = product.ctl("doctor")
    expect(f"they come from {case.windows(product.home / 'etc/tnwdiskperf.ini')}\n" in text, text)
    expect(product.ctl("doctor", "--fixx")[0] == 2, "a wrong option is accepted")

    for part in (case.services, case.device, case.agent, case.configuration, case.region, case.registration, case.provider, case.readers,
                 case.rows, case.installation):
        start = time.monotonic()
        part()
        case.well(part.__name__)
        print(f"{part.__name__}: cured in {time.monotonic() - start:.0f} s", flush=True)
    product.stop()


main(check)
