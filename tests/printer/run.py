#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
#
# run.py BUILD_FOLDER [--jobs COUNT] [TEST...]: starts corvane-printer on the loopback and prints to it as clients
# do. What it prints is compared with what `corvane print` makes of the same pixels. COUNT jobs (12) go through
# kills of the server. With --suites the test suites of cups-ipp-utils are run, and what fails in them is listed.
import fcntl
import itertools
import json
import os
import pathlib
import random
import resource
import signal
import socket
import subprocess
import sys
import tempfile
import termios
import threading
import time
import urllib.error
import urllib.request

from documents import (HEIGHT_POINTS, PACKED, WIDTH_POINTS, planes, sheets, write_pdf, write_png,
                       write_raster)
from scheduler import Scheduler

FILTER = "lib/cups/filter/rastertocorvane"
COMPONENTS = "program", "plugin", "host", "pictures", "printer"
# The most memory that a filter takes, in KiB.
PEAK = """import resource, subprocess, sys
subprocess.run([sys.argv[1], "1", "tester", "a job", "1", "", sys.argv[2]], check=True, stdout=subprocess.DEVNULL,
               stderr=subprocess.DEVNULL)
print(resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss)
"""
# The sheet that the documents are made for.
MEDIA = ("ATTR collection media-col {MEMBER collection media-size "
         f"{{MEMBER integer x-dimension {round(WIDTH_POINTS / 72 * 2540)} "
         f"MEMBER integer y-dimension {round(HEIGHT_POINTS / 72 * 2540)}}}}}")
SHORTEST_LIFE = 3  # seconds, at most, of a server that is going to be killed
SUITES = ["ipp-1.1.test", "ipp-2.0.test", "ipp-everywhere.test"]


class Printer:
    def __init__(self, build, folder, killed_jobs):
        self.build, self.folder, self.killed_jobs, self.options = build, folder, killed_jobs, ()
        self.out, self.state = folder / "out", folder / "state"
        with socket.socket() as free:
            free.bind(("127.0.0.1", 0))
            self.port = free.getsockname()[1]
        self.uri = f"ipp://localhost:{self.port}/ipp/print"
        # A server is found at a socket by the name of its program: no other one is to be spoken to.
        self.program = folder / f"corvane-printer-{self.port}"
        self.program.symlink_to(build / "bin/corvane-printer")
        self.environment = dict(os.environ, TMPDIR=str(folder), HOME=str(folder))
        self.installed = folder / "installed"
        for component in COMPONENTS:
            subprocess.run(["cmake", "--install", build, "--prefix", self.installed, "--component", component], check=True,
                           stdout=subprocess.DEVNULL)
        self.start()

    # Options stay: a server does not start without the commands of its printers.
    def start(self, *options):
        self.options += options
        self.words = ["server", "-o", f"server-port={self.port}", "-o", f'folder="{self.out}"', "-o",
                      f"state={self.state}", "-o", "head=corvane-9", *self.options]
        self.server = subprocess.Popen([self.program, *self.words], env=self.environment)
        for _ in range(200):
            try:
                # An answer comes when the server runs: commands would start another one before.
                urllib.request.urlopen(f"http://localhost:{self.port}/", timeout=20).close()
                return
            except OSError:
                time.sleep(0.05)
        raise SystemExit("the server does not start")

    def kill(self, number=signal.SIGKILL):
        self.server.send_signal(number)
        self.server.wait(90)

    # Sends a document; returns whether the server has taken it. A printer that is busy is asked again, as clients do.
    def send(self, file, kind, attributes="", user="tester", name="a job", to="/ipp/print"):
        test = self.folder / "send.test"
        test.write_text("{ OPERATION Print-Job\nGROUP operation-attributes-tag\n"
                        "ATTR charset attributes-charset utf-8\nATTR language attributes-natural-language en\n"
                        f"ATTR uri printer-uri $uri\nATTR name requesting-user-name \"{user}\"\n"
                        f"ATTR name job-name \"{name}\"\nATTR mimeMediaType document-format {kind}\n"
                        f"GROUP job-attributes-tag\n{attributes}\nFILE {file}\nSTATUS successful-ok\n"
                        "STATUS successful-ok-ignored-or-substituted-attributes\n}\n")
        while True:
            done = subprocess.run(["ipptool", "-t", f"ipp://localhost:{self.port}{to}", test], env=self.environment, timeout=300,
                                  capture_output=True, text=True)
            if "server-error-busy" not in done.stdout:
                return done.returncode == 0
            time.sleep(0.1)

    # What clients are told of the jobs that are over.
    def messages(self, to="/ipp/print"):
        test = self.folder / "messages.test"
        test.write_text("{ OPERATION Get-Jobs\nGROUP operation-attributes-tag\n"
                        "ATTR charset attributes-charset utf-8\nATTR language attributes-natural-language en\n"
                        "ATTR uri printer-uri $uri\nATTR keyword which-jobs completed\n"
                        "ATTR keyword requested-attributes job-state,job-state-message\nSTATUS successful-ok\n}\n")
        done = subprocess.run(["ipptool", "-tv", f"ipp://localhost:{self.port}{to}", test], env=self.environment,
                              capture_output=True, text=True)
        return [line for line in done.stdout.splitlines() if line.strip().startswith("job-state")]

    def cancel(self, number, to="/ipp/print"):
        subprocess.run(["ipptool", "-q", "-d", f"job-id={number}", f"ipp://localhost:{self.port}{to}", "/dev/stdin"],
                       env=self.environment,
                       input=b"{ OPERATION Cancel-Job\nGROUP operation-attributes-tag\n"
                             b"ATTR charset attributes-charset utf-8\nATTR language attributes-natural-language en\n"
                             b"ATTR uri printer-uri $uri\nATTR integer job-id $job-id\n"
                             b"ATTR name requesting-user-name tester\n}\n")

    # Why a server that is given these options does not start.
    def refusal(self, *options):
        words = self.words[:self.words.index("head=corvane-9") + 1]
        done = subprocess.run([self.program, *words, *options], env=self.environment, capture_output=True, text=True,
                              timeout=60)
        return done.stderr if done.returncode != 0 else ""

    def jobs(self):
        return sorted(self.out.glob("job-*"))

    def told(self, job):
        try:
            return json.loads((job / "job.json").read_text())
        except FileNotFoundError:
            return {"state": ""}

    # The last job, when it is over.
    def last(self, count, seconds=120):
        for _ in range(seconds * 20):
            jobs = self.jobs()
            if len(jobs) >= count and self.told(jobs[-1])["state"] not in ("", "processing"):
                return jobs[-1]
            time.sleep(0.05)
        raise SystemExit(f"job {count} does not end")


