"""./run, as a user starts it: its end by itself, by Ctrl+C in front of the first line, with a service that does not stop, and
with an installation that fails."""
import os
import re
import signal
import subprocess

from product import ROOT, expect, main, wait_for

RUN_S = 200  # bound of one run


def run(product, *options, at=None, then=None):
    """Starts ./run in the folder of this case; at these words of it then(process) is called. Exit code and output."""
    output = product.folder / "run.txt"
    with open(output, "wb") as out:
        script = subprocess.Popen(
            [str(ROOT / "run"), *options], stdin=subprocess.DEVNULL, stdout=out, stderr=subprocess.STDOUT,
            env=dict(os.environ, DKPF_RUN_FOLDER=str(product.folder)), start_new_session=True,
            preexec_fn=lambda: signal.signal(signal.SIGINT, signal.SIG_DFL))  # a script cannot catch what it inherits as ignored
    try:
        if at:
            wait_for(f"{at} of ./run", lambda: at in output.read_text(errors="replace") or script.poll() is not None, RUN_S)
            then(script)
        code = script.wait(RUN_S)
    finally:
        if script.poll() is None:
            os.killpg(script.pid, signal.SIGKILL)
            script.wait()
    text = output.read_text(errors="replace").replace("\r", "")
    expect(re.search(r"^  build: \d+\.\d s$", text, re.M), text)
    for program in ("dkpfctl.exe", "dkpfagent.exe", "velcorfeed.exe"):
        expect(not product.processes(program), f"{program} goes on behind\n{text}")
    return code, text


def expect_places(product, text):
    for name, path in (("CSV files", "perf"), ("trace logs", "log"), ("settings", "etc/cluster.xml")):
        expect(f"\n{name:<12}{product.home / path}\n" in text, f"{name} are not said:\n{text}")


def check(product):
    product.remove()
    product.folder.mkdir(parents=True)
    code, text = product.run([str(ROOT / "tests/support/wine-slot"), "--copy", str(product.prefix)])
    expect(code == 0, f"no prefix: {text}")

    # As from the keyboard: the signal goes to all that the terminal has in front.
    waiting = "waiting for the first line"
    code, text = run(product, at=waiting, then=lambda script: os.killpg(script.pid, signal.SIGINT))
    expect(code == 0 and "error" not in text, f"./run and Ctrl+C: exit code {code}\n{text}")
    expect_places(product, text)
    expect(" _Total " not in text and "stopping the services: " in text, text)

    code, text = run(product, "--seconds", "3", "--plain")
    expect(code == 0 and "error" not in text, f"./run: exit code {code}\n{text}")
    expect_places(product, text)
    expect(re.search(r"^\d\d:\d\d:\d\d _Total +\d", text, re.M), f"no counters:\n{text}")
    expect("(equal)" in text or "there is nothing to compare" in text, f"nothing was compared:\n{text}")

    # The service manager believes in a feeder whose process is gone, and cannot stop it.
    def kill_and_interrupt(script):
        product.kill("velcorfeed.exe")
        os.killpg(script.pid, signal.SIGINT)

    code, text = run(product, at=" _Total ", then=kill_and_interrupt)
    expect_places(product, text)
    expect(re.search(r"^  first line: \d+\.\d s$", text, re.M), f"no time of the first line:\n{text}")
    found = re.search(r"^error: a service could not be stopped\n  cause: not stopped: velcorfeed: (.*)\n  to do: see \S+/log/diskperf\.log; ", text, re.M)
    expect(code == 1 and found and found[1].strip(), f"./run with a service that does not stop: exit code {code}\n{text}")

    (product.home / "bin").rename(product.folder / "bin")
    (product.home / "bin").touch()
    code, text = run(product, "--seconds", "3", "--plain")
    expect(code == 1 and "error: the installation failed\n  cause: " in text and "starting velcor" not in text,
           f"./run with a file where a folder has to be: exit code {code}\n{text}")
    expect("a file stands where the folder" in (product.folder / "logs/install.log").read_text(errors="replace"), text)


main(check)
