"""Each finding of dkpfctl doctor about readers and the provider that they open: provoked, and cured by its own words."""
import json
import re
import shutil

from doctor_case import PERFORMANCE, STAGE, Case, Helper
from product import ROOT, WINE, expect, main, wait_for

QUERIES = ROOT / "build/win/tests/bin/perf_queries.exe"


class ReadersCase(Case):
    def start(self):
        """A product that is well, and what is said about it."""
        product = self.product
        code, text = product.ctl("status")
        expect(code == 0 and re.match(r"all is well\ndoctor: all \d+ checks are well\n", text), text)
        code, text = product.ctl("doctor")
        expect(f"they come from {self.windows(product.home / 'etc/tnwdiskperf.ini')}\n" in text, text)
        expect(product.ctl("doctor", "--fixx")[0] == 2, "a wrong option is accepted")

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
        host = Helper(product, QUERIES, "1")
        self.gone("rows_repeated", "rows_full", "rows_scarce", "dead_row")
        host.end()

    PARTS = (start, provider, readers, rows)


main(ReadersCase.check)