def check(holds, what):
    if not holds:
        raise SystemExit(f"FAILED: {what}")
    print(f"ok: {what}", flush=True)


def print_command(printer, input, mode, alternate, quality, *options):
    out = printer.folder / "expected.tif"
    paper = f"{WIDTH_POINTS / 72 * 25.4:.6f}x{HEIGHT_POINTS / 72 * 25.4:.6f}mm"
    words = ["print", input, "-o", out, "-q", "--mode", mode, "--uam", alternate, "--paper", paper,
             *options]
    if quality:
        words += ["--quality", quality]
    subprocess.run([printer.build / "bin/corvane", *map(str, words)], check=True)
    return planes(out.read_bytes())


def test_bytes(printer, files):
    modes = json.loads(subprocess.run([printer.build / "bin/corvane", "modes", "--json"], check=True,
                                      capture_output=True).stdout)
    modes = modes["modes"] if isinstance(modes, dict) else modes
    for mode in modes:
        number = mode.get("value", mode.get("mode", mode.get("descriptor")))
        check(printer.send(files["pwg"], "image/pwg-raster", f"ATTR keyword corvane-print-mode {number}"),
              f"mode {number} is taken")
        job = printer.last(len(printer.jobs()))
        quality = printer.told(job)["converted"]["tableQuality"]
        check(planes((job / "sheet-0001.tif").read_bytes()) == print_command(printer, files["png"], number, 0, quality),
              f"mode {number} prints the planes of corvane print")
    for orientation, degrees in (4, 270), (5, 90), (6, 180):
        count = len(printer.jobs())
        printer.send(files["png"], "image/png", f"ATTR enum orientation-requested {orientation}\n{MEDIA}")
        job = printer.last(count + 1)
        converted = printer.told(job)["converted"]
        check(planes((job / "sheet-0001.tif").read_bytes()) ==
              print_command(printer, files["png"], converted["mode"], 0, converted["tableQuality"], "--rotate", degrees),
              f"an image of orientation {orientation} is turned by {degrees} degrees")


