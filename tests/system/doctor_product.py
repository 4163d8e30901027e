"""Each finding of dkpfctl doctor about services, configuration, region, registration and files: provoked, and cured by its
own words."""
import json
import os
import pathlib
import re
import shutil
import signal

import model
from doctor_case import IF_IT_STAYS, PACKAGE, PERFORMANCE, STAGE, Case
from product import WINE, expect, main, wait_for

DEBUG = r"HKLM\Software\OSK\TARNWELL\work"
SOURCE = r"HKLM\SYSTEM\CurrentControlSet\Services\EventLog\Application\tnwdiskperf"
ENVIRONMENT = r"HKLM\SYSTEM\CurrentControlSet\Control\Session Manager\Environment"
FOREIGN = "/usr/lib/x86_64-linux-gnu/wine/x86_64-windows/version.dll"
MIB = 1024 * 1024


class ProductCase(Case):
    def services(self):
        product = self.product
        self.wine("net", "stop", "velcorfeed")
        product.kill("dkpfagent.exe")
        self.cure_all(("feeder_not_running", "wrong"), ("service_process_gone", "wrong"), ("agent_died", "wrong"))

        # The state is written at each change of it, so that what is broken here stays until the restart.
        (product.log / "agent.state").write_text("{")
        self.cure("agent_state_damaged", "wrong")

        # Under a running agent: the next sample takes the warning back.
        self.wine("net", "stop", "velcorfeed")
        self.wine("net", "stop", "velcor")
        self.cure_all(("driver_not_running", "wrong"), ("feeder_not_running", "wrong"), ("warning_open", "wrong"),
                      more=("not_looked_at",))  # the device

        product.stop()
        self.wine("sc", "delete", "velcor")
        self.cure("driver_not_installed", "wrong")

        product.stop()
        self.cure_all(("driver_not_running", "wrong"), ("feeder_not_running", "wrong"), ("agent_not_running", "wrong"),
                      ("no_region", "wrong"), more=("not_looked_at",))

        # The agent starts where there is no driver. The driver comes later, and the file that is refused meanwhile keeps
        # the agent from taking it up. Without a first sample for 7 s, that is found too.
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
        self.cure_all(("config_refused", "wrong"), ("readers_fail_on_file", "wrong"), ("wrong_order", "wrong"),
                      ("no_sample", "wrong"), more=("warning_open",))

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
        first, rest = self.find("sample_old", "wrong")["cure"].split(IF_IT_STAYS)
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
        files = {product.perf / "nmp9.csv": 3 * MIB, product.log / "diskperf_x.log": 2 * MIB}
        for path, size in files.items():
            path.write_bytes(bytes(size))
        found = self.find_all(("reload_failed", "wrong"), ("unknown_key", "warning"), ("space_short", "warning"))
        expect("/root/diskperf/parameters/writeintervall" in found["unknown_key"]["text"], "no key")
        for code, what in (("unknown_key", "correct its name or take it out, then "), ("reload_failed", "")):
            expect(found[code]["cure"] == what + "dkpfctl config reload", found[code]["cure"])
        expect(found["space_short"]["cure"] == "free space, or lower perflogsize or perflogrotation, "
                                               "then restart the disk agent", found["space_short"]["cure"])
        wait_for("the space as it is", self.space_is_right)
        for path in files:
            path.unlink()
        self.config.write_text(self.good)
        self.do("dkpfctl config reload")
        self.gone("reload_failed", "unknown_key", "config_refused", "readers_fail_on_file")
        self.do("restart the disk agent")
        self.gone("space_short")

    def space(self):
        """Bytes that CSV files and trace logs have, and those that the volume has left. Others use it meanwhile."""
        files = [*self.product.perf.glob("nmp*.csv"), *self.product.log.glob("diskperf*.log")]
        return sum(path.stat().st_size for path in files), shutil.disk_usage(self.product.perf).free

    def space_is_right(self):
        before = self.space()
        text = self.findings()["space_short"]["text"]
        said = map(int, re.search(r"have (\d+) MiB; the volume has (\d+) MiB left", text).groups())
        return all(min(real) // MIB <= number <= max(real) // MIB for number, real in zip(said, zip(before, self.space())))

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

    PARTS = (services, device, agent, configuration, region, registration, installation)


main(ProductCase.check)
