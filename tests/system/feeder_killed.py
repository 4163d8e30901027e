"""The feeder is killed: the driver's values stand still while samples and lines go on, and dkpfctl status says for how long."""
import json
import re
import time

import model
from product import WINE, expect, fields_of, main, wait_for


def fed_seconds(product):
    """The age of the fed values as dkpfctl status shows it, and its whole text."""
    code, text = product.ctl("status")
    found = re.search(r"^  driver fed +([0-9.]+) s ago$", text, re.M)
    expect(found, f"no age of what was fed: exit code {code}\n{text}")
    return float(found[1]), code, text


def status(product):
    """dkpfctl status as programs have it."""
    return json.loads(product.ctl("status", "--json")[1])


def written(product):
    """The running sum of bytes written in each line of disk 1."""
    return [fields_of(line, 19)[1][model.WRITTEN] for line in product.csv("nmp1_raw")[1:]]


def check(product):
    product.install("disk 1 on async writes 10 bytes 4K\nstep 1000000\n")
    product.start()
    product.wait_lines("nmp1_raw", 4)
    _, code, text = fed_seconds(product)
    expect(code == 0 and text.startswith("all is well\n"), text)

    product.kill("velcorfeed.exe")
    killed = time.monotonic()
    lines = product.count("nmp1_raw")
    product.wait_lines("nmp1_raw", lines + 5)
    # Another process asks at other moments: what counts is that the age grows with the time since the kill.
    earlier, code, text = fed_seconds(product)
    expect(code == 1 and re.search(r"the service velcorfeed counts as running, but its process \d+ is gone\n"
                                   r"       net start velcorfeed\n", text), text)
    expect(earlier >= 3.0, f"fed {earlier} s ago, {time.monotonic() - killed} s behind the kill\n{text}")
    wait_for("an age that grows", lambda: fed_seconds(product)[0] > earlier + 1)
    frozen = written(product)[-4:]
    expect(len(set(frozen)) == 1, f"the values go on: {frozen}")
    expect(not product.events("0x800012C1"), "a silent feeder is no failure of the driver")

    product.start("velcorfeed")
    wait_for("values that move again", lambda: written(product)[-1] != frozen[0])
    wait_for("all well again", lambda: fed_seconds(product)[1] == 0)

    # Without a feeder's service the driver counts as a real one, and gets no request.
    expect(status(product)["fed"]["feeds"] > 0, "the simulated driver was not asked")
    code, text = product.run([WINE, "net", "stop", "velcorfeed"])
    expect(code == 0, text)
    code, text = product.run([WINE, "sc", "delete", "velcorfeed"])
    expect(code == 0, text)
    answer = status(product)
    expect(answer["fed"] is None, f"the driver was asked: {answer['fed']}")
    expect(not answer["services"][1]["installed"] and answer["services"][0]["state"] == "running", str(answer["services"]))
    product.stop()


main(check)
