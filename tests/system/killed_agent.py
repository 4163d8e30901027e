"""The agent's process is killed, at any moment: the next start continues the files, and no line is torn."""
import time

import model
from product import expect, fields_of, main

PAUSES_S = (0.0, 0.3, 0.7)  # behind a line, so that the kill meets the threads at different places


def check(product):
    product.install("etc/scenarios/three-disks.scn")
    product.start()
    for pause in PAUSES_S:
        product.wait_lines("nmp_total_raw", product.count("nmp_total_raw") + 2)
        time.sleep(pause)
        before = {path.name: path.read_bytes() for path in product.perf.iterdir()}
        product.kill("dkpfagent.exe")
        code, text = product.ctl("status")
        expect(code == 1 and " ended without a clean stop\n       net start dkpfagent\n" in text, f"status: {text}")
        product.start("dkpfagent")
        for name, data in before.items():
            expect((product.perf / name).read_bytes().startswith(data), f"{name} was not continued")
    product.wait_lines("nmp_total_raw", product.count("nmp_total_raw") + 2)
    code, text = product.ctl("status")
    expect(code == 0 and text.startswith("all is well\n"), f"status: {code}\n{text}")
    product.stop()

    names = [f"nmp{n}{end}" for n in (1, 2, 3, "_total") for end in ("", "_raw")]
    expect(sorted(path.name for path in product.perf.iterdir()) == sorted(f"{name}.csv" for name in names), "files")
    for name in names:
        lines = product.csv(name)
        columns = 19 if name.endswith("_raw") else 17
        expect(lines[0].startswith(f'"{model.FIRST_TITLE}",') and lines[0].count(",") == columns, lines[0])
        stamps = [fields_of(line, columns)[0] for line in lines[1:]]
        expect(len(set(stamps)) == len(stamps) and len(stamps) >= 2 * len(PAUSES_S), f"{name}: {stamps}")
    for n in (1, 2, 3):
        fed = set(product.journal(n))
        for line in product.csv(f"nmp{n}_raw")[1:]:
            _, values = fields_of(line, 19)
            three = tuple(str(values[i]) for i in (model.WRITTEN, model.WRITE_US, model.WRITES))
            expect(three in fed, f"disk {n}: {three} was never fed")
    print(f"{len(stamps)} lines through {len(PAUSES_S)} kills")


main(check)
