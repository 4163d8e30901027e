"""The size bound: generations begin with the header, no file passes 64 KiB, no line is lost across a boundary.

The files of the one disk are filled up by hand before each start, those of the total are not: with one disk a line of
the total's raw file is the same text as the disk's, so it shows what the disk's generations together must hold.
"""
from product import expect, lines_of, main

BOUND = 64 * 1024
ROOM = 700  # bytes that are left: two or three lines


def fill(product, name):
    """Appends copies of the last line, but dated long ago, until hardly a line fits."""
    path = product.perf / f"{name}.csv"
    line = '"01/01/2001 00:00:00.000"' + lines_of(path)[-1][25:] + "\r\n"
    count = (BOUND - ROOM - path.stat().st_size) // len(line)
    with open(path, "ab") as file:
        file.write(line.encode() * count)


def check(product):
    product.install("disk 1 on async writes 1000 bytes 64K sum 1000000000000\nstep 1000\n", perflogsize=64)
    product.start()
    for round in (1, 2):
        product.wait_lines("nmp_total_raw", product.count("nmp_total_raw") + 3)
        product.must("$common_wine net stop dkpfagent")
        for name in ("nmp1", "nmp1_raw"):
            fill(product, name)
        product.start("dkpfagent")
        for name in ("nmp1", "nmp1_raw"):
            product.wait_lines(f"{name}.{round}", 100)
            product.wait_lines(name, 3)
    product.stop()

    names = sorted(path.name for path in product.perf.iterdir())
    expect(names == sorted([f"nmp1{end}{generation}.csv" for end in ("", "_raw") for generation in (".2", ".1", "")] +
                           ["nmp_total.csv", "nmp_total_raw.csv"]), f"files: {names}")
    for end, columns in (("", 17), ("_raw", 19)):
        total = product.csv("nmp_total" + end)
        expected, header = total[1:], total[0].replace("(_Total)", "(NMP1)")
        found, generations = [], []
        for generation in (".2", ".1", ""):
            lines = product.csv(f"nmp1{end}{generation}")
            expect(lines[0] == header, f"nmp1{end}{generation}.csv begins with {lines[0]}")
            expect(header not in lines[1:], f"nmp1{end}{generation}.csv holds its header twice")
            size = (product.perf / f"nmp1{end}{generation}.csv").stat().st_size
            expect(size <= BOUND, f"nmp1{end}{generation}.csv has {size} bytes")
            generations.append((size, lines[1:]))
            found += [line for line in lines[1:] if not line.startswith('"01/01/2001')]
        for (size, _), (_, lines) in zip(generations, generations[1:]):
            expect(size + len(lines[0]) + 2 > BOUND, f"a line of {len(lines[0])} bytes would have fitted behind {size}")
        expect(found == expected, f"nmp1{end}: {len(found)} lines, the total has {len(expected)}")
        expect(all(line.count(",") == columns for line in found), "a line is torn")
    fed = {row[0] for row in product.journal(1)}
    expect({line.split(",")[1].strip('"') for line in product.csv("nmp_total_raw")[1:]} <= fed, "a sum was never fed")
    print(f"{len(expected)} lines in three generations, none lost")


main(check)
