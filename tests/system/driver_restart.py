"""The driver is stopped and started again under a running agent: one warning, one all-clear, and the lines go on."""
from product import expect, main, wait_for


def check(product):
    product.install("disk 1 on\nstep 1000\n")
    product.start()
    product.wait_lines("nmp1", 3)
    product.must('"$common_wine" net stop velcorfeed; "$common_wine" net stop velcor')
    wait_for("the warning", lambda: product.events("0x800012C1"))
    wait_for("the agent's word", lambda: "the driver's device is gone; waiting until it opens again" in
             product.text("diskperf.log"))
    expect(product.state("dkpfagent") == "RUNNING", "the agent does not run")

    product.start("velcor", "velcorfeed")
    wait_for("the library anew", lambda: "the driver's device is there, the performance library was brought up anew" in
             product.text("diskperf.log"))
    lines = product.count("nmp1")
    product.wait_lines("nmp1", lines + 2)
    wait_for("the all-clear", lambda: product.events("0x400012C2"))
    code, text = product.ctl("status")
    expect(code == 0, f"dkpfctl status: exit code {code}\n{text}")
    product.stop()
    expect(product.state("dkpfagent") == "STOPPED", "the agent did not stop")
    for number in ("0x800012C1", "0x400012C2"):
        expect(len(product.events(number)) == 1, f"{number}: {product.events(number)}")
    expect(not product.events("0xC00012C5"), "a worker thread stopped on an error")


main(check)