def test_copies(printer, files):
    for copies in 1, 2, 3:
        for kind, file, pages in ("image/pwg-raster", "pwg2", 2), ("application/pdf", "pdf", 3):
            count = len(printer.jobs())
            check(printer.send(files[file], kind, f"ATTR integer copies {copies}"), f"{kind}: {copies} copies")
            job = printer.last(count + 1)
            check(len(list(job.glob("sheet-*.tif"))) == pages * copies == len(printer.told(job)["sheets"]),
                  f"{kind}: {pages} pages are {pages * copies} sheets")
    count = len(printer.jobs())
    printer.send(files["pdf"], "application/pdf", "ATTR rangeOfInteger page-ranges 2-3")
    check(len(printer.told(printer.last(count + 1))["sheets"]) == 2, "a range of two pages is two sheets")
    printer.send(files["pdf"], "application/pdf", "ATTR integer copies 2\n"
                 "ATTR keyword multiple-document-handling separate-documents-collated-copies")
    told = [(sheet["page"], sheet["copy"]) for sheet in printer.told(printer.last(count + 2))["sheets"]]
    check(told == [(1, 1), (2, 1), (3, 1), (1, 2), (2, 2), (3, 2)], "collated copies come set by set")


def test_number_up(printer, files):
    for number, count in (1, 3), (2, 2), (4, 1):
        jobs = len(printer.jobs())
        printer.send(files["pdf"], "application/pdf", f"ATTR integer number-up {number}\nATTR integer copies 2\n{MEDIA}")
        job = printer.last(jobs + 1)
        told = printer.told(job)
        check(len(told["sheets"]) == len(list(job.glob("sheet-*"))) == 2 * count,
              f"two copies of three pages, {number} on a sheet, are {2 * count} sheets")
    converted = told["converted"]
    check(planes((job / "sheet-0002.tif").read_bytes()) ==
          print_command(printer, files["pdf"], converted["mode"], 0, converted["tableQuality"], "--nup", 4, "--rotate",
                        "auto"), "four on a sheet lie as corvane print puts them")
    printer.send(files["pdf"], "application/pdf", "ATTR integer number-up 5")
    told = printer.told(printer.last(jobs + 2))
    check(told["state"] == "aborted" and "number-up" in told["reason"], "five on a sheet are refused")


def test_pipe(printer, files):
    received, commands = printer.folder / "received", printer.folder / "pipes"
    commands.write_text(f"collect dd of={received} status=none\n")
    printer.kill(signal.SIGTERM)
    printer.start("-o", f"pipes={commands}")
    subprocess.run([printer.program, "add", "-d", "press", "-m", "corvane-9", "-v", "pipe://collect"],
                   env=printer.environment, check=True)
    count = len(printer.jobs())
    for to in "/ipp/print", "/ipp/print/press":
        printer.send(files["pdf"], "application/pdf", f"ATTR integer copies 2\n{MEDIA}", to=to)
    kept = printer.last(count + 1)
    printer.kill(signal.SIGTERM)  # it prints what waits, and the command ends with it
    check([planes(sheet) for sheet in sheets(received.read_bytes())] ==
          [planes(sheet.read_bytes()) for sheet in sorted(kept.glob("sheet-*"))],
          "a command is given the sheets that a folder gets, each as often")
    queue = (printer.state / "state").read_bytes()
    check("printer press cannot be used: pipe://collect: " in printer.refusal() and (printer.state / "state").read_bytes() == queue,
          "a server without the command of a printer does not start, and keeps the printer")
    test_commands(printer, files, commands)


# Commands that do not do what they are for.
def test_commands(printer, files, commands):
    script, seen = printer.folder / "bad.sh", printer.folder / "signals"
    script.write_text(f"#!/bin/sh\ngrep SigIgn /proc/self/status > {seen}\ncat > /dev/null\nexit 3\n")
    script.chmod(0o755)
    with commands.open("a") as more:
        more.write(f"idle sleep 60\nbad {script}\nshort head -c 0\n")
    printer.start()
    for name in "idle", "bad", "short":
        subprocess.run([printer.program, "add", "-d", name, "-m", "corvane-9", "-v", f"pipe://{name}"],
                       env=printer.environment, check=True)
    for name, copies, complaint in ("bad", 1, "ended with status 3"), ("short", 99, "has ended before it took all"):
        printer.send(files["png"], "image/png", f"ATTR integer copies {copies}\n{MEDIA}", to=f"/ipp/print/{name}")
        for _ in range(200):
            told = printer.messages(f"/ipp/print/{name}")
            if told:
                break
            time.sleep(0.05)
        check("aborted" in told[0] + told[-1] and complaint in "".join(told), f"a command that fails is told: {complaint}")
    (ignored,) = (int(line.split()[1], 16) for line in seen.read_text().splitlines())
    check(not ignored & (1 << signal.SIGPIPE - 1 | 1 << signal.SIGXFSZ - 1), "a command ignores no signal that the server does")
    printer.send(files["png"], "image/png", f"ATTR integer copies 99\n{MEDIA}", to="/ipp/print/idle")
    time.sleep(2)
    begun = time.monotonic()
    printer.cancel(1, "/ipp/print/idle")
    while not any("canceled" in line for line in printer.messages("/ipp/print/idle")):
        if time.monotonic() - begun > 10:
            raise SystemExit("FAILED: a job whose command does not read is not canceled")
        time.sleep(0.02)
    took = time.monotonic() - begun
    check(took < 0.5, f"a job whose command does not read is canceled, in {took:.2f} s")
    check(not subprocess.run(["ps", "-o", "comm=", "--ppid", str(printer.server.pid)], capture_output=True).stdout.strip(),
          "its command is ended")


