"""The settings that tools and agent know are those of the policy, with its units and with its word on what a reload takes over.

usage: check_settings.py POLICY SETTINGS_CPP
"""
import pathlib
import re
import sys
import xml.etree.ElementTree

ROOT = "/root/diskperf/"


def main():
    policy, source = map(pathlib.Path, sys.argv[1:3])
    expected = {key.get("path").removeprefix(ROOT): (key.get("unit", ""), key.get("applies") == "reload")
                for key in xml.etree.ElementTree.parse(policy).getroot().findall("key")}
    line = re.compile(r'\{ "([a-z/]+)", "([A-Za-z]*)", (?:true|false), (true|false) \}')
    found = {name: (unit, at_once == "true") for name, unit, at_once in line.findall(source.read_text())}
    faults = [f"{name}: the policy says {expected.get(name)}, {source.name} says {found.get(name)}"
              for name in sorted(expected.keys() | found.keys()) if expected.get(name) != found.get(name)]
    if not expected:
        faults.append(f"no key in {policy}: nothing was checked")
    print("\n".join(faults) or f"{len(found)} settings agree")
    return 1 if faults else 0


sys.exit(main())
