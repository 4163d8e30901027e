"""Each finding of dkpfctl doctor, provoked on the installed product and cured by following its own words."""
import json
import re
import shutil
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
# Parts of cures that are for people.
SAID_ONLY = ("programs see it when they are started again", "services after a restart of the machine",
             "the order of starting is velcor", "velcorfeed", "dkpfagent")


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

    # ---- Registration ----

    def add(self, key, value, kind, data):
        self.wine("reg", "add", key, "/v", value, "/t", kind, "/d", str(data), "/f")

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

    def cure(self, code, level, *more):
        """Finds it, follows its words, and it is gone; so are those that came with it."""
        self.follow(self.find(code, level)["cure"])
        self.gone(code, *more)

    def follow(self, cure):
        """Does what the words say, command by command."""
        package = "out of the package of the version that is wanted: "
        for command in re.split(r"; |, then |, ", cure):
            program = (STAGE if command.startswith(package) else self.product.home) / "bin/dkpfctl.exe"
            self.do(program, command.removeprefix(package))

    def do(self, program, command):
        if command.startswith("dkpfctl "):
            if command == "dkpfctl config reload":
                time.sleep(1.5)  # more than an interval: several reloads in one may stop the collecting
            words = [word.strip('"') for word in re.findall(r'"[^"]*"|\S+', command)]
            code, text = self.product.run([WINE, str(program), *words[1:]])
            expect(code == 0, f"{command}: exit code {code}\n{text}")
        elif command == "free space on its volume":
            (self.product.perf / "filler").unlink()
        elif command == "restart the disk agent":
            self.product.must("product_stop")
            self.product.start()
        elif command == "stop the disk agent and every reader":
            if self.product.state("dkpfagent") == "RUNNING":
                self.wine("net", "stop", "dkpfagent")
            while self.holders:
                self.holders.pop().end()
        elif command.startswith("net start "):
            self.product.start(command.split()[2])
        elif command.startswith(("net ", "reg ")):
            self.wine(*command.replace('"', "").split())
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
        self.cure("feeder_not_running", "wrong")

        product.kill("dkpfagent.exe")
        self.find("service_process_gone", "wrong")
        self.cure("agent_died", "wrong", "service_process_gone")

        self.wine("net", "stop", "dkpfagent")
        self.find("no_region", "wrong")
        self.cure("agent_not_running", "wrong", "no_region")

        product.stop()
        self.find("not_looked_at", "note")  # the device
        self.cure("driver_not_running", "wrong", "agent_not_running", "feeder_not_running", "not_looked_at")

        # The agent starts where there is no driver, and the driver comes later.
        product.stop()
        driver = product.prefix / "drive_c/windows/system32/drivers/velcor.sys"
        aside = product.folder / "velcor.sys"
        shutil.move(driver, aside)
        product.start("velcorfeed", "dkpfagent")
        count = len(product.events("0xC00012C5"))
        wait_for("the event", lambda: len(product.events("0xC00012C5")) > count or count)
        shutil.move(aside, driver)
        product.start("velcor")
        self.cure("wrong_order", "wrong", "warning_open", "no_sample")

    def configuration(self):
        product = self.product
        good = self.config.read_text()
        self.config.write_text(good.replace("<writeinterval>1<", "<writeinterval>often<"))
        self.find("readers_fail_on_file", "wrong")
        self.find("config_refused", "wrong")
        self.config.write_text(good)
        self.follow("dkpfctl config reload")
        self.gone("config_refused", "readers_fail_on_file")

        # Refused by the agent, and corrected behind its back.
        self.config.write_text(good.replace("<writeinterval>1<", "<writeinterval>often<"))
        helper = self.provoke("reload")
        wait_for("the agent's refusal", lambda: '"result": "refused"' in product.text("agent.state"))
        helper.end()
        self.config.write_text(good)
        self.cure("reload_failed", "wrong")

        self.config.write_text(good.replace("<writeinterval>", "<writeintervall>5</writeintervall><writeinterval>"))
        expect("/root/diskperf/parameters/writeintervall" in self.find("unknown_key", "warning")["text"], "no key")
        self.config.write_text(good)
        self.follow("dkpfctl config reload")
        self.gone("unknown_key")

        product.set("perflogsize", 1048576)
        product.set("perflogrotation", 99)
        self.find("space_short", "warning")
        self.config.write_text(good)
        self.follow("dkpfctl config reload")
        self.gone("space_short")

    def region(self):
        """Damaged, and of the size of another version, kept alive by a reader of that version."""
        helper = self.provoke("damage")
        helper.end()
        self.cure("region_damaged", "wrong")

        self.wine("net", "stop", "dkpfagent")
        self.holders.append(self.provoke("hold", "smaller"))
        self.find("region_size", "wrong")
        self.cure("region_refused", "wrong", "region_size", "agent_not_running")

        self.wine("net", "stop", "dkpfagent")
        self.holders.append(self.provoke("hold", "larger"))
        self.follow("net start dkpfagent")
        self.cure("region_size", "wrong")

    def registration(self):
        for value, code, level in (("Library", "library_value_missing", "wrong"),
                                   ("Open", "export_value_missing", "wrong"),
                                   ("Last Counter", "index_missing", "wrong"), ("First Help", "index_missing", "wrong"),
                                   ("Object List", "object_list_missing", "warning")):
            self.wine("reg", "delete", PERFORMANCE, "/v", value, "/f")
            self.cure(code, level)
        for value, kind, data, code in (
                ("Collect", "REG_SZ", "Collect", "export_value_wrong"),
                ("Library", "REG_SZ", "tnwdiskperf.dll", "library_no_full_path"),
                ("Library", "REG_SZ", r"C:\gone\tnwdiskperf.dll", "library_file_missing"),
                ("Library", "REG_SZ", self.windows(self.bin / "tnwlog.dll"), "library_elsewhere"),
                ("Library", "REG_SZ", self.windows(self.bin / "tnwlog.dll"), "export_missing"),
                ("Library", "REG_SZ", self.windows(self.config), "library_damaged"),
                ("Last Help", "REG_DWORD", 2030, "index_range"),
                ("Object List", "REG_SZ", "20 200 20000", "object_list_wrong")):
            self.add(PERFORMANCE, value, kind, data)
            self.cure(code, "wrong", "library_elsewhere")
        self.wine("reg", "delete", PERFORMANCE, "/f")
        self.cure("not_registered", "wrong", "not_looked_at")

        (self.product.home / "etc/tnwdiskperf.ini").unlink()
        self.cure("name_table_bad", "wrong")

        self.wine("reg", "delete", SOURCE, "/f")
        self.cure("event_source_missing", "warning")
        self.add(SOURCE, "EventMessageFile", "REG_SZ", r"C:\gone\tnwmsg.dll")
        self.cure("event_file_missing", "warning")

        code, text = self.product.run([WINE, "reg", "query", ENVIRONMENT, "/v", "Path"])
        kind, path = re.search(r"(REG_\w+)\s+(.*)", text).groups()
        ours = f";{self.windows(self.bin)}"
        expect(path.endswith(ours), f"set-up left the PATH {path}")
        self.add(ENVIRONMENT, "Path", kind, path.removesuffix(ours))
        self.cure("path_lacks_bin", "warning")

        self.add(DEBUG, "dkpf_debug", "REG_DWORD", 2)
        self.cure("debug_stops", "wrong")
        self.add(DEBUG, "dkpf_debug", "REG_DWORD", 8)
        self.cure("debug_value_left", "note")
        self.wine("reg", "delete", DEBUG, "/f")
        self.cure("debug_key_missing", "warning")

    def provider(self):
        """Switched off by the system: on again only where its next open would succeed."""
        self.add(PERFORMANCE, "Disable Performance Counters", "REG_DWORD", 1)
        self.cure("provider_disabled", "wrong")
        code, _ = self.product.run([WINE, "reg", "query", PERFORMANCE, "/v", "Disable Performance Counters"])
        expect(code != 0, "the value is still there")

        self.add(PERFORMANCE, "Disable Performance Counters", "REG_DWORD", 1)
        self.wine("net", "stop", "dkpfagent")
        code, text = self.product.ctl("doctor", "--fix")
        expect(code == 1 and "the provider stays switched off, since its next open would fail: there is no shared "
                             "region: is the disk agent running?\n" in text, text)
        self.find("provider_disabled", "wrong")
        self.follow("net start dkpfagent")
        wait_for("a sample, so that it says --fix",
                 lambda: self.findings()["provider_disabled"]["cure"] == "dkpfctl doctor --fix")
        self.cure("provider_disabled", "wrong")

    def readers(self):
        product = self.product
        # A reader that was killed leaves its row to the next one.
        reader = self.reader()
        reader.tell("die")
        reader.process.wait(60)
        self.find("dead_row", "note")
        reader = self.reader()
        self.gone("dead_row")

        # Its region is wiped by the agent's next start.
        self.wine("net", "stop", "dkpfagent")
        self.follow("net start dkpfagent")
        text = self.find("old_reader", "warning")["text"]
        expect("(diskperf_role.exe)" in text, text)
        reader.leave()
        reader = self.reader()
        self.gone("old_reader")

        # It hangs with the lock.
        expect(reader.ask("hold") == "held", "not held")
        self.find("region_busy", "wrong")
        reader.end()
        self.gone("region_busy", "sample_old")

        # Another copy of the library.
        folder = product.folder / "other/bin"
        shutil.copytree(self.bin, folder)
        shutil.copytree(product.home / "etc", folder.parent / "etc")
        reader = self.reader(folder / "tnwdiskperf.dll")
        expect(r"\other\bin\tnwdiskperf.dll" in self.find("old_library", "warning")["text"], "no path")
        reader.leave()
        self.gone("old_library", "dead_row")

        # Replaced under a reader and the agent.
        reader = self.reader()
        aside = self.bin / "tnwdiskperf.dll.old-1"
        self.wine("cmd", "/c", "ren", self.windows(self.dll), aside.name)
        shutil.copy(STAGE / "bin/tnwdiskperf.dll", self.dll)
        self.find("old_library_held", "note")
        reader.leave()
        self.wine("net", "stop", "dkpfagent")
        self.follow("net start dkpfagent")
        self.cure("old_library_left", "note", "old_library")

    def rows(self):
        """Each open that fails leaves a row where the host unloads the library, as the system here does."""
        product = self.product
        good = self.config.read_text()
        product.set("perfenable", 0)
        self.follow("dkpfctl config reload")
        host = Helper(product, QUERIES, "2")
        expect("has 2 consumer rows" in self.find("rows_repeated", "warning")["text"], "not 2 rows")
        host.end()
        host = Helper(product, QUERIES, "29")
        self.find("rows_scarce", "warning")
        host.end()
        host = Helper(product, QUERIES, "33")
        expect("(perf_queries.exe)" in self.find("rows_full", "wrong")["text"], "no owner")
        host.end()
        self.config.write_text(good)
        self.follow("dkpfctl config reload")
        host = Helper(product, QUERIES, "1")
        self.gone("rows_repeated", "rows_full", "rows_scarce", "dead_row")
        host.end()

    def installation(self):
        product = self.product
        stranger = self.bin / "stranger.dll"
        shutil.copy(self.foreign, stranger)
        self.cure("foreign_binary", "warning")

        resources = self.bin / "tnwmsg.dll"
        resources.unlink()
        self.find("binary_missing", "wrong")
        shutil.copy(self.foreign, resources)
        self.find("version_differs", "wrong")
        resources.unlink()
        shutil.copy(STAGE / "bin/tnwmsg.dll", resources)  # as the package of this version has it
        self.gone("binary_missing", "version_differs")

        self.wine("net", "stop", "dkpfagent")
        # Names of files may run out before the space does.
        mount = subprocess.run(["mount", "-t", "tmpfs", "-o", "nr_inodes=2", "tmpfs", str(product.perf)],
                               capture_output=True, text=True)
        if mount.returncode == 0:
            (product.perf / "filler").touch()
            self.cure("folder_not_writable", "wrong")
            subprocess.run(["umount", str(product.perf)], check=True)
        else:
            print(f"no small disk can be made here, mount says: {mount.stderr.strip()}")
            expect("permission denied" in mount.stderr or "must be superuser" in mount.stderr, mount.stderr)

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

    for part in (case.services, case.configuration, case.region, case.registration, case.provider, case.readers,
                 case.rows, case.installation):
        part()
        case.well(part.__name__)
        print(f"{part.__name__}: cured", flush=True)
    product.stop()


main(check)