def test_bad_input(printer, files):
    count = len(printer.jobs())
    printer.send(files["short"], "image/pwg-raster", name="../../x\\u001b[31m$(touch y)")
    job = printer.last(count + 1)
    check(printer.told(job)["state"] == "aborted" and not list(job.glob("sheet-*")),
          "a page that is cut short leaves no sheet")
    broken = printer.folder / "broken.pdf"
    broken.write_bytes(b"%PDF-1.4\nnothing\n")
    printer.send(broken, "application/pdf")
    check(printer.told(printer.last(count + 2))["state"] == "aborted", "a broken document fails alone")
    check(any("Ghostscript" in line for line in printer.messages()), "its client is told why")
    for device in "folder:///etc", "pipe://unknown", f"file://{printer.folder}":
        added = subprocess.run([printer.program, "add", "-d", "other", "-m", "corvane-4", "-v",
                                device], env=printer.environment, capture_output=True)
        check(added.returncode != 0, f"{device} is no device of this server")
    for option, reason in (("integer corvane-alternate-mode 2000000000", "alternate mode"),
                           ("integer corvane-alternate-mode -1", "alternate mode"),
                           ("keyword corvane-print-mode photo", "print mode"), ("keyword corvane-print-mode 3", "print mode")):
        for file, kind in ("png", "image/png"), ("pwg", "image/pwg-raster"):
            jobs = len(printer.jobs())
            printer.send(files[file], kind, f"ATTR {option}")
            told = printer.told(printer.last(jobs + 1))
            check(told["state"] == "aborted" and reason in told["reason"] and "converted" not in told,
                  f"{kind} with {option} is refused in its folder")
    jobs = len(printer.jobs())
    printer.send(files["png"], "image/png")
    check(printer.told(printer.last(jobs + 1))["state"] == "completed", "the queue goes on")
    check("foldr" in printer.refusal("-o", "foldr=x"), "an unknown option of the server is refused")


# What a job that brings the server down each time looks like.
def test_attempts(printer, files):
    count = len(printer.jobs())
    printer.send(files["long"], "application/pdf")
    while len(printer.jobs()) <= count or not list(printer.jobs()[-1].glob("sheet-*")):
        time.sleep(0.05)
    printer.kill()
    job = printer.jobs()[-1]
    told = printer.told(job)
    told["attempt"] = 10
    (job / "job.json").write_text(json.dumps(told))
    printer.start()
    told = printer.told(printer.last(count + 1))
    check(told["state"] == "aborted" and "10 times" in told["reason"] and told["asked"]["options"]["print-quality"] == "normal",
          "a job that has ended the server ten times is not printed again")


def test_cancel(printer, files):
    for number in 1, 9:
        cancel(printer, files["long"], number)


def cancel(printer, file, number_up):
    count = len(printer.jobs())
    printer.send(file, "application/pdf", f"ATTR integer number-up {number_up}")
    while len(printer.jobs()) <= count or not list(printer.jobs()[-1].glob("sheet-*")):
        time.sleep(0.05)
    begun = time.monotonic()
    printer.cancel(printer.told(printer.jobs()[-1])["job"])
    job = printer.last(count + 1)
    took = time.monotonic() - begun
    check(printer.told(job)["state"] == "canceled" and took < 0.5, f"a job with {number_up} on a sheet is canceled, in {took:.2f} s")
    time.sleep(0.5)
    left = subprocess.run(["ps", "-o", "comm=", "--ppid", str(printer.server.pid)], capture_output=True, text=True)
    check(not left.stdout.strip(), "no process of a canceled job is left")


