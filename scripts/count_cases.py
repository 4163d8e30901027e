#!/usr/bin/env python3
"""count_cases.py CTEST_REPORT PROGRAM_REPORTS: what a run of ctest passed, by cases.

Prints lines "RESULT<tab>COUNT<tab>NAME". A test of ctest that left a report of its own in the folder PROGRAM_REPORTS (a whole
GoogleTest program) counts with the cases in it; a program that failed without a failed case in its report (it crashed, or ran
into its time limit) counts as one failed case beside those.
"""
import os
import sys
import xml.etree.ElementTree as ElementTree


def program_cases(path):
    """(name, result) of each case in the report of a program; nothing where it cannot be read."""
    try:
        root = ElementTree.parse(path).getroot()
    except (OSError, ElementTree.ParseError):
        return
    for case in root.iter("testcase"):
        name = case.get("classname") + "." + case.get("name")
        if case.find("failure") is not None:
            yield name, "failed"
        elif case.get("result") == "skipped" or case.get("status") == "notrun":
            yield name, "skipped"
        else:
            yield name, "passed"


def main():
    report, folder = sys.argv[1:]
    counts = {"passed": 0, "skipped": 0}
    for test in ElementTree.parse(report).getroot().iter("testcase"):
        name = test.get("name")
        status = {"run": "passed", "fail": "failed"}.get(test.get("status"), "skipped")
        cases = list(program_cases(os.path.join(folder, name + ".xml")))
        failed = [case for case, result in cases if result == "failed"]
        for case in failed:
            print("failed", 1, name + "." + case, sep="\t")
        if status == "failed" and not failed:
            print("failed", 1, name, sep="\t")
        if not cases and status != "failed":
            counts[status] += 1
        for _, result in cases:
            if result != "failed":
                counts[result] += 1
    for result, count in counts.items():
        print(result, count, "", sep="\t")


main()
