"""A broken cluster.xml: no start, and file, line and reason are said.

Broken in operation, the agent goes on as before.
"""
from product import expect, main

WRONG = 'line {}, column {}: /root/diskperf/parameters/writeinterval is "often": '


def break_value(product):
    """Puts a word where the write interval stands. Returns what is to be said about it, and the whole old text."""
    path = product.home / "etc/cluster.xml"
    text = path.read_text()
    for number, line in enumerate(text.split("\n"), 1):
        if "<writeinterval>" in line:
            where = WRONG.format(number, line.index("<writeinterval>") + len("<writeinterval>") + 1)
    path.write_text(text.replace("<writeinterval>1<", "<writeinterval>often<"))
    return product.must('windows_path "$1"', path).strip() + ", " + where, text


def check(product):
    product.install("disk 1 on async\nstep 1000\n")
    refusal, text = break_value(product)

    # Refused at the start.
    product.start("velcor", "velcorfeed")
    code, output = product.shell("product_start dkpfagent")
    expect(code != 0, f"the agent started\n{output}")
    log = [line for line in product.text("diskperf.log").split("\n") if " not started: " in line]
    expect(len(log) == 1 and " not started: the configuration is refused: " + refusal in log[0], f"diskperf.log: {log}")
    expect(len(log[0].split(refusal)[1]) > 10, f"no reason: {log[0]}")
    code, output = product.ctl("status")
    expect(code == 1 and "WRONG: the configuration file is refused: " + refusal in output, f"status: {code}\n{output}")
    expect("it ended because the configuration is refused: " + refusal in output, f"status: {output}")
    expect(not list(product.perf.iterdir()), "CSV files without an agent")

    # Broken in operation: it keeps its settings, and says so.
    (product.home / "etc/cluster.xml").write_text(text)
    product.start("dkpfagent")
    product.wait_lines("nmp1", 2)
    break_value(product)
    code, output = product.ctl("config", "reload")
    expect(code == 1, f"reload: exit code {code}\n{output}")
    expect(output.startswith("refused: " + refusal) and output.endswith("\nnothing was sent to the agent\n"), output)
    product.wait_lines("nmp1", product.count("nmp1") + 2)
    code, output = product.ctl("status")
    expect(code == 1 and "WRONG: the configuration file is refused: " + refusal in output, f"status: {code}\n{output}")
    expect(product.state("dkpfagent") == "RUNNING", "the agent does not run")

    # A file that is cut off, and the agent is told to read it without anybody looking first.
    (product.home / "etc/cluster.xml").write_text("<root>\n  <diskperf>\n    <parameters>")
    code, output = product.ctl("config", "check")
    expect(code == 1 and "cluster.xml, line 3, column " in output, f"check: {code}\n{output}")

    # Mended: read again.
    (product.home / "etc/cluster.xml").write_text(text.replace("<perflogsave>1<", "<perflogsave>0<"))
    code, output = product.ctl("config", "reload")
    expect(code == 0 and output == "taken over:\n  parameters/perflogsave = 0\n", f"reload: {code}\n{output}")
    product.stop()
    for line in product.csv("nmp1_raw")[1:]:
        expect(line.count(",") == 19, line)


main(check)
