"""64 disks, 130 files, and a program that holds one of them with no sharing: the other 129 get their lines."""
import subprocess

from product import ROOT, WINE, expect, fields_of, main, wait_for

FILES = [f"nmp{n}{end}" for n in [*range(1, 65), "_total"] for end in ("", "_raw")]
HELD = "nmp7"


def check(product):
    product.install("etc/scenarios/sixty-four-disks.scn")
    held = product.perf / f"{HELD}.csv"
    held.touch()
    holder = subprocess.Popen(
        [WINE, str(ROOT / "build/win/tests/bin/hold_file.exe"), product.must('windows_path "$1"', held).strip()],
        stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, env=product.environment)
    try:
        expect(holder.stdout.readline().strip() == b"held", "the file could not be held")
        product.start()
        for name in FILES:
            if name != HELD:
                product.wait_lines(name, 3)
        expect(len(FILES) == 130 and held.stat().st_size == 0, f"{HELD}.csv was written")
        # 'log_util_write(handle) failed(3, code)': 3 is 'file not opened'.
        expect("failed(3,0xb0000027)" in product.text("diskperf_trace.log") + product.text("diskperf.log"),
               "no line in a log about the held file")
        wait_for("the warning", lambda: len(product.events("0x800012C3")) == 1)
        expect(not product.events("0x400012C4"), "cleared while the file is held")
    finally:
        holder.stdin.close()
        holder.wait(30)
    wait_for("the all-clear", lambda: len(product.events("0x400012C4")) == 1)
    product.wait_lines(HELD, 2)
    product.stop()

    expect(sorted(path.name for path in product.perf.iterdir()) == sorted(f"{name}.csv" for name in FILES), "files")
    stamps = {name: [line.split(",")[0] for line in product.csv(name)[1:]] for name in FILES}
    everything = stamps["nmp_total_raw"]
    for name in FILES:
        number = name[3:].removesuffix("_raw")
        if name == HELD:
            expect(stamps[name] == everything[-len(stamps[name]):] and len(stamps[name]) < len(everything),
                   f"{name}: {stamps[name]}")
        elif number == "_total" or int(number) < 60:
            expect(stamps[name] == everything, f"{name} has {len(stamps[name])} of {len(everything)} lines")
        else:  # these come and go in the scenario
            expect(stamps[name] and set(stamps[name]) <= set(everything), f"{name}: {stamps[name]}")
    for n in range(1, 65):
        fed = {row[0] for row in product.journal(n)}
        for line in product.csv(f"nmp{n}_raw")[1:]:
            expect(str(fields_of(line, 19)[1][0]) in fed, f"disk {n}: {line} was never fed")
    print(f"{len(everything)} lines in each of 129 files, {len(stamps[HELD])} in the one that was held")


main(check)
