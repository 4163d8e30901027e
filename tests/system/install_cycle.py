"""Install, restart, use, install over what runs, configure, remove: the machine is as it was before, key by key."""
import re
import shutil
import subprocess

from installation import SERVICES, STAGE, bare, compare, expect_in_place, machine, restart, setup, wait_running
from product import ROOT, WINE, expect, main, wait_for


def next_version(product):
    """A stage whose libraries and policy differ from the one that is installed."""
    folder = product.folder / "next"
    shutil.copytree(STAGE, folder)
    for name in ("bin/tnwlog.dll", "bin/tnwdiskperf.dll", "bin/dkpfagent.exe", "driver/velcor.sys"):
        with open(folder / name, "ab") as file:
            file.write(b"next version")
    policy = folder / "etc/policy/diskperf.xml"
    policy.write_bytes(policy.read_bytes() + b"<!-- next version -->\r\n")
    return folder


def check_readers(product):
    """Values come through the provider, into a host that lies elsewhere too: PATH leads it to the provider's libraries."""
    code, text = product.ctl("query")
    expect(code == 0, f"query: exit code {code}\n{text}")
    code, text = product.run([WINE, "reg", "query", r"HKLM\SYSTEM\CurrentControlSet\Services\tnwdiskperf\Performance", "/v",
                              "First Counter"])
    expect(code == 0, text)
    first = int(re.search(r"REG_DWORD\s+(0x[0-9a-fA-F]+)", text)[1], 16)
    expect("WINEPATH" not in product.environment, "the libraries would be found without set-up")
    code, text = product.run([WINE, str(ROOT / "build/win/tests/bin/perf_objects.exe"), "Global"])
    expect(code == 0 and f"object {first} {first + 1} 65" in text.split("\n"), f"object {first}: exit code {code}\n{text}")


def start_reader(product):
    """A reader that holds a row of the region, and so the trace logs in HOME."""
    reader = subprocess.Popen([WINE, str(product.home / "bin/dkpfctl.exe"), "query", "--interval", "200"],
                              env=product.environment, cwd=product.folder, stdin=subprocess.DEVNULL,
                              stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    wait_for("a reader in the region", lambda: reader.poll() is not None or
             re.search(r"  process \d+, ", product.ctl("dump", "--rows")[1]))
    expect(reader.poll() is None, f"the reader ended: exit code {reader.poll()}")
    return reader


def stop(product):
    product.stop()
    for name in SERVICES:
        expect(product.state(name) == "STOPPED", f"{name} did not stop")


def check(product):
    before = bare(product)

    text = setup(product, STAGE, "install")
    expect("\ninstalled\n" in text, text)
    expect_in_place(product)
    installed = machine(product)
    text = setup(product, STAGE, "install")
    # This system keeps rights as permission bits, so they never read back as they were set.
    done = [line for line in text.split("\n") if ": done" in line]
    expect(" 0 placed, " in text and done == ["folders and their access rights: done"],
           f"the second run changed something:\n{text}")
    compare("second install", installed, machine(product))

    # The machine starts: all three come up by themselves.
    product.set("collectinterval", 1)
    product.set("writeinterval", 1)
    restart(product)
    wait_running(product)
    product.wait_lines("nmp_total_raw", 3)
    expect(not list(product.home.glob("bin/*.old-*")), "files were moved aside for nothing")
    check_readers(product)

    # In whatever order an operator starts them. The agent starts the driver itself: the operator's word comes late.
    for order in (("velcorfeed", "dkpfagent"), ("dkpfagent", "velcorfeed")):
        stop(product)
        product.start(*order)
        product.run([WINE, "net", "start", "velcor"])
        wait_running(product)
        product.wait_lines("nmp_total_raw", product.count("nmp_total_raw") + 2)
        check_readers(product)

    # Over what runs, while a host holds the libraries.
    newer = next_version(product)
    held = product.home / "bin/tnwdiskperf.dll"
    host = subprocess.Popen([str(WINE), str(ROOT / "build/win/tests/bin/hold_file.exe"), "--load",
                             product.must('windows_path "$1"', held).strip()], env=product.environment,
                            stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
    try:
        expect(host.stdout.readline().strip() == b"held", "the library could not be loaded")
        config = (product.home / "etc/cluster.xml").read_bytes()
        text = setup(product, newer, "install")
        expect("services to stop: dkpfagent, velcorfeed, velcor\n" in text, text)
        expect(f"held: {product.windows_home}\\bin\\tnwdiskperf.dll.old-1" in text, text)
        expect((product.home / "bin/tnwdiskperf.dll.old-1").read_bytes() == (STAGE / "bin/tnwdiskperf.dll").read_bytes(),
               "the old library is not there")
        for name in ("bin/tnwdiskperf.dll", "bin/dkpfagent.exe", "etc/policy/diskperf.xml"):
            expect((product.home / name).read_bytes() == (newer / name).read_bytes(), f"{name} was not replaced")
        expect((product.home / "etc/cluster.xml").read_bytes() == config, "the configuration was replaced")
        wait_running(product)
        product.wait_lines("nmp_total_raw", product.count("nmp_total_raw") + 2)
        check_readers(product)
    finally:
        host.stdin.close()
        host.wait(30)
    setup(product, newer, "install")
    expect(not list(product.home.rglob("*.old-*")), "the old library stays when nobody holds it")

    product.set("collectparam", "0x1800")
    code, text = product.ctl("config", "reload")
    expect(code == 0 and "parameters/collectparam = 0x1800\n" in text, f"reload: {code}\n{text}")

    stop(product)

    # Logs and CSV files stay; what others put beside ours stays too.
    foreign = product.home / "etc/foreign.txt"
    foreign.write_text("not ours")
    text = setup(product, STAGE, "uninstall")
    expect("etc: stays, it holds foreign.txt\n" in text, text)
    left = sorted(path.name for path in product.home.iterdir())
    expect(left == ["etc", "log", "perf"] and foreign.exists(), f"left: {left}")
    expect([path.name for path in (product.home / "etc").iterdir()] == ["foreign.txt"], "etc holds more")
    for name in SERVICES:
        code, text = product.run([WINE, "sc", "query", name])
        expect(code != 0, f"{name} is still there: {text}")
    text = setup(product, STAGE, "uninstall")
    expect("NOT removed" not in text, f"the second run: {text}")

    # By its own program, from its own folder, while all of it runs again and a reader has trace logs open.
    setup(product, STAGE, "install")
    product.set("collectinterval", 1)
    product.start()
    wait_for("values", lambda: product.ctl("query")[0] == 0)
    reader = start_reader(product)
    try:
        text = setup(product, product.home, "uninstall", "--purge")
        expect(reader.poll() is None, "the reader ended before")
    finally:
        reader.kill()
        reader.wait(30)
    expect(f"folder {product.windows_home}\\log: goes at the next restart\n" in text, text)
    expect(f"folder {product.windows_home}: goes at the next restart\n" in text, text)
    expect("dkpfctl.exe.old-1: in use, goes at the next restart\n" in text, text)
    restart(product)
    expect(not product.home.exists(), f"left: {list(product.home.rglob('*'))}")
    after = machine(product)
    compare("uninstalled", before, after)
    print(f"{len(before[0])} keys and {len(before[1])} files are as before")


main(check)
