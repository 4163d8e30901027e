"""Each finding of dkpfctl doctor about services, device, agent, configuration and region: provoked, and cured by its own
words."""
import json
import os
import pathlib
import re
import shutil
import signal

from doctor_case import IF_IT_STAYS, Case
from product import expect, main, wait_for

MIB = 1024 * 1024


class AgentCase(Case):
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
        self.wait_sample()  # that can grow old
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

    PARTS = (services, device, agent, configuration, region)


main(AgentCase.check)
