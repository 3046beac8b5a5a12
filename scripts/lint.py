#!/usr/bin/env python3
"""lint.py BUILD_FOLDER: clang-tidy over every source file of the product.

The build folder is one that clang has built, for its compile commands and for the files that each
source was made of. A file that passed is remembered by the hash of everything the result depends
on: its command, all files it read, the checks, and clang-tidy itself. What is remembered lies in
$XDG_CACHE_HOME/zam_connector/lint, is shared by all checkouts, and is forgotten a month after its
last use.
"""

import concurrent.futures
import functools
import hashlib
import json
import os
import pathlib
import shlex
import subprocess
import sys
import time

TIDY = "clang-tidy-14"
FLOORS = ("foundation", "platform", "library", "programs", "kit", "examples")
# The analyzer follows paths without inlining large functions: in deep mode it takes two thirds of
# the whole time, nearly all of it inside the JSON library's templates.
ARGUMENTS = [
    "--quiet",
    *(f"--extra-arg={argument}" for argument in ("-Xclang", "-analyzer-config", "-Xclang", "mode=shallow")),
]
KEPT_SECONDS = 30 * 24 * 3600


@functools.lru_cache(maxsize=None)
def content_hash(path):
    try:
        return hashlib.sha256(pathlib.Path(path).read_bytes()).hexdigest()
    except FileNotFoundError:
        return "missing"


def dependencies(build):
    """What ninja knows each object file to have been made of: object -> files."""
    output = subprocess.run(["ninja", "-C", build, "-t", "deps"], check=True, text=True,
                            capture_output=True).stdout
    result, files = {}, None
    for line in output.splitlines():
        if line.startswith("    "):
            if files is not None:
                files.append(os.path.normpath(os.path.join(build, line.strip())))
        elif ": #deps" in line and "(VALID)" in line:
            files = result.setdefault(line.split(": #deps")[0], [])
        else:
            files = None
    return result


def object_of(entry):
    """The object file that a compile command makes."""
    words = shlex.split(entry["command"])
    return words[words.index("-o") + 1]


def key_of(root, entry, files, common):
    """The name under which a result is remembered; paths below the checkout count from there."""
    digest = hashlib.sha256(common)
    digest.update(entry["command"].replace(root, "").encode())
    for path in sorted(set(files)):
        digest.update(f"{path.replace(root, '')} {content_hash(path)}\n".encode())
    return digest.hexdigest()


def lint(build, path):
    run = subprocess.run([TIDY, "-p", build, *ARGUMENTS, path], text=True, stdout=subprocess.PIPE,
                         stderr=subprocess.STDOUT, check=False)
    said = "\n".join(line for line in run.stdout.splitlines()
                     if "warnings generated" not in line and "Suppressed" not in line)
    return run.returncode == 0, said


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    root = str(pathlib.Path(__file__).resolve().parent.parent)
    build = os.path.abspath(sys.argv[1])
    cache = pathlib.Path(os.environ.get("XDG_CACHE_HOME") or pathlib.Path.home() / ".cache",
                         "zam_connector", "lint")
    cache.mkdir(parents=True, exist_ok=True)

    version = subprocess.run([TIDY, "--version"], check=True, capture_output=True).stdout
    common = version + pathlib.Path(root, ".clang-tidy").read_bytes() + repr(ARGUMENTS).encode()
    made_of = dependencies(build)

    entries = {}
    for entry in json.loads(pathlib.Path(build, "compile_commands.json").read_text()):
        path = os.path.normpath(os.path.join(entry["directory"], entry["file"]))
        inside = os.path.relpath(path, root)
        if inside.split(os.sep)[0] in FLOORS:
            entries.setdefault(inside, entry)
    if len(entries) < 100:
        sys.exit(f"lint: {build} has compile commands for {len(entries)} files of the product only")

    waiting = []
    for inside, entry in sorted(entries.items()):
        key = None
        # Files that ninja knows nothing of have not been built: linted, but not remembered.
        made = made_of.get(object_of(entry))
        if made:
            key = key_of(root, entry, made, common)
            remembered = cache / key
            try:
                os.utime(remembered)
                continue
            except FileNotFoundError:  # unknown, or just forgotten by another checkout's run
                pass
        waiting.append((inside, key))
    print(f"{len(entries)} files, {len(entries) - len(waiting)} of them known to be good",
          flush=True)

    failed = []
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        runs = {pool.submit(lint, build, os.path.join(root, inside)): (inside, key)
                for inside, key in waiting}
        try:
            for run in concurrent.futures.as_completed(runs):
                inside, key = runs[run]
                good, said = run.result()
                if not good:
                    failed.append(inside)
                    print(said, flush=True)
                elif key:
                    (cache / key).touch()
        except KeyboardInterrupt:
            pool.shutdown(wait=False, cancel_futures=True)
            raise

    oldest = time.time() - KEPT_SECONDS
    for remembered in os.scandir(cache):
        try:
            if remembered.stat().st_mtime < oldest:
                os.unlink(remembered)
        except FileNotFoundError:  # another checkout's run was first
            pass
    if failed:
        sys.exit("lint: failed: " + " ".join(sorted(failed)))


if __name__ == "__main__":
    main()
