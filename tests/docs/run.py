#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""tests/docs/run.py BUILD [DOCUMENT...]: runs the commands of README.md and docs/, as they stand there.

A command is a line of an indented or fenced block that begins with one of PROGRAMS. Each document has
a folder of its own, in which its commands run one after the other with the programs of BUILD; what they
find there is made by tests/docs/inputs.sh. What cannot run here stands in tests/docs/left_out.txt with
its reason; a pattern that fits no command is a fault, too."""
import os
import pathlib
import re
import signal
import subprocess
import sys
import tempfile
import time

PROGRAMS = re.compile(r"(?:[A-Z_]+=\S+ )*(?:\./(?:run|dev|test)|corvane(?:_\w+)?|build/bin/\S+|bench/\S+|examples/\S+|cmake|cmp|gs|g\+\+|pkg-config|"
                      r"apt(?:-get)?|ipptool|lp|lpadmin|sbatch|service|sinfo|kubectl|build-host/\S+|\.)(?:\s|$)")
LONGEST = 600  # seconds of a command
ROOT = pathlib.Path(__file__).resolve().parents[2]


def blocks(text):
    """The code of a document: lists of lines."""
    block, fence = [], None
    for line in text.splitlines() + [""]:
        if line.startswith("```"):
            if fence is None:
                fence = line[3:]
            else:
                if fence == "sh":
                    yield block
                block, fence = [], None
        elif fence is not None:
            block.append(line)
        elif line.startswith("    "):
            block.append(line[4:])
        elif block:
            yield block
            block = []


def commands(document):
    """The commands of a document, lines that go on joined."""
    for block in blocks((ROOT / document).read_text()):
        joined = re.sub(r"\\\n\s*", "", "\n".join(block)).splitlines()
        yield from (line for line in joined if PROGRAMS.match(line))


def left_out():
    """[document, pattern, reason, used] from lines of `DOCUMENT: PATTERN  # REASON`."""
    rules = []
    for line in (ROOT / "tests/docs/left_out.txt").read_text().splitlines():
        if line and not line.startswith("#"):
            rule, reason = line.split("  # ")
            document, pattern = rule.split(": ", 1)
            rules.append([document, re.compile(pattern.strip()), reason, False])
    return rules


def run(command, folder, environment):
    """Runs a command to its end; gives None, or what it said before it failed."""
    process = subprocess.Popen(["bash", "-euo", "pipefail", "-c", command], cwd=folder, env=environment,
                               stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                               start_new_session=True)
    try:
        said = process.communicate(timeout=LONGEST)[0]
    except subprocess.TimeoutExpired:
        os.killpg(process.pid, signal.SIGKILL)
        process.communicate()
        return f"took more than {LONGEST} s"
    return None if process.returncode == 0 else said.decode(errors="replace")[-2000:]


def try_document(document, build, rules, faults):
    with tempfile.TemporaryDirectory(prefix="corvane-docs-") as name:
        folder = pathlib.Path(name)
        environment = dict(os.environ, PATH=f"{build}/bin:{os.environ['PATH']}", ROOT=str(ROOT))
        (folder / "build").symlink_to(build)
        problem = run(f". {ROOT}/tests/docs/inputs.sh {document}", folder, environment)
        if problem:
            faults.append(f"{document}: no inputs: {problem}")
            return
        for command in commands(document):
            rule = next((r for r in rules if r[0] in (document, "*") and r[1].match(command)), None)
            if rule:
                rule[3] = True
                continue
            begun = time.monotonic()
            problem = run(command, folder, environment)
            print(f"{'FAILED' if problem else 'ok    '} {time.monotonic() - begun:6.1f} s  {document}: {command}",
                  flush=True)
            if problem:
                print(problem, flush=True)
                faults.append(f"{document}: {command}")


def main():
    build = pathlib.Path(sys.argv[1]).resolve()
    documents = sys.argv[2:] or ["README.md"] + sorted(f"docs/{p.name}" for p in (ROOT / "docs").glob("*.md"))
    rules, faults = left_out(), []
    for document in documents:
        try_document(document, build, rules, faults)
    if not sys.argv[2:]:
        faults += [f"left_out.txt: {r[0]}: {r[1].pattern} fits no command" for r in rules if not r[3]]
    print("\n".join(faults) if faults else "every command works")
    return 1 if faults else 0


sys.exit(main())
