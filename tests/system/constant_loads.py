"""Constant loads through the whole product: every raw line to the byte, every display value, both headers.

Three disks: an asynchronous one, a synchronous one, and an asynchronous one whose link is slower than its writes.
"""
import model
from product import expect, fields_of, main

SCENARIO = """
disk 1 on async writes 100 bytes 8K latency 400 longest 900 request 64K
disk 2 on sync writes 50 bytes 4K latency 700 ratio 45
disk 5 on async writes 10 bytes 64K latency 1000 link 512K
step 1000
"""
DISKS = (1, 2, 5)


# What a disk shows after k steps, by hand from the loads above. A queue's peak is what stood there when a step's writes
# had come and nothing was handed over yet; without a step since the last sample it is what stands there.
def disk1(k, stepped):
    handed, sent = 819200, 507904                          # 100 * 8 KiB; 62 % of it
    transfer_us = 13 * 300 + 3968                          # 12.5 blocks of 64 KiB; a us for each 128 bytes sent
    peak = handed if stepped else 0
    return [handed * k, handed * k, sent * k, 40000 * k, 900 if stepped else 0, 100 * k, 0, peak, handed, handed,
            65536, 65536, 0, 851968 if stepped else 0, handed,
            (handed if k == 1 else 2 * handed) if stepped else handed, transfer_us * k,
            617 if stepped else 0, 13 * k]                     # 300 + 62 % of 64 KiB / 128


def disk2(k, stepped):
    handed, sent = 204800, 92160                           # 50 * 4 KiB; 45 %
    peak = handed if stepped else 0
    return [handed * k, handed * k, sent * k, 35000 * k, 700 if stepped else 0, 50 * k, 0, peak, handed, handed,
            0, 0, 0, 262144 if stepped else 0, handed, (handed if k == 1 else 2 * handed) if stepped else handed,
            (4 * 300 + 720) * k, 530 if stepped else 0, 4 * k]     # 300 + 45 % of 64 KiB / 128


def disk5(k, stepped):
    handed, queue = 524288, 131072 * k                     # 640 KiB come, 512 KiB go
    waiting = queue + handed
    return [655360 * k, handed * k, handed * k * 62 // 100, 10000 * k, 1000 if stepped else 0, 10 * k, queue,
            waiting if stepped else queue, handed, handed, 0, 0, queue, waiting if stepped else queue, queue + handed,
            (waiting + (0 if k == 1 else handed)) if stepped else queue + handed, (8 * 300 + 2539) * k,
            617 if stepped else 0, 8 * k]


EXPECTED = {1: disk1, 2: disk2, 5: disk5}
STEP_BYTES = {1: 819200, 2: 204800, 5: 655360}
HANDED_BYTES = {1: 819200, 2: 204800, 5: 524288}
# The filter's record holds these for an asynchronous disk; it is asked right behind the driver's, so a step that comes
# in between shows there alone.
FILTER_COLUMNS = (model.WRITTEN, model.WRITE_US, model.WRITE_MAX, model.WRITES, model.SEND_QUEUE, model.SEND_QUEUE_PEAK,
                  model.REQUEST, model.REQUEST_PEAK)


def check_raw(product, disk, lines):
    """Each line is one the loads give, and its three host numbers are in the journal as they were fed."""
    fed = product.journal(disk)
    before = None
    for line in lines:
        time, values = fields_of(line, 19)
        kf, kd = values[model.WRITTEN] // STEP_BYTES[disk], values[model.HANDED] // HANDED_BYTES[disk]
        expect(kf == kd or (disk != 2 and kf == kd + 1), f"disk {disk}: {kf} steps in the filter, {kd} in the driver")
        choices = []
        for stepped in (True, False) if before is None else (None,):
            f = EXPECTED[disk](kf, stepped if stepped is not None else kf > before[0])
            d = EXPECTED[disk](kd, stepped if stepped is not None else kd > before[1])
            choices.append([(f if i in FILTER_COLUMNS else d)[i] for i in range(19)])
        texts = [",".join([f'"{time}"'] + [f'"{value}"' for value in each]) for each in choices]
        expect(line in texts, f"nmp{disk}_raw.csv: {line}\nexpected {' or '.join(texts)}")
        columns = line.split(",")
        three = tuple(columns[1 + i].strip('"') for i in (model.WRITTEN, model.WRITE_US, model.WRITES))
        expect(fed[kf - 1] == three, f"disk {disk}, step {kf}: the journal says {fed[kf - 1]}, the line {three}")
        expect(before is None or (kf >= before[0] and kd >= before[1]), f"disk {disk} went back: {line}")
        before = (kf, kd)


