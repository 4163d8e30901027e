"""A host without a whole disk: the feeder says so and plays the built-in scenario."""
from product import expect, main, wait_for


def check(product):
    product.install()
    statistics = product.folder / "diskstats"
    statistics.write_text("   7       0 loop0 52 0 726 11 0 0 0 0 0 15 11 0 0 0 0 0 0\n")
    product.must('product_feed "$home" "--host --diskstats $(windows_path "$1")"', statistics)
    product.start("velcor", "velcorfeed")
    wait_for("the sentence", lambda: "this host shows no whole disk; a built-in scenario is played instead, for ever."
             in product.text("velcorfeed.log"))
    wait_for("two steps", lambda: len(product.journal(1)) >= 2)
    expect(product.state("velcorfeed") == "RUNNING", "the feeder does not run")
    expect(not (product.home / "etc/disks.map").exists(), "a map of disks was written without a disk")


main(check)
