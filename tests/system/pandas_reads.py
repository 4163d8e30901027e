"""pandas reads a display file unaided: names of the columns, parsed times, numbers."""
import pandas

import model
from product import expect, main


def check(product):
    product.install("disk 1 on async writes 100 bytes 8K\nstep 1000\n")
    product.start()
    product.wait_lines("nmp_total", 5)
    computer = product.computer_name()
    product.stop()
    for name, instance in (("nmp1", "NMP1"), ("nmp_total", "_Total")):
        path = product.perf / f"{name}.csv"
        table = pandas.read_csv(path, index_col=0, parse_dates=True)
        titles = [fr"\\{computer}\{model.OBJECT}({instance})\{title}" for title in model.DISPLAY_TITLES]
        expect(list(table.columns) == titles, f"columns: {list(table.columns)}")
        expect(table.index.name == model.FIRST_TITLE, f"index: {table.index.name}")
        expect(isinstance(table.index, pandas.DatetimeIndex), f"index of {table.index.dtype}")
        expect(table.index.is_monotonic_increasing and table.index.is_unique, f"times: {list(table.index)}")
        expect(all(dtype.kind in "iu" for dtype in table.dtypes), f"types: {list(table.dtypes)}")
        lines = product.csv(name)[1:]
        expect(len(table) == len(lines), f"{len(table)} rows of {len(lines)} lines")
        # By hand: month/day/year hour:minute:second.millisecond.
        last, text = table.index[-1], lines[-1].split(",")[0].strip('"')
        shown = "%02d/%02d/%04d %02d:%02d:%02d.%03d" % (last.month, last.day, last.year, last.hour, last.minute,
                                                       last.second, last.microsecond // 1000)
        expect(shown == text, f"{text} was read as {last}")
        steps = table[titles[12]] / 819200  # 100 writes of 8 KiB a step
        expect((steps % 1 == 0).all() and steps.sum() >= 2, f"bytes: {list(table[titles[12]])}")
        print(f"{name}: {len(table)} rows, {len(table.columns)} columns, {table.index[0]} to {last}")


main(check)
