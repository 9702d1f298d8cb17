#!/usr/bin/python3
"""run_tests.py BINARY LOG_FOLDER [GOOGLETEST OPTION...]

Runs a GoogleTest program in shards, one at a time on each core, and ends with "N passed, N failed". A shard that hangs
is ended after its time and one that crashes is noticed; either counts as one failure, and the test that it was in is
named.
"""

import concurrent.futures
import os
import pathlib
import re
import shutil
import subprocess
import sys

SHARDS_PER_CORE = 4
SHARD_SECONDS = 600

OPTIONS = {
    "ASAN_OPTIONS": "detect_stack_use_after_return=1:strict_string_checks=1",
    "UBSAN_OPTIONS": "print_stacktrace=1",
    "TSAN_OPTIONS": "second_deadlock_stack=1",
}


def launcher():
    """The thread sanitizer's memory map does not fit under the address randomisation of newer kernels; inside some
    containers it cannot be switched off, and there it fits."""
    command = ["setarch", "-R"]
    if shutil.which("setarch") and subprocess.run([*command, "true"], capture_output=True).returncode == 0:
        return command
    return []


def run_shard(command, index, count, log):
    environment = {**OPTIONS, **os.environ, "GTEST_TOTAL_SHARDS": str(count), "GTEST_SHARD_INDEX": str(index)}
    with open(log, "wb") as output:
        try:
            status = subprocess.run(
                command, stdin=subprocess.DEVNULL, stdout=output, stderr=subprocess.STDOUT, env=environment,
                timeout=SHARD_SECONDS).returncode
        except subprocess.TimeoutExpired:
            status = None
    text = log.read_text(errors="replace")
    passed = len(re.findall(r"\[       OK \] \S+", text))
    failures = re.findall(r"\[  FAILED  \] (\S+?),? .*\(\d+ ms\)", text)
    if status is None:
        failures.append(f"{last_started(text)}: still running after {SHARD_SECONDS} s")
    elif status != 0 and not failures:
        reports = re.findall(r"^SUMMARY: .*|.*runtime error: .*", text, re.MULTILINE)
        failures.append(reports[0] if reports else f"{last_started(text)}: ended with status {status}")
    return passed, failures


def last_started(text):
    return (re.findall(r"\[ RUN      \] (\S+)", text) or ["before the first test"])[-1]


def main():
    binary, folder, *options = sys.argv[1:]
    folder = pathlib.Path(folder)
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir(parents=True)
    command = [*launcher(), os.path.abspath(binary), *options]
    cores = os.cpu_count() or 1
    count = SHARDS_PER_CORE * cores
    logs = [folder / f"shard{index}.log" for index in range(count)]

    passed, failed = 0, 0
    with concurrent.futures.ThreadPoolExecutor(cores) as pool:
        results = pool.map(lambda index: run_shard(command, index, count, logs[index]), range(count))
        for log, (shard_passed, failures) in zip(logs, results):
            passed += shard_passed
            failed += len(failures)
            for failure in failures:
                print(f"FAILED {failure}   ({log})")
    if passed + failed == 0:
        print(f"{binary} ran no tests")
        failed = 1
    print(f"{passed} passed, {failed} failed")
    return 1 if failed else 0


sys.exit(main())