def test_page(printer, files):
    count = len(printer.jobs())
    check(printer.send(files["png"], "image/png", name="<i>&</i>"), "a job with markup for a name is taken")
    job = printer.last(count + 1).name

    def page(path):
        try:
            with urllib.request.urlopen(f"http://localhost:{printer.port}{path}", timeout=20) as answer:
                return answer.read()
        except urllib.error.HTTPError:
            return b""

    for path in "/", "/Corvane/", "/Corvane/media", "/Corvane/printing", "/Corvane/supplies":
        check(b"</html>" in page(path), f"{path} is a page")
    shown = page("/Corvane/printed")
    check(f"job={job}\"".encode() in shown and b"&lt;i&gt;&amp;" in shown and b"<i>" not in shown,
          "the page of what was printed shows the job, its name escaped")
    picture = "/Corvane/printed/preview.png"
    check(page(f"{picture}?job={job}").startswith(b"\x89PNG"), "it has a picture of its first sheet")
    check(not any(page(p) for p in (picture, f"{picture}?job=../{job}", f"{picture}?job=job-99999")),
          "there is no picture of what is no job")


def test_other_folder(printer, files):
    printer.kill(signal.SIGTERM)
    accounts = sorted(printer.state.glob("ink-*.json"))
    printer.out = printer.folder / "else where, 50% drücke"
    printer.start()
    check(printer.send(files["png"], "image/png") and printer.told(printer.last(1))["state"] == "completed",
          "a server that is given another folder prints into it")
    check(sorted(printer.state.glob("ink-*.json")) == accounts, "with the ink account that it had")


# A disk that takes no more of any file than this.
def limit_files(printer, size):
    resource.prlimit(printer.server.pid, resource.RLIMIT_FSIZE, (size, resource.RLIM_INFINITY))


