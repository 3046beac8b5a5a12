#!/usr/bin/env python3
"""coverage.py BUILD_FOLDER: line and branch coverage of the product, folder by folder.

The build folder is one that was built with --coverage and whose tests have run. The lines and
branches that nothing ran are written to BUILD_FOLDER/uncovered, a file for each source file, and
the whole as pages to BUILD_FOLDER/report. Branches that only an exception takes, which the compiler
makes at every call, do not count.
"""

import collections
import json
import os
import pathlib
import shutil
import subprocess
import sys

FOLDERS = ("foundation/qel", "foundation/qor", "foundation/zuv", "platform", "include", "library/idl",
           "library/zor_ipc", "library/common_utils", "library/tree_json", "programs/shared",
           "programs/service", "programs/zamctl", "kit")


def folder_of(path):
    return next((folder for folder in FOLDERS if path.startswith(folder + "/")), None)


def ranges(numbers):
    """1 2 3 7 -> 1-3, 7"""
    parts = []
    for number in sorted(numbers):
        if parts and parts[-1][1] == number - 1:
            parts[-1][1] = number
        else:
            parts.append([number, number])
    return ", ".join(str(a) if a == b else f"{a}-{b}" for a, b in parts)


def percent(part, whole):
    return f"{100 * part / whole:6.1f}" if whole else "     -"


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    root = pathlib.Path(__file__).resolve().parent.parent
    build = pathlib.Path(sys.argv[1]).resolve()
    report = build / "report"
    uncovered = build / "uncovered"
    for folder in (report, uncovered):
        shutil.rmtree(folder, ignore_errors=True)
        folder.mkdir(parents=True)

    told = build / "coverage.json"
    filters = [f"--filter={root / floor}/" for floor in ("foundation", "platform", "include",
                                                        "library", "programs", "kit")]
    # What the product's own objects say; objects of tests would only repeat its headers.
    objects = [str(build / floor) for floor in ("foundation", "platform", "library", "programs",
                                                "kit")]
    subprocess.run(["gcovr", "--root", str(root), *filters, "-j", str(os.cpu_count()),
                    "--exclude-throw-branches", "--exclude-unreachable-branches",
                    "--gcov-ignore-parse-errors", "--json", str(told),
                    "--html-details", str(report / "index.html"), *objects], check=True, cwd=root)

    totals = collections.defaultdict(lambda: [0, 0, 0, 0])
    for source in json.loads(told.read_text())["files"]:
        folder = folder_of(source["file"])
        if folder is None:
            continue
        total = totals[folder]
        missed, halves = [], []
        for line in source["lines"]:
            if line.get("gcovr/noncode"):
                continue
            total[1] += 1
            total[0] += line["count"] > 0
            if line["count"] == 0:
                missed.append(line["line_number"])
            taken = sum(branch["count"] > 0 for branch in line["branches"])
            total[3] += len(line["branches"])
            total[2] += taken
            if line["count"] > 0 and taken < len(line["branches"]):
                halves.append(line["line_number"])
        if missed or halves:
            page = uncovered / (source["file"].replace("/", "_") + ".txt")
            page.write_text(f"{source['file']}\nlines never run: {ranges(missed)}\n"
                            f"lines with branches never taken: {ranges(halves)}\n")

    print(f"{'folder':24}{'lines':>8}{'%':>7}{'branches':>10}{'%':>7}")
    whole = [0, 0, 0, 0]
    for folder in FOLDERS:
        if folder not in totals:
            continue
        total = totals[folder]
        whole = [a + b for a, b in zip(whole, total)]
        print(f"{folder:24}{total[1]:8}{percent(*total[:2]):>7}{total[3]:10}{percent(*total[2:]):>7}")
    print(f"{'all':24}{whole[1]:8}{percent(*whole[:2]):>7}{whole[3]:10}{percent(*whole[2:]):>7}")
    print(f"what nothing ran: {os.path.relpath(uncovered, root)}/, as pages: "
          f"{os.path.relpath(report, root)}/index.html")


if __name__ == "__main__":
    main()
