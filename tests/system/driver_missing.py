"""The driver cannot be started: the agent stays, raises its event, dkpfctl status says in words what is wrong, and the driver
is taken up when it appears."""
import re
import shutil

from product import expect, main, wait_for


def check(product):
    product.install("disk 1 on\nstep 1000\n")
    driver = product.prefix / "drive_c/windows/system32/drivers/velcor.sys"
    driver.unlink()
    product.start("velcorfeed", "dkpfagent")  # in any order: the feeder waits for the device
    event = wait_for("the event", lambda: product.events("0xC00012C5"))
    expect(len(event) == 1, f"events: {event}")
    expect(re.fullmatch(r"\d{4}/\d\d/\d\d \d\d:\d\d:\d\d\.\d{3} ERROR 0xC00012C5 A worker thread of the disk "
                        r"performance library stopped on an error\. .*restart the disk agent service\.", event[0]),
           event[0])
    expect("CreateFile(VELCOR_CTRL) error. <W32Err=2>" in product.text("diskperf.log"), "no reason in diskperf.log")

    code, text = product.ctl("status")
    expect(code == 1, f"dkpfctl status: exit code {code}\n{text}")
    # Services stay RUNNING here when their process is gone: status looks at the process too.
    expect(product.state("dkpfagent") == "RUNNING" and product.processes("dkpfagent.exe"), "the agent does not run")
    for words in ("WRONG: the driver velcor is stopped\n       net start velcor; a running disk agent takes it up by itself\n",
                  "not taken back: A worker thread of the disk performance library stopped on an error.",
                  "the driver's service velcor could not be started: error "):
        expect(words in text, f"not in the status: {words}\n{text}")
    expect(not list(product.perf.iterdir()), f"files: {list(product.perf.iterdir())}")
    waits = "the driver's device is not there; waiting until it opens again"
    wait_for("the agent's word", lambda: waits in product.text("diskperf.log"))

    shutil.copy(product.home / "driver/velcor.sys", driver)
    product.start("velcor")
    wait_for("the library anew", lambda: "the driver's device is there, the performance library was brought up anew" in
             product.text("diskperf.log"))
    product.wait_lines("nmp1", 3)
    # The event has no all-clear: that the library is up since then settles it.
    code, text = product.ctl("status")
    expect(code == 0 and text.startswith("all is well\n") and " 0xc00012c5 " in text, f"status: {code}\n{text}")
    expect(product.text("diskperf.log").count(waits) == 1, "told more than once")
    product.stop()
    expect(product.state("dkpfagent") == "STOPPED", "the agent did not stop")
    expect(len(product.events("0xC00012C5")) == 1, "the event came again")


main(check)