def test_full_disk(printer, files):
    count, state = len(printer.jobs()), printer.state / "state"
    limit_files(printer, 200)
    check(not printer.send(files["pdf"], "application/pdf"), "a document is refused on a full disk")
    text = state.read_bytes()
    check(len(text) > 200 and text.endswith(b"</Printer>\n"), "the queue of before is whole")
    check(not list(printer.state.glob(".corvane-*")), "nothing is left beside it")
    limit_files(printer, resource.RLIM_INFINITY)
    printer.kill()
    printer.start()
    check(printer.send(files["pdf"], "application/pdf"), "a document is taken by the server that comes after")
    check(printer.told(printer.last(count + 1))["state"] == "completed", "and printed")
    printer.kill()
    state.write_bytes(text[:len(text) // 2])
    done = subprocess.run([printer.program, *printer.words], env=printer.environment, capture_output=True, text=True, timeout=60)
    check(done.returncode != 0 and f"{state}: was cut short" in done.stderr, "a queue that was cut short is not saved over")
    state.write_bytes(text)
    printer.start()


def test_lost_output(printer, files):
    with open("/dev/full", "w") as full:
        for words in ["--help"], ["--version"], ["drivers"]:
            done = subprocess.run([printer.program, *words], env=printer.environment, stdout=full, stderr=subprocess.PIPE, text=True)
            check(done.returncode == 1 and done.stderr.count("\n") == 1, f"{words[0]} says that its output is lost")


# What a server that is killed leaves: every sheet that has its name, looked at once.
class KilledOutput:
    def __init__(self, expected):
        self.expected, self.seen, self.again = expected, {}, 0

    def look(self, printer, jobs):
        for job in jobs:
            attempt = printer.told(job).get("attempt", 0)
            for sheet in sorted(job.glob("sheet-*.tif")):
                status = sheet.stat()
                stamp = status.st_ino, status.st_mtime_ns
                known, earlier = self.seen.get(sheet, (None, 0))
                if stamp == known:
                    continue
                number = int(sheet.stem.split("-")[1])
                if planes(sheet.read_bytes()) != self.expected[number - 1]:
                    raise SystemExit(f"FAILED: {sheet} is not whole, at attempt {attempt}")
                if known and attempt <= earlier:
                    raise SystemExit(f"FAILED: {sheet} was printed twice, at attempt {attempt}")
                self.again += known is not None
                self.seen[sheet] = stamp, attempt


# Sends documents until so many have been answered for, whatever becomes of the server meanwhile.
def send_through_kills(printer, file, count, answered):
    for number in itertools.count():
        if len(answered) == count:
            return
        name = f"document {number}"
        if printer.send(file, "application/pdf", "ATTR integer copies 2", name=name):
            answered.append(name)
        else:
            time.sleep(0.1)


def test_cut_options(printer, files):
    count = len(printer.jobs())
    for name in "two\nlines", "long " * 200, "a job":
        printer.send(files["pdf"], "application/pdf", "ATTR integer copies 2", name=name)
    printer.kill()
    cut = list((printer.state / "spool").glob("*.ipp"))
    for file in cut:
        file.write_bytes(b"")
    printer.start()
    while len(jobs := printer.jobs()[count:]) < 3 or any(printer.told(job)["state"] != "completed" for job in jobs):
        time.sleep(0.05)
    check(cut and all(len(printer.told(job)["sheets"]) == 6 for job in jobs),
          "jobs keep options that were cut short while they were saved, however they are called")


def test_kills(printer, files):
    count = len(printer.jobs())
    printer.send(files["pdf"], "application/pdf", "ATTR integer copies 2")
    whole = printer.last(count + 1)
    output = KilledOutput([planes(sheet.read_bytes()) for sheet in sorted(whole.glob("sheet-*.tif"))])
    content = sorted(file.name for file in whole.iterdir())
    chance, kills, answered = random.Random(printer.killed_jobs), 0, []
    sender = threading.Thread(target=send_through_kills, args=(printer, files["pdf"], printer.killed_jobs, answered))
    sender.start()

    def told():
        return [(job, printer.told(job)) for job in printer.jobs()[count + 1:]]

    # A document that was cut off on its way, and not answered for, may be aborted.
    def is_over():
        jobs = [job for _, job in told()]
        completed = {job["asked"]["name"] for job in jobs if job["state"] == "completed"}
        return (not sender.is_alive() and completed.issuperset(answered) and
                all(job["state"] in ("completed", "aborted") for job in jobs))

    begun, longest, done = time.monotonic(), SHORTEST_LIFE, 0
    while not is_over():
        if time.monotonic() - begun > 600 + 20 * printer.killed_jobs:
            raise SystemExit(f"FAILED: {len(answered)} jobs do not end after {kills} kills")
        # A server that gets no job done lives longer the next time, however busy the machine is.
        ended = sum(job["state"] == "completed" for _, job in told())
        longest, done = (SHORTEST_LIFE if ended > done else 1.5 * longest), ended
        time.sleep(chance.uniform(0, longest))
        printer.kill()
        kills += 1
        output.look(printer, printer.jobs()[count + 1:])
        printer.start()
    printer.kill(signal.SIGTERM)  # it may be printing again what it had not yet noted as done
    output.look(printer, printer.jobs()[count + 1:])
    completed = [(folder, job) for folder, job in told() if job["state"] == "completed"]
    names = [job["asked"]["name"] for _, job in completed]
    check(set(answered) <= set(names), f"{len(answered)} jobs outlive {kills} kills")
    check(len(set(names)) == len(names), "none of them is there twice")
    others = {folder.name: there for folder, _ in completed
              if (there := sorted(file.name for file in folder.iterdir())) != content}
    check(not others, f"each has its {len(output.expected)} sheets, whole, and nothing else {others or ''}")
    attempts = [job["attempt"] for _, job in completed]
    print(f"{sum(a > 1 for a in attempts)} of {len(attempts)} jobs were printed at 2 to {max(attempts)} attempts, "
          f"{output.again} sheets again, as job.json says")
    printer.start()


# ---------------------------------------------------------------------------------------------
# The filter of CUPS, by itself and behind a scheduler.

def run_filter(printer, *words, source=None, environment={}):
    with open(source or os.devnull, "rb") as file:
        return subprocess.run([printer.installed / FILTER, "1", "tester", "a job", *map(str, words)], stdin=file,
                              env={**printer.environment, **environment}, capture_output=True, timeout=300)


def test_filter(printer, files):
    once = run_filter(printer, 1, "", source=files["pwg2"])
    pages = sheets(once.stdout)
    check(len(pages) == 2 and all(planes(page) for page in pages), "two pages of raster are two sheets")
    lines = once.stderr.decode().splitlines()
    check([l for l in lines if l.startswith("PAGE:")] == ["PAGE: 1 1", "PAGE: 2 1"] and
          lines.count("ATTR: job-media-progress=100") == 2, "the scheduler is told of pages and progress")
    copied = files["pwg2"].with_name("copied")
    write_raster(copied, 2, copies=3)
    for what, copies, words, source in (("a file", 3, (3, "", files["pwg2"]), None),
                                        ("a file whose headers have as many", 3, (3, "", copied), None),
                                        ("a pipe", 1, (3, ""), files["pwg2"]),
                                        ("a pipe whose headers have as many", 3, (3, ""), copied)):
        check(run_filter(printer, *words, source=source).stdout == b"".join(p * copies for p in pages),
              f"3 copies of {what}: each page {copies} times")
    short = run_filter(printer, 1, "", source=files["short2"])
    check(short.returncode == 1 and short.stdout == pages[0] and b"ERROR: " in short.stderr,
          "a page that is cut short fails the job, behind the whole sheet before it")
    for words in (), ("x", ""), (1, "CorvanePrintMode=3", files["pwg"]), (1, "CorvanePrintMode=108", files["pwg"]), \
            (1, "CorvanePrintMode=photo", files["pwg"]), (1, "", files["png"]), (1, "", "/missing"):
        done = run_filter(printer, *words, source=files["pwg"])
        check(done.returncode == 1 and not done.stdout and done.stderr.count(b"ERROR: ") == 1,
              f"nothing is printed of {' '.join(map(str, words)) or 'no arguments'}")
    with open("/dev/full", "wb") as full:
        done = subprocess.run([printer.installed / FILTER, "1", "tester", "a job", "1", "", files["pwg"]], stdout=full,
                              stderr=subprocess.PIPE, env=printer.environment, timeout=60)
    check(done.returncode == 1 and b"STATE: +spool-area-full" in done.stderr, "a full disk is told")


def test_filter_options(printer, files):
    asked = files["pwg"].with_name("asked")
    for ticket, options, mode, quality, media in (
            ({}, "", 12, "normal", "plain"), ({484: 5}, "", 54, "high", "plain"),
            ({488: 53, 128: b"glossy"}, "", 53, "normal", "glossy"), ({380: 4}, "", 12, "normal", "satin"),
            ({}, "CorvanePrintMode=52 media-type=photographic-film", 52, None, "film"),
            ({484: 4}, "cupsPrintQuality=High", 12, "normal", "plain"), ({}, "ColorModel=Gray", 8, "normal", "plain")):
        write_raster(asked, ticket=ticket)
        check(planes(run_filter(printer, 1, options, source=asked).stdout) ==
              print_command(printer, files["png"], mode, 0, quality, "--media", media),
              f"header {ticket} and options '{options}' print mode {mode} on {media}")
    ppd = printer.installed / "share/ppd/corvane/corvane9.ppd"
    check(planes(run_filter(printer, 1, "", source=files["pwg"], environment={"PPD": str(ppd)}).stdout) ==
          print_command(printer, files["png"], 111, 0, "normal"), "the PPD file says which head it is")


def test_filter_end(printer, files):
    for what, data in ("waits for raster", b""), ("waits within a page", files["pwg"].read_bytes()[:100000]):
        run = subprocess.Popen([printer.installed / FILTER, "1", "tester", "a job", "1", ""], stdin=subprocess.PIPE,
                               stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, env=printer.environment)
        run.stdin.write(data)
        run.stdin.flush()
        time.sleep(0.5)
        begun = time.monotonic()
        run.terminate()
        run.wait(20)
        took = time.monotonic() - begun
        check(took < 0.5 and not run.stdout.read(), f"a filter that {what} ends {took:.2f} s after SIGTERM")
        run.stdin = None
    # More sheets than a pipe holds, which nobody reads.
    run = subprocess.Popen([printer.installed / FILTER, "1", "tester", "a job", "30", "", files["pwg"]], stdout=subprocess.PIPE,
                           stderr=subprocess.DEVNULL, env=printer.environment)
    while fcntl.ioctl(run.stdout, termios.FIONREAD, bytes(4)) == bytes(4):
        time.sleep(0.05)
    time.sleep(0.5)
    begun = time.monotonic()
    run.terminate()
    run.wait(20)
    took = time.monotonic() - begun
    check(took < 0.5, f"a filter that waits for its backend ends {took:.2f} s after SIGTERM")
    peaks = []
    for pages in 2, 100:
        many = files["pwg"].with_name("many")
        write_raster(many, pages)
        before = subprocess.run([sys.executable, "-c", PEAK, str(printer.installed / FILTER), str(many)],
                                env=printer.environment, capture_output=True, text=True, check=True)
        peaks.append(int(before.stdout))
    # Threads that come and go leave memory in different places; a page kept would be far more.
    check(peaks[1] < peaks[0] + 4096, f"2 and 100 pages take {peaks[0]} and {peaks[1]} KiB")


def test_scheduler(printer, files):
    folder = printer.folder / "cups"
    folder.mkdir()
    scheduler = Scheduler(folder, printer.installed / FILTER)
    try:
        for head in 4, 7, 9:
            ppd = printer.installed / f"share/ppd/corvane/corvane{head}.ppd"
            tested = subprocess.run(["cupstestppd", ppd], capture_output=True, text=True,
                                    env=dict(os.environ, CUPS_SERVERBIN=str(scheduler.programs)))
            check(tested.returncode == 0, f"{ppd.name} passes cupstestppd{tested.stdout if tested.returncode else ''}")
        scheduler.add("ppd", "-v", "received:/", "-P", printer.installed / "share/ppd/corvane/corvane7.ppd")
        scheduler.add("everywhere", "-v", printer.uri, "-m", "everywhere")
        once = scheduler.received(scheduler.print("ppd", files["pdf"]))
        check(len(sheets(once)) == 3, "a document of three pages through the PPD is three sheets")
        for copies in 1, 2, 3:
            job = scheduler.print("ppd", files["pdf"], "-n", copies, "-o", "collate=true")
            check(scheduler.received(job) == once * copies and scheduler.pages(job) == 3 * copies,
                  f"{copies} copies through the PPD are {3 * copies} sheets")
            raster = scheduler.received(scheduler.print("ppd", files["pwg2"], "-n", copies))
            check(len(sheets(raster)) == 2 * copies, f"{copies} copies of raster are {2 * copies} sheets")
            count = len(printer.jobs())
            scheduler.print("everywhere", files["pdf"], "-n", copies)
            told = printer.told(printer.last(count + 1))
            check(len(printer.jobs()) == count + 1 and len(told["sheets"]) == 3 * copies,
                  f"{copies} copies through an everywhere queue are {3 * copies} sheets of one job")
        count = len(printer.jobs())
        scheduler.print("everywhere", files["pdf"], "-o", "number-up=2")
        check(len(printer.told(printer.last(count + 1))["sheets"]) == 2,
              "two pages on a sheet through an everywhere queue are put there once")
        glossy = scheduler.received(scheduler.print("ppd", files["pdf"], "-o", "MediaType=Glossy", "-o",
                                                    "print-quality=5"))
        check(len(sheets(glossy)) == 3 and glossy != once, "media and quality of lp reach the filter")
    finally:
        scheduler.stop()


def test_suites(printer, files):
    time.sleep(1.5)  # a server that has been up for less than a second says 0, which the suites refuse
    for suite in SUITES:
        words = ["ipptool", "-tI", "-V", "2.0" if suite != "ipp-1.1.test" else "1.1", "-f", files["pdf"],
                 "-d", f"filename={files['pdf']}", printer.uri, suite]
        done = subprocess.run(words, env=printer.environment, capture_output=True, text=True)
        lines = done.stdout.splitlines()
        print(f"{suite}: {sum('[PASS]' in l for l in lines)} pass, {sum('[FAIL]' in l for l in lines)} fail, "
              f"{sum('[SKIP]' in l for l in lines)} are skipped")
        for at, line in enumerate(lines):
            if "[FAIL]" in line:
                more = itertools.takewhile(lambda l: l.startswith("        "), lines[at + 1:])
                print("\n".join([line, *(l for l in more if l.strip().startswith(("EXPECTED", "GOT", "status-code")))]))


TESTS = (test_filter, test_filter_options, test_filter_end, test_scheduler, test_bytes, test_copies, test_number_up,
         test_pipe, test_bad_input, test_attempts, test_cancel, test_page, test_cut_options, test_full_disk, test_lost_output, test_kills,
         test_other_folder)


def main():
    build, chosen, killed_jobs = pathlib.Path(sys.argv[1]).resolve(), sys.argv[2:], 12
    if "--jobs" in chosen:
        at = chosen.index("--jobs")
        killed_jobs, chosen[at:at + 2] = int(chosen[at + 1]), []
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        folder.chmod(0o755)  # a scheduler that is started by root runs filters as somebody else
        files = {n: folder / n for n in ("pwg", "pwg2", "short", "short2", "png", "pdf", "long")}
        write_raster(files["pwg"])
        write_raster(files["pwg2"], 2)
        write_raster(files["short"], cut=len(PACKED) // 2)
        write_raster(files["short2"], 2, cut=len(PACKED) // 2)
        write_png(files["png"])
        write_pdf(files["pdf"], 3)
        write_pdf(files["long"], 400)
        printer = Printer(build, folder, killed_jobs)
        try:
            if "--suites" in chosen:
                test_suites(printer, files)
            else:
                for test in TESTS:
                    if not chosen or test.__name__ in chosen:
                        test(printer, files)
        finally:
            printer.kill(signal.SIGKILL if "--suites" in chosen else signal.SIGTERM)  # they leave jobs without end
            pathlib.Path(f"/run/{printer.program.name}.sock").unlink(missing_ok=True)  # of a server of root


main()
