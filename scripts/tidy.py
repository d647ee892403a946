#!/usr/bin/env python3
"""Runs clang-tidy over the sources that have changed, they or the project's headers in them, since
they last passed: scripts/tidy.py BUILD_DIR CACHE_DIR [WORD...]

The words stand for whatever else a result depends on, such as the versions of installed packages.
The last line of the output is how many sources were checked; exits with 1 if there is a finding.
"""

import hashlib
import json
import os
import pathlib
import shlex
import subprocess
import sys
from concurrent.futures import ThreadPoolExecutor

ROOT = pathlib.Path(__file__).resolve().parent.parent
# clang-tidy reads headers most of the time, so sources are checked in batches, as in unity builds.
MOST_IN_A_BATCH = 12


def includes(build):
    """Returns for each object of the build the project's files that it was made from."""
    files, current = {}, None
    noted = subprocess.run(["ninja", "-C", build, "-t", "deps"], check=True, text=True,
                           stdout=subprocess.PIPE).stdout
    for line in noted.splitlines():
        if line and not line.startswith(" "):
            current = files.setdefault(line.split(":")[0], [])
        elif line.strip():
            path = os.path.normpath(os.path.join(build, line.strip()))
            if path.startswith(f"{ROOT}/"):
                current.append(path)
    return files


def members(source):
    """Returns the project's sources in this one: those of a unity build's batch, or itself."""
    if not os.path.basename(source).startswith("unity_"):
        return [source]
    lines = pathlib.Path(source).read_text().splitlines()
    return [line.split('"')[1] for line in lines if line.startswith("#include ")]


def tidy(file, flags):
    """Returns clang-tidy's findings in a file, or "". Flags unknown to it are ignored."""
    run = subprocess.run(["clang-tidy", "--quiet", file, "--", *flags,
                          "-Wno-unknown-warning-option"], cwd=ROOT, text=True,
                         stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False)
    return run.stdout if run.returncode != 0 else ""


def tidy_batch(batch, flags, cache):
    """Returns the findings in sources with the same flags, by source."""
    if len(batch) > 1:
        together = cache / f"{hashlib.sha256(batch[0].encode()).hexdigest()}.cpp"
        together.write_text("".join(f'#include "{source}"  // NOLINT\n' for source in batch))
        found = tidy(str(together), flags)
        together.unlink()
        if not found:
            return {source: "" for source in batch}
    # Sources of a batch may clash in names, so findings count only in a source by itself.
    return {source: tidy(source, flags) for source in batch}


def main():
    build, cache, *words = sys.argv[1:]
    cache = pathlib.Path(cache)
    cache.mkdir(parents=True, exist_ok=True)
    noted = includes(build)
    keys, groups = {}, {}
    for entry in json.loads(pathlib.Path(build, "compile_commands.json").read_text()):
        compiler, *flags = shlex.split(entry["command"])
        target = flags[flags.index("-o") + 1]
        flags = flags[:flags.index("-o")]
        if "-include" in flags:  # headers that the other compiler has compiled
            at = flags.index("-include")
            del flags[at:at + 2]
        for source in members(entry["file"]):
            place = os.path.relpath(source, ROOT)
            if not place.startswith(("system/", "host/")) or "/tests/" in place or source in keys:
                continue
            digest = hashlib.sha256(repr((source, compiler, flags, words)).encode())
            for path in [ROOT / ".clang-tidy", *sorted(noted.get(target, []))]:
                digest.update(pathlib.Path(path).read_bytes())
            keys[source] = digest.hexdigest()
            if not (cache / keys[source]).exists():
                groups.setdefault(tuple(flags), []).append(source)

    changed = sum(len(sources) for sources in groups.values())
    size = max(1, min(MOST_IN_A_BATCH, changed // (2 * os.cpu_count())))
    failed = False
    with ThreadPoolExecutor(os.cpu_count()) as pool:
        for found in pool.map(lambda job: tidy_batch(*job),
                              [(sources[i:i + size], flags, cache)
                               for flags, sources in groups.items()
                               for i in range(0, len(sources), size)]):
            for source, text in found.items():
                if text:
                    print(text)
                    failed = True
                else:
                    (cache / keys[source]).touch()
    # Remove results that belong to no present source.
    for file in cache.iterdir():
        if file.name not in keys.values():
            file.unlink()
    if failed:
        sys.exit(1)
    print(f"{changed} sources, {len(keys)} in all")


main()
