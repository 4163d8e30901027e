"""What the CSV files have to hold, worked out without the product: titles, display values out of raw lines."""

OBJECT = "Cluster Disk Resource Performance"
FIRST_TITLE = "(PDH-CSV 4.0)"

# In the order of the columns. Write Bytes/sec and Write Bytes have changed places against the counters' numbers.
DISPLAY_TITLES = [
    "Transfer Ratio %", "Request Queue Bytes", "Request Queue Bytes Peak", "Unsynchronized Bytes",
    "Unsynchronized Bytes Peak", "Avg. us/Transfer", "Max. us/Transfer", "Send Queue Bytes", "Send Queue Bytes Peak",
    "History Buffer Bytes", "History Buffer Bytes Peak", "Write Bytes/sec", "Write Bytes", "Transfer Memory Bytes",
    "Transfer Memory Bytes Peak", "Avg. us/Write", "Max. us/Write",
]
RAW_TITLES = [
    "Write Bytes Sum", "Transfer Bytes Before Reduction Sum", "Transfer Bytes Sum", "Write us Sum", "Max. us/Write",
    "Writes Sum", "Send Queue Bytes", "Send Queue Bytes Peak", "History Buffer Bytes", "History Buffer Bytes Peak",
    "Request Queue Bytes", "Request Queue Bytes Peak", "Transfer Memory Bytes", "Transfer Memory Bytes Peak",
    "Unsynchronized Bytes", "Unsynchronized Bytes Peak", "Transfer us Sum", "Max. us/Transfer", "Transfers Sum",
]

# Raw columns by name.
(WRITTEN, HANDED, SENT, WRITE_US, WRITE_MAX, WRITES, SEND_QUEUE, SEND_QUEUE_PEAK, HISTORY, HISTORY_PEAK, REQUEST,
 REQUEST_PEAK, MEMORY, MEMORY_PEAK, UNSYNCED, UNSYNCED_PEAK, TRANSFER_US, TRANSFER_MAX, TRANSFERS) = range(19)
RAW_PEAKS = (WRITE_MAX, SEND_QUEUE_PEAK, HISTORY_PEAK, REQUEST_PEAK, MEMORY_PEAK, UNSYNCED_PEAK, TRANSFER_MAX)

RATE_COLUMN = DISPLAY_TITLES.index("Write Bytes/sec")
BITS64 = 1 << 64


def header(computer, instance, titles):
    return ",".join([f'"{FIRST_TITLE}"'] + [fr'"\\{computer}\{OBJECT}({instance})\{title}"' for title in titles])


def raw_total(rows):
    """Sums of what runs or stands, largest of the peaks."""
    return [max(row[i] for row in rows) if i in RAW_PEAKS else sum(row[i] for row in rows) % BITS64 for i in range(19)]


def up(dividend, divisor):
    return -(-dividend // divisor)


def ratio(before, now):
    handed = (now[HANDED] - before[HANDED]) % BITS64
    sent = (now[SENT] - before[SENT]) % BITS64
    return 100 if handed == 0 or sent == 0 else max(1, sent * 100 % BITS64 // handed)


def average(before, now, dividend, divisor):
    if now[divisor] <= before[divisor]:
        return 0
    return up((now[dividend] - before[dividend]) % BITS64, now[divisor] - before[divisor])


def display(before, now):
    """The columns of a display line out of two raw lines. None for the rate, which needs the time between them."""
    return [
        ratio(before, now), now[REQUEST], now[REQUEST_PEAK], now[UNSYNCED], now[UNSYNCED_PEAK],
        average(before, now, TRANSFER_US, TRANSFERS), now[TRANSFER_MAX], now[SEND_QUEUE], now[SEND_QUEUE_PEAK],
        now[HISTORY], now[HISTORY_PEAK], None, (now[WRITTEN] - before[WRITTEN]) % BITS64, now[MEMORY],
        now[MEMORY_PEAK], average(before, now, WRITE_US, WRITES), now[WRITE_MAX],
    ]


def elapsed_range(written, rate):
    """The whole milliseconds e with ceil(written * 1000 / e) = rate: (least, most)."""
    if written == 0 or rate == 0:
        return (1, 1 << 32) if written == rate == 0 else (1, 0)
    product = written * 1000
    most = (1 << 32) if rate == 1 else up(product, rate - 1) - 1
    return up(product, rate), most
