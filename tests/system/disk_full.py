"""The disk with the perf folder runs full and is freed: lines are missing, one warning, one all-clear, no torn line."""
import datetime

from product import NotTried, expect, expect_whole_passes, fields_of, fill, main, wait_for

# Long numbers, so that the lines soon need a new page each.
SCENARIO = """
disk all on async writes 100 bytes 8K sum 1000000000000000000 request 1048576G queue 1048576G
step 1000
"""


def check(product):
    product.install(SCENARIO)
    if not product.mount(product.perf, "size=4m"):
        raise NotTried("a disk that runs full")
    product.start()
    product.wait_lines("nmp_total_raw", 3)
    expect(not product.events("0x800012C3"), "a warning before the disk was full")
    fill(product.perf / "filler")
    # A line fails when it needs a new page. 5 is 'disk full'; a line may fit again while only few have failed.
    wait_for("the warning", lambda: product.events("0x800012C3"))
    wait_for("files that stand still", lambda: product.failures(5) >= 64)
    code, text = product.ctl("status")
    expect(code == 1 and "Performance CSV logs cannot be written." in text, f"status: {code}\n{text}")
    (product.perf / "filler").unlink()
    freed = datetime.datetime.now()
    wait_for("the all-clear", lambda: product.events("0x400012C4"))
    product.wait_lines("nmp_total_raw", product.count("nmp_total_raw") + 2)
    product.stop()

    expect(len(product.events("0x800012C3")) == 1, f"warnings: {product.events('0x800012C3')}")
    expect(len(product.events("0x400012C4")) == 1, f"all-clears: {product.events('0x400012C4')}")
    names = [f"nmp{n}{end}" for n in [*range(1, 65), "_total"] for end in ("", "_raw")]
    stamps = product.stamps()
    expect(set(stamps) == set(names), f"files: {sorted(stamps)}")
    everything = set().union(*map(set, stamps.values()))
    missing = {name: len(everything - set(each)) for name, each in stamps.items() if everything - set(each)}
    expect(missing, "no line is missing: the disk was never full")
    expect_whole_passes(stamps, freed)
    for n in range(1, 65):
        fed = {row[0] for row in product.journal(n)}
        for line in product.csv(f"nmp{n}_raw")[1:]:
            expect(str(fields_of(line, 19)[1][0]) in fed, f"disk {n}: {line} was never fed")
    print(f"{len(everything)} passes; {len(missing)} of 130 files lack lines, {sum(missing.values())} in all")


if __name__ == "__main__":
    main(check)
