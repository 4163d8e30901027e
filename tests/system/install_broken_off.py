"""Install and uninstall killed half-way and run again; an install whose last step fails; a driver that is not ours."""
import shutil
import signal
import subprocess

from installation import STAGE, bare, command_line, compare, expect_in_place, machine, restart, setup, wait_running
from product import WINE, expect, main

# The line behind which each run is killed: it is then in the step that follows.
KILLS = (("folders and their access rights:", "service dkpfagent: removed"), ("performance provider:", "key "))
AGENT = "HKLM\\System\\CurrentControlSet\\Services\\dkpfagent"


def kill_behind(product, line, command, *options):
    run = subprocess.Popen(command_line(product, STAGE, command, *options), env=product.environment, cwd=product.folder,
                           stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, bufsize=0)
    seen = []
    for each in run.stdout:
        seen.append(each.decode(errors="replace").strip())
        if seen[-1].startswith(line):
            break
    # As long as it is there, no other one changes anything.
    run.send_signal(signal.SIGSTOP)
    for other in (("install",), ("uninstall", "--purge")):
        text = setup(product, STAGE, *other, code=1)
        expect("another install or uninstall runs on this machine" in text, text)
    run.kill()
    run.stdout.close()
    expect(run.wait(30) < 0 and seen[-1].startswith(line), f"{command} was not killed behind {line}: {seen}")


def killed(product, before):
    setup(product, STAGE, "install")
    installed = machine(product)
    setup(product, STAGE, "uninstall", "--purge")
    compare("uninstalled", before, machine(product))
    for install_line, uninstall_line in KILLS:
        kill_behind(product, install_line, "install")
        setup(product, STAGE, "install")
        expect_in_place(product)
        compare(f"install killed behind {install_line} and run again", installed, machine(product))
        kill_behind(product, uninstall_line, "uninstall", "--purge")
        setup(product, STAGE, "uninstall", "--purge")
        expect(not product.home.exists(), f"left: {list(product.home.rglob('*'))}")
        compare(f"uninstall killed behind {uninstall_line} and run again", before, machine(product))


def failing(product):
    """The new version's agent does not start: the old one runs again, its service as it was."""
    setup(product, STAGE, "install")
    code, text = product.run([WINE, "reg", "add", AGENT, "/v", "Description", "/d", "words of the operator", "/f"])
    expect(code == 0, text)
    restart(product)
    wait_running(product)
    before = machine(product)
    folder = product.folder / "broken"
    shutil.copytree(STAGE, folder)
    shutil.copyfile(STAGE / "bin/dkpfctl.exe", folder / "bin/dkpfagent.exe")  # no service at all
    text = setup(product, folder, "install", code=1)
    expect("\nservices: FAILED: the service dkpfagent does not start: it could not be started: error " in text, text)
    expect("taken back: description of dkpfagent\n" in text, text)
    expect("NOT taken back" not in text, text)
    expect_in_place(product)
    wait_running(product)
    compare("a failed install", before, machine(product))

    # Neither version's agent takes this configuration: that is no time-out, and the old one is not said to run again.
    (product.home / "etc/cluster.xml").write_text("<root>")
    shutil.copyfile(STAGE / "bin/dkpfagent.exe", folder / "bin/dkpfagent.exe")
    with open(folder / "bin/dkpfagent.exe", "ab") as file:
        file.write(b"next version")
    text = setup(product, folder, "install", code=1)
    reason = "the service dkpfagent does not start: it was started and stopped again\n"
    expect(f"\nservices: FAILED: {reason}" in text and f"NOT taken back: {reason}" in text, text)
    setup(product, STAGE, "uninstall", "--purge")


def other_driver(product):
    product.must("product_register velcor kernel demand 'C:\\windows\\system32\\drivers\\real.sys'")
    before = machine(product)
    text = setup(product, STAGE, "install", code=1)
    expect("install with --no-driver" in text and not product.home.exists(), text)
    compare("a refused install", before, machine(product))
    setup(product, STAGE, "install", "--no-driver")
    expect(product.run([WINE, "sc", "query", "velcorfeed"])[0] != 0, "there is a feeder")
    expect(not (product.prefix / "drive_c/windows/system32/drivers/velcor.sys").exists(), "our driver was placed")
    expect(product.run([WINE, "sc", "query", "dkpfagent"])[0] == 0, "there is no agent")
    setup(product, STAGE, "uninstall", "--purge")
    compare("uninstalled beside another driver", before, machine(product))


def check(product):
    before = bare(product)
    killed(product, before)
    failing(product)
    other_driver(product)
    print(f"{len(KILLS)} installs and uninstalls were killed")


main(check)
