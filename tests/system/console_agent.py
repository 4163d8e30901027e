"""The agent in the foreground: Ctrl+C brings it down cleanly, its log tells its life, and the service may follow."""
import re
import signal
import subprocess

from product import WINE, expect, main, wait_for


def run_once(product, output):
    """Starts it, waits until it runs, presses Ctrl+C; its exit code and what it printed."""
    with open(output, "wb") as file:
        agent = subprocess.Popen([WINE, str(product.home / "bin/dkpfagent.exe"), "--console"], env=product.environment,
                                 stdin=subprocess.DEVNULL, stdout=file, stderr=subprocess.STDOUT)
        try:
            wait_for("the library up", lambda: b"the performance library is up" in output.read_bytes())
            # The driver is fed by nobody and idle: that must not delay the end.
            agent.send_signal(signal.SIGINT)
            code = agent.wait(100)
        finally:
            agent.kill()
            agent.wait()
    return code, output.read_text().replace("\r", "")


def check(product):
    product.install("disk 1 on\nstep 1000\n")
    for time_of_day in ("first", "second"):
        code, text = run_once(product, product.folder / f"{time_of_day}.txt")
        expect(code == 0, f"exit code {code}\n{text}")
        for words in ("running in the foreground; Ctrl+C stops it\n", "dkpfagent: stopping\n", "dkpfagent: stopped\n"):
            expect(words in text, f"not printed: {words}{text}")
    log = product.text("diskperf.log")
    life = re.findall(r" agent/agent_life\(\d+\) \w+: (dkpfagent|the performance library is up|stopping|stopped)", log)
    expect(life == ["dkpfagent", "the performance library is up", "stopping", "stopped"] * 2, f"{life}\n{log}")
    code, text = product.ctl("status")
    expect(code == 1 and "the disk agent is not running" in text, text)

    product.start("velcorfeed", "dkpfagent")  # the driver was started by the first of them
    product.wait_lines("nmp1", 2)
    product.stop()


main(check)
