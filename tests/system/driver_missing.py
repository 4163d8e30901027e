"""The driver cannot be started: the agent stays, raises its event, and dkpfctl status says in words what is wrong."""
import re

from product import expect, main, wait_for


def check(product):
    product.install("disk 1 on\nstep 1000\n")
    (product.prefix / "drive_c/windows/system32/drivers/velcor.sys").unlink()
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
    for words in ("WRONG: the driver velcor is stopped\n       net start velcor, then restart the disk agent\n",
                  "not taken back: A worker thread of the disk performance library stopped on an error.",
                  "the driver's service velcor could not be started: error "):
        expect(words in text, f"not in the status: {words}\n{text}")
    expect(not list(product.perf.iterdir()), f"files: {list(product.perf.iterdir())}")
    product.stop()
    expect(product.state("dkpfagent") == "STOPPED", "the agent did not stop")
    expect(len(product.events("0xC00012C5")) == 1, "the event came again")


main(check)
