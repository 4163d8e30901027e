"""The agent is told to stop while its disk is full and the driver is idle: it is down at once, and comes up again."""
import re

from disk_full import SCENARIO
from product import NotTried, expect, fill, main, wait_for


def check(product):
    # Level 31: the library says each second that it waits for a thread, so that the wait is counted and not timed.
    product.install(SCENARIO, level=31)
    if not product.mount(product.perf, "size=4m"):
        raise NotTried("a disk that runs full")
    product.start()
    product.wait_lines("nmp_total_raw", 3)
    fill(product.perf / "filler")
    wait_for("the warning", lambda: product.events("0x800012C3"))
    product.kill("velcorfeed.exe")
    product.must('"$common_wine" net stop dkpfagent')
    expect(product.state("dkpfagent") == "STOPPED", "the agent did not stop")
    log = product.text("diskperf.log")
    end = log[log.rindex(": stopping"):]
    # One thread is waited for after the other.
    seconds = end.count(" Wait(CollectThread) timeout (1sec).") + end.count(" Wait(WriteThread) timeout (1sec).")
    expect("Detect all thread exit." in end and "stopped" in end, f"no whole stop in the log:\n{end}")
    expect(seconds < 5, f"the threads were waited for {seconds} times a second\n{end}")
    expect(not re.search("not down after", end), end)

    (product.perf / "filler").unlink()
    product.start("dkpfagent")
    product.wait_lines("nmp_total_raw", product.count("nmp_total_raw") + 2)
    print(f"the threads were waited for {seconds} whole seconds")


main(check)