def check_display(name, display, raw, elapsed):
    """Display line i belongs to raw lines i - 1 and i. The range of possible intervals is narrowed by each rate."""
    expect(len(display) == len(raw), f"{name}: {len(display)} display lines, {len(raw)} raw lines")
    for i in range(1, len(raw)):
        (time, now), (_, before) = fields_of(raw[i], 19), fields_of(raw[i - 1], 19)
        shown_time, shown = fields_of(display[i], 17)
        expect(shown_time == time, f"{name}: line {i + 2} is of {shown_time}, the raw one of {time}")
        for column, value in enumerate(model.display(before, now)):
            if column != model.RATE_COLUMN:
                expect(shown[column] == value,
                       f"{name}, {time}, {model.DISPLAY_TITLES[column]}: {shown[column]} instead of {value}")
        written = (now[model.WRITTEN] - before[model.WRITTEN]) % model.BITS64
        least, most = model.elapsed_range(written, shown[model.RATE_COLUMN])
        low, high = elapsed.get(time, (1, 1 << 32))
        elapsed[time] = (max(low, least), min(high, most))
        expect(elapsed[time][0] <= elapsed[time][1],
               f"{name}, {time}: {shown[model.RATE_COLUMN]} B/s for {written} B fits no interval of the other files")


def check(product):
    product.install(SCENARIO)
    product.start()
    product.wait_lines("nmp_total_raw", 8)
    # The second choice of columns: the crossed pair alone.
    product.set("collectparam", "0x1800")
    code, text = product.ctl("config", "reload")
    expect(code == 0 and text == "taken over:\n  parameters/collectparam = 0x1800\n", f"reload: {code}\n{text}")
    product.wait_lines("nmp_total.1", 2)
    lines = product.count("nmp_total_raw")
    product.wait_lines("nmp_total_raw", lines + 3)
    computer = product.computer_name()
    product.stop()

    names = {f"nmp{disk}": f"NMP{disk}" for disk in DISKS} | {"nmp_total": "_Total"}
    files = sorted(path.name for path in product.perf.iterdir())
    expect(files == sorted(name + end for name in names for end in (".csv", ".1.csv", "_raw.csv")), f"files: {files}")
    raw, elapsed = {}, {}
    for name, instance in names.items():
        lines = product.csv(name + "_raw")
        expect(lines[0] == model.header(computer, instance, model.RAW_TITLES), f"{name}_raw header: {lines[0]}")
        raw[name] = lines[1:]
        lines = product.csv(name + ".1")
        expect(lines[0] == model.header(computer, instance, model.DISPLAY_TITLES), f"{name} header: {lines[0]}")
        full = lines[1:]
        expect(len(full) >= 5, f"{len(full)} lines in {name}.1.csv")
        lines = product.csv(name)
        expect(lines[0] == model.header(computer, instance, ["Write Bytes/sec", "Write Bytes"]), f"header: {lines[0]}")
        expect(len(lines) >= 3, f"{len(lines) - 1} lines in {name}.csv")
        check_display(name, full, raw[name][:len(full)], elapsed)
        # Two columns: the rate first, the bytes behind it.
        for line, now, before in zip(lines[1:], raw[name][len(full):], raw[name][len(full) - 1:]):
            time, (rate, written) = fields_of(line, 2)
            expect(time == fields_of(now, 19)[0], f"{name}: {line} beside {now}")
            difference = fields_of(now, 19)[1][model.WRITTEN] - fields_of(before, 19)[1][model.WRITTEN]
            expect(written == difference, f"{name}, {time}: {written} instead of {difference}")
            least, most = model.elapsed_range(difference, rate)
            expect(least <= most, f"{name}, {time}: {rate} B/s for {difference} B in no interval")
        expect(len(raw[name]) == len(full) + len(lines) - 1, f"{name}: lines are missing")
    for disk in DISKS:
        check_raw(product, disk, raw[f"nmp{disk}"])
    for i, line in enumerate(raw["nmp_total"]):
        rows = [fields_of(raw[f"nmp{disk}"][i], 19) for disk in DISKS]
        expect(fields_of(line, 19) == (rows[0][0], model.raw_total([row[1] for row in rows])), f"raw total: {line}")
    expect(len({raw_line.split(",")[1] for raw_line in raw["nmp1"]}) >= 5, "the values of disk 1 do not move")
    print(f"{len(raw['nmp1'])} lines of {len(names)} pairs of files")


main(check)
