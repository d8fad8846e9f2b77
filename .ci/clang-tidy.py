#!/usr/bin/env python3
"""clang-tidy.py BUILD_DIRECTORY

Runs clang-tidy on every source of the repository in the build directory's compile database, as many at a time as there
are processors. A source that was clean is not looked at again until it changes or anything does that it includes, its
flags, the checks or clang-tidy itself: the hash of all that is remembered under ~/.cache.
"""

import concurrent.futures
import hashlib
import json
import os
import pathlib
import shlex
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
GCC_ONLY = {"-fschedule-insns", "-fsched-pressure"}  # clang takes no optimisation that it does not know
CLEAN = pathlib.Path(os.environ.get("XDG_CACHE_HOME", pathlib.Path.home() / ".cache")) / "multimedia-clang-tidy"


def output(*command, **options):
    return subprocess.run(command, check=True, stdout=subprocess.PIPE, **options).stdout


def fingerprint(entry, common):
    """Hash of what clang-tidy sees of one source: its text after and, for macros, before the preprocessor."""
    command = [word for word in shlex.split(entry["command"]) if not word.endswith("ccache")]
    at = command.index("-o")
    del command[at : at + 2]
    command.remove("-c")
    text = output(*command, "-E", "-C", cwd=entry["directory"], stderr=subprocess.DEVNULL)
    source = pathlib.Path(entry["file"]).read_bytes()
    digest = hashlib.sha256(common)
    for part in (shlex.join(command).encode(), text, source):
        # Another clone of the same sources has the same hash.
        digest.update(hashlib.sha256(part.replace(os.fsencode(ROOT), b".")).digest())
    return digest.hexdigest()


def judge(entry, build, common):
    try:
        mark = CLEAN / fingerprint(entry, common)
    except subprocess.CalledProcessError:
        return f"{entry['file']}: the preprocessor fails\n", False
    if mark.exists():
        mark.touch()
        return "", True
    result = subprocess.run(
        ["clang-tidy", "--quiet", "-p", build, entry["file"]],
        check=False,
        stdout=subprocess.PIPE,
        stderr=subprocess.PIPE,
        text=True,
    )
    if result.returncode == 0:
        mark.touch()
        return "", False
    return result.stdout or result.stderr, False


def main():
    build = pathlib.Path(sys.argv[1]).resolve()
    CLEAN.mkdir(parents=True, exist_ok=True)
    tracked = {ROOT / os.fsdecode(name) for name in output("git", "ls-files", "-z", cwd=ROOT).split(b"\0")}
    database = json.loads((build / "compile_commands.json").read_text(encoding="utf-8"))
    for entry in database:
        entry["command"] = shlex.join(word for word in shlex.split(entry["command"]) if word not in GCC_ONLY)
    build = build / "clang"
    build.mkdir(exist_ok=True)
    (build / "compile_commands.json").write_text(json.dumps(database), encoding="utf-8")
    entries = {entry["file"]: entry for entry in database if pathlib.Path(entry["file"]) in tracked}
    missing = [str(path) for path in sorted(tracked) if path.suffix == ".cpp" and str(path) not in entries]
    if missing:
        print("compiled by no target, so not looked at:", *missing, sep="\n    ")
    common = output("clang-tidy", "--version") + (ROOT / ".clang-tidy").read_bytes()

    failed = 0
    known = 0
    with concurrent.futures.ThreadPoolExecutor(len(os.sched_getaffinity(0))) as pool:
        for text, was_known in pool.map(lambda entry: judge(entry, build, common), entries.values()):
            known += was_known
            if text:
                failed += 1
                print(text, flush=True)
    print(f"clang-tidy: {len(entries)} sources, {known} of them known to be clean, {failed} with findings")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
