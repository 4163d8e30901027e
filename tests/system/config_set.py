"""config set against a running agent and on a full disk: whole files before and after, and what the agent takes over."""
import subprocess

from product import expect, fill, main, wait_for


def full_disk(product):
    """The folder etc on a file system of its own that has no page left for the new file."""
    etc = product.home / "etc"
    saved = product.folder / "etc"
    subprocess.run(["cp", "-a", str(etc), str(saved)], check=True)
    if not product.mount(etc, "size=1m"):
        print("not tried: config set on a full disk; all else was shown")
        return
    subprocess.run(["cp", "-a", f"{saved}/.", str(etc)], check=True)
    before = (etc / "cluster.xml").read_bytes()
    fill(etc / "filler")
    code, output = product.ctl("config", "set", "writeinterval", "7")
    expect(code == 1 and "the configuration is as it was" in output, f"set on a full disk: {code}\n{output}")
    expect((etc / "cluster.xml").read_bytes() == before, "the file changed on a full disk")
    expect(not (etc / "cluster.xml.new").exists(), "cluster.xml.new was left")
    (etc / "filler").unlink()
    code, output = product.ctl("config", "set", "writeinterval", "7")
    expect(code == 0, f"set behind the full disk: {code}\n{output}")
    after = (etc / "cluster.xml").read_bytes()
    expect(after == before.replace(b"<writeinterval> 1 <", b"<writeinterval> 7 <"), f"the file: {after}")
    product.unmount()


def check(product):
    product.install("disk 1 on async\nstep 1000\n")
    path = product.home / "etc/cluster.xml"
    path.write_bytes(path.read_bytes().replace(b"<writeinterval>1<", b"<!-- ours --><writeinterval> 1 <"))
    path.chmod(0o600)  # a new file in this folder may be read by everybody
    before = path.read_bytes()
    product.start()
    product.wait_lines("nmp1", 2)

    # One reload takes over what it can; the rest waits for a restart.
    code, output = product.ctl("config", "set", "writeinterval", "2", "collectparam", "0xff", "perflogsize", "64", "--reload")
    expect(code == 0, f"set: {code}\n{output}")
    for line in ("taken over:\n  parameters/writeinterval = 2 s\n  parameters/collectparam = 0xff\n",
                 "waiting for a restart of the agent:\n  parameters/perflogsize (in force: 1024 KiB)\n",
                 "the next reload: not before 1 s have passed"):
        expect(line in output, f"{line!r} is missing:\n{output}")
    expected = before.replace(b"<writeinterval> 1 <", b"<writeinterval> 2 <").replace(b">0x1ffff<", b">0xff<")
    expected = expected.replace(b"<perflogsize>1024<", b"<perflogsize>64<")
    expect(path.read_bytes() == expected, f"the file: {path.read_bytes()}")
    # Not all nine bits: between them and access lists Wine does not keep the owner's apart from the group's.
    expect(path.stat().st_mode & 0o007 == 0, f"others have got rights: {path.stat().st_mode:o}")
    code, output = product.ctl("config", "get", "perflogsize")
    expect("  in file          64 KiB\n  in force         1024 KiB\n" in output, f"get: {code}\n{output}")
    wait_for("lines of eight columns", lambda: b"Send Queue Bytes Peak" not in (product.perf / "nmp1.csv").read_bytes())
    product.wait_lines("nmp1", product.count("nmp1") + 2)

    # Columns that change while nothing is written.
    code, output = product.ctl("config", "set", "perflogsave", "0", "collectparam", "0x1")
    expect(code == 0 and "note: parameters/perflogsave is 0." in output and "old header" in output, f"set: {code}\n{output}")
    expect("taken over by dkpfctl config reload:\n  parameters/perflogsave\n  parameters/collectparam\n" in output, output)
    product.stop()
    code, output = product.ctl("config", "set", "perflogsave", "1", "writeinterval", "1")
    expect(code == 0 and "the disk agent is not running" in output, f"set: {code}\n{output}")
    full_disk(product)


main(check)
