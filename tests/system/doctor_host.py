"""Each finding of dkpfctl doctor about registration, provider, readers and files: provoked, and cured by its own words."""
import json
import re
import shutil

import model
from doctor_case import PACKAGE, STAGE, Case, Helper
from product import ROOT, WINE, expect, main, wait_for

PERFORMANCE = r"HKLM\SYSTEM\CurrentControlSet\Services\tnwdiskperf\Performance"
DEBUG = r"HKLM\Software\OSK\TARNWELL\work"
SOURCE = r"HKLM\SYSTEM\CurrentControlSet\Services\EventLog\Application\tnwdiskperf"
ENVIRONMENT = r"HKLM\SYSTEM\CurrentControlSet\Control\Session Manager\Environment"
QUERIES = ROOT / "build/win/tests/bin/perf_queries.exe"
FOREIGN = "/usr/lib/x86_64-linux-gnu/wine/x86_64-windows/version.dll"


class HostCase(Case):
    def start(self):
        """A product that is well, and what is said about it."""
        product = self.product
        code, text = product.ctl("status")
        expect(code == 0 and re.match(r"all is well\ndoctor: all \d+ checks are well\n", text), text)
        code, text = product.ctl("doctor")
        expect(f"they come from {self.windows(product.home / 'etc/tnwdiskperf.ini')}\n" in text, text)
        expect(product.ctl("doctor", "--fixx")[0] == 2, "a wrong option is accepted")

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
        for value, data in (("First Counter", 1844), ("Last Counter", 1878), ("First Help", 1845), ("Last Help", 1879)):
            add(PERFORMANCE, value, "REG_DWORD", data)
        text = self.product.ctl("doctor")[1]
        expect('names_differ: the system\'s table calls title index 1846 "End Marker", which has to be '
               f'"{model.DISPLAY_TITLES[0]}"\n' in text, text)
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
        self.cure("old_library_left", "note")
        self.gone("old_library", "old_library_held", "old_reader")

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
        self.wait_sample()  # an open without one fails too, and its row would be there to stay
        host = Helper(product, QUERIES, "1")
        self.gone("rows_repeated", "rows_full", "rows_scarce", "dead_row")
        host.end()

    def installation(self):
        product = self.product
        shutil.copy(FOREIGN, self.bin / "stranger.dll")
        for name in ("bin/tnwmsg.dll", "bin/velcorfeed.exe", "driver/velcor.sys", "etc/tnwdiskperf.ini"):
            (product.home / name).unlink()
        shutil.copy(FOREIGN, self.bin / "tnwmsg.dll")
        driver = product.prefix / "drive_c/windows/system32/drivers/velcor.sys"
        driver.unlink()
        shutil.copy(FOREIGN, driver)
        self.delete(PERFORMANCE, "Object List")
        text = product.ctl("doctor")[1]
        for words in (r"binary_missing: driver\\velcor.sys is missing",
                      r"version_differs: bin\\tnwmsg.dll has version \S+, dkpfctl has \S+",
                      r"version_differs: C:\\windows\\system32\\drivers\\velcor.sys has version \S+, dkpfctl has \S+"):
            expect(re.search(f"WRONG   {words}\n", text), f"{words}: {text}")
        cure = self.find("object_list_missing", "warning")["cure"]
        expect(cure.startswith(PACKAGE), f"set-up cannot run from here: {cure}")
        self.cure_all(("foreign_binary", "warning"), ("binary_missing", "wrong"), ("version_differs", "wrong"),
                      ("name_table_bad", "wrong"), ("object_list_missing", "warning"))
        expect(driver.read_bytes() == (STAGE / "driver/velcor.sys").read_bytes(), "not our driver")

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

    PARTS = (start, registration, provider, readers, rows, installation)


main(HostCase.check)
