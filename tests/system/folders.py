"""The perf folder is gone or write-protected, then the log folder: the agent starts and collects; lines are missing as
long as the cause lasts and no longer; the CSV folder has one warning and one all-clear each time."""
import datetime
import subprocess

from product import NotTried, expect, expect_whole_passes, main, wait_for

SCENARIO = "disk all on async writes 100 bytes 8K\nstep 1000\n"
FILES = 130


def expect_trouble(product, number, status):
    """number: how often the perf folder has been in trouble by now; status: what each of its files answers."""
    wait_for("the warning", lambda: len(product.events("0x800012C3")) == number)
    wait_for("a failure of each disk's files", lambda: product.failures(status) >= FILES - 2)  # totals read differently
    code, text = product.ctl("status")
    expect(code == 1 and "Performance CSV logs cannot be written." in text, f"status: {code}\n{text}")
    expect(product.state("dkpfagent") == "RUNNING", "the agent does not run")


def expect_over(product, number, since):
    wait_for("the all-clear", lambda: len(product.events("0x400012C4")) == number)
    product.wait_lines("nmp_total_raw", product.count("nmp_total_raw") + 2)
    product.must("$common_wine net stop dkpfagent")
    expect(len(product.events("0x800012C3")) == number, f"warnings: {product.events('0x800012C3')}")
    expect(len(product.events("0x400012C4")) == number, f"all-clears: {product.events('0x400012C4')}")
    stamps = product.stamps()
    expect(len(stamps) == FILES, f"{len(stamps)} files")
    expect_whole_passes(stamps, since)


def check(product):
    product.install(SCENARIO)
    product.perf.rmdir()
    product.start()
    expect_trouble(product, 1, 4)
    product.perf.mkdir()
    expect_over(product, 1, datetime.datetime.now())

    if not product.mount(product.perf, "ro"):
        raise NotTried("folders that are write-protected")
    product.start("dkpfagent")
    expect_trouble(product, 2, 3)
    subprocess.run(["mount", "-o", "remount,rw", str(product.perf)], check=True)
    expect_over(product, 2, datetime.datetime.now())

    # The feeder's files stay open below the new folder; those of the agent's process do not.
    product.mount(product.log, "ro")
    product.start("dkpfagent")
    product.wait_lines("nmp_total_raw", product.count("nmp_total_raw") + 3)
    expect(not list(product.log.iterdir()), "the log folder was not write-protected")
    code, text = product.ctl("status")
    expect(code in (0, 1) and "Performance CSV logs cannot be written." not in text, f"status: {code}\n{text}")
    subprocess.run(["mount", "-o", "remount,rw", str(product.log)], check=True)
    wait_for("the count of dropped lines",
             lambda: " lines were dropped, the file could not be written." in product.text("diskperf_trace.log"))
    product.must("$common_wine net stop dkpfagent")
    expect(not product.events("0x800012C3"), "a log folder that cannot be written is no matter of the CSV files")
    product.unmount()
    product.stop()


main(check)
