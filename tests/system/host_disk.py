"""Values move when the disk is written to: bytes written to a file during the run stand in the raw files."""
import os
import subprocess

import model
from product import expect, fields_of, main, wait_for

WRITTEN_MIB = 24
NO_DISK = "this host shows no whole disk; a built-in scenario is played instead, for ever."


def check(product):
    product.install()
    product.start()
    product.wait_lines("nmp_total_raw", 3)
    if NO_DISK in product.text("velcorfeed.log"):
        print("this machine has no whole disk: the feeder says that it plays the built-in scenario")
        rows = product.journal(1)
        expect(rows, "the built-in scenario has no disk 1")
        return
    device = os.stat(product.folder).st_dev
    if not os.path.exists(f"/sys/dev/block/{os.major(device)}:{os.minor(device)}"):
        print("the build folder lies on no block device: nothing can be written to a disk that is fed")
        return

    def written():
        return fields_of(product.perf.joinpath("nmp_total_raw.csv").read_bytes().decode().split("\r\n")[-2], 19)[1][0]

    before = written()
    target = product.folder / "load.bin"
    load = subprocess.run(["dd", "if=/dev/urandom", f"of={target}", "bs=1M", f"count={WRITTEN_MIB}", "conv=fsync"],
                          capture_output=True, text=True)
    target.unlink()
    expect(load.returncode == 0, load.stderr)
    wait_for(f"{WRITTEN_MIB} MiB more in nmp_total_raw.csv", lambda: written() - before >= WRITTEN_MIB << 20)
    product.stop()

    # One disk's lines are the host's own numbers, to the byte.
    for path in sorted(product.perf.glob("nmp[0-9]*_raw.csv")):
        fed = set(product.journal(int(path.name[3:-8])))
        for line in product.csv(path.name[:-4])[1:]:
            _, values = fields_of(line, 19)
            three = tuple(str(values[i]) for i in (model.WRITTEN, model.WRITE_US, model.WRITES))
            expect(three in fed, f"{path.name}: {three} was never fed")
    print(f"{written() - before} bytes more, {WRITTEN_MIB << 20} of them ours")


main(check)
