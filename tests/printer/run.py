#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
#
# run.py BUILD_FOLDER: starts corvane-printer on the loopback and prints to it as clients do. What it
# prints is compared with what `corvane print` makes of the same pixels. With --suites the test suites
# of cups-ipp-utils are run, too, and what fails in them is listed.
import json
import os
import pathlib
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import time
import zlib

WIDTH_POINTS, HEIGHT_POINTS, DPI = 144, 180, 600
WIDTH, HEIGHT = WIDTH_POINTS * DPI // 72, HEIGHT_POINTS * DPI // 72
SUITES = ["ipp-1.1.test", "ipp-2.0.test", "ipp-everywhere.test"]


def row(y):
    return bytes(v for x in range(WIDTH) for v in ((x // 5) % 256, (y // 6) % 256, (x + y) // 9 % 256))


ROWS = [row(y) for y in range(HEIGHT)]


def raster_header(pages):
    header = bytearray(1796)

    def put(at, *values):
        struct.pack_into(f">{len(values)}I", header, at, *values)

    header[0:9] = b"PwgRaster"
    put(276, DPI, DPI)
    put(340, 1)
    put(352, WIDTH_POINTS, HEIGHT_POINTS)
    put(372, WIDTH, HEIGHT)
    put(384, 8, 24, 3 * WIDTH, 0, 19)
    put(420, 3)
    put(452, pages)
    return bytes(header)


def raster_row(pixels):
    packed = bytearray([0])
    for at in range(0, len(pixels), 3 * 128):
        part = pixels[at:at + 3 * 128]
        count = len(part) // 3
        packed += bytes([257 - count if count > 1 else 0]) + part
    return bytes(packed)


PACKED = b"".join(raster_row(r) for r in ROWS)


def write_raster(path, pages=1, cut=0):
    data = b"RaS2" + (raster_header(pages) + PACKED) * pages
    path.write_bytes(data[:len(data) - cut])


def write_png(path):
    def chunk(kind, data):
        return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data))

    per_metre = round(DPI / 0.0254)
    path.write_bytes(b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", WIDTH, HEIGHT, 8, 2, 0, 0, 0)) +
                     chunk(b"pHYs", struct.pack(">IIB", per_metre, per_metre, 1)) +
                     chunk(b"IDAT", zlib.compress(b"".join(b"\0" + r for r in ROWS), 1)) + chunk(b"IEND", b""))


def write_pdf(path, pages):
    objects = ["<</Type/Catalog/Pages 2 0 R>>",
               "<</Type/Pages/Count %d/Kids[%s]>>" % (pages, " ".join(f"{3 + 2 * i} 0 R" for i in range(pages)))]
    for i in range(pages):
        stream = f"0.{i % 9} 0.2 0.6 rg 20 20 100 100 re f"
        objects += [f"<</Type/Page/Parent 2 0 R/MediaBox[0 0 {WIDTH_POINTS} {HEIGHT_POINTS}]/Contents {4 + 2 * i} 0 R>>",
                    f"<</Length {len(stream)}>>stream\n{stream}\nendstream"]
    data, offsets = b"%PDF-1.4\n", []
    for number, text in enumerate(objects, 1):
        offsets.append(len(data))
        data += f"{number} 0 obj{text}endobj\n".encode()
    start = len(data)
    data += f"xref\n0 {len(objects) + 1}\n0000000000 65535 f \n".encode()
    data += b"".join(f"{o:010} 00000 n \n".encode() for o in offsets)
    data += f"trailer<</Size {len(objects) + 1}/Root 1 0 R>>\nstartxref\n{start}\n%%EOF\n".encode()
    path.write_bytes(data)


# The strips of every directory of a TIFF file: all that is printed, without the document's name.
def planes(path):
    data = path.read_bytes()
    big = data[2:4] == b"+\0"
    (at,) = struct.unpack_from("<Q" if big else "<I", data, 8 if big else 4)
    found = []
    while at:
        (count,) = struct.unpack_from("<Q" if big else "<H", data, at)
        at += 8 if big else 2
        tags = {}
        for _ in range(count):
            tag, kind, number = struct.unpack_from("<HHQ" if big else "<HHI", data, at)
            letter = {3: "H", 4: "I", 16: "Q"}.get(kind)
            if letter:
                size = struct.calcsize(letter) * number
                room, skip = (8, 12) if big else (4, 8)
                where = at + skip
                if size > room:
                    (where,) = struct.unpack_from("<Q" if big else "<I", data, where)
                tags[tag] = struct.unpack_from(f"<{number}{letter}", data, where)
            at += 20 if big else 12
        found.append([(tags[256], tags[257])] +
                     [data[o:o + n] for o, n in zip(tags[273], tags[279])])
        (at,) = struct.unpack_from("<Q" if big else "<I", data, at)
    return found


class Printer:
    def __init__(self, build, folder):
        self.build, self.folder = build, folder
        self.out, self.state = folder / "out", folder / "state"
        with socket.socket() as free:
            free.bind(("127.0.0.1", 0))
            self.port = free.getsockname()[1]
        self.uri = f"ipp://localhost:{self.port}/ipp/print"
        self.environment = dict(os.environ, TMPDIR=str(folder), HOME=str(folder))
        self.start()

    def start(self, *options):
        words = ["server", "-o", f"server-port={self.port}", "-o", f"folder={self.out}", "-o", f"state={self.state}",
                 "-o", "head=corvane-9", *options]
        self.server = subprocess.Popen([self.build / "bin/corvane-printer", *words], env=self.environment)
        for _ in range(200):
            try:
                socket.create_connection(("localhost", self.port)).close()
                return
            except OSError:
                time.sleep(0.05)
        raise SystemExit("the server does not start")

    def kill(self, number=signal.SIGKILL):
        self.server.send_signal(number)
        self.server.wait(20)

    # Sends a document; returns whether the server has taken it.
    def send(self, file, kind, attributes="", user="tester", name="a job"):
        test = self.folder / "send.test"
        test.write_text("{ OPERATION Print-Job\nGROUP operation-attributes-tag\n"
                        "ATTR charset attributes-charset utf-8\nATTR language attributes-natural-language en\n"
                        f"ATTR uri printer-uri $uri\nATTR name requesting-user-name \"{user}\"\n"
                        f"ATTR name job-name \"{name}\"\nATTR mimeMediaType document-format {kind}\n"
                        f"GROUP job-attributes-tag\n{attributes}\nFILE {file}\n}}\n")
        done = subprocess.run(["ipptool", "-q", self.uri, test], env=self.environment, timeout=300)
        return done.returncode == 0

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


def print_command(printer, png, mode, alternate, quality):
    out = printer.folder / "expected.tif"
    paper = f"{WIDTH_POINTS / 72 * 25.4:.6f}x{HEIGHT_POINTS / 72 * 25.4:.6f}mm"
    words = ["print", png, "-o", out, "-q", "--mode", mode, "--uam", alternate, "--paper", paper]
    if quality:
        words += ["--quality", quality]
    subprocess.run([printer.build / "bin/corvane", *map(str, words)], check=True)
    return planes(out)


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
        check(planes(job / "sheet-0001.tif") == print_command(printer, files["png"], number, 0, quality),
              f"mode {number} prints the planes of corvane print")


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
    for device in "folder:///etc", "pipe://unknown":
        added = subprocess.run([printer.build / "bin/corvane-printer", "add", "-d", "other", "-m", "corvane-4", "-v",
                                device], env=printer.environment, capture_output=True)
        check(added.returncode != 0, f"{device} is no device of this server")
    printer.send(files["png"], "image/png")
    check(printer.told(printer.last(count + 3))["state"] == "completed", "the queue goes on")


def test_cancel(printer, files):
    count = len(printer.jobs())
    printer.send(files["long"], "application/pdf")
    while len(printer.jobs()) <= count or not list(printer.jobs()[-1].glob("sheet-*")):
        time.sleep(0.05)
    begun = time.monotonic()
    number = printer.told(printer.jobs()[-1])["job"]
    subprocess.run(["ipptool", "-q", "-d", f"job-id={number}", printer.uri, "/dev/stdin"], env=printer.environment,
                   input=b"{ OPERATION Cancel-Job\nGROUP operation-attributes-tag\n"
                         b"ATTR charset attributes-charset utf-8\nATTR language attributes-natural-language en\n"
                         b"ATTR uri printer-uri $uri\nATTR integer job-id $job-id\n"
                         b"ATTR name requesting-user-name tester\n}\n")
    job = printer.last(count + 1)
    check(printer.told(job)["state"] == "canceled", f"a job is canceled, in {time.monotonic() - begun:.2f} s")
    time.sleep(0.5)
    left = subprocess.run(["ps", "-o", "comm=", "--ppid", str(printer.server.pid)], capture_output=True, text=True)
    check(not left.stdout.strip(), "no process of a canceled job is left")


def test_kills(printer, files):
    count = len(printer.jobs())
    taken = sum(printer.send(files["pdf"], "application/pdf") for _ in range(12))
    for pause in 0.1, 0.4, 0.9:
        time.sleep(pause)
        printer.kill()
        printer.start()
    for _ in range(1200):
        told = [printer.told(job) for job in printer.jobs()[count:]]
        if len(told) >= taken and all(t["state"] == "completed" for t in told):
            break
        time.sleep(0.1)
    check(sum(t["state"] == "completed" for t in told) == taken, f"{taken} jobs outlive three kills")
    check(all(len(planes(s)) > 0 for j in printer.jobs()[count:] for s in j.glob("sheet-*")), "no half page is left")


def test_suites(printer, files):
    for suite in SUITES:
        words = ["ipptool", "-tI", "-V", "2.0" if suite != "ipp-1.1.test" else "1.1", "-f", files["pdf"],
                 "-d", f"filename={files['pdf']}", printer.uri, suite]
        done = subprocess.run(words, env=printer.environment, capture_output=True, text=True)
        lines = done.stdout.splitlines()
        print(f"{suite}: {sum('[PASS]' in l for l in lines)} pass, {sum('[FAIL]' in l for l in lines)} fail, "
              f"{sum('[SKIP]' in l for l in lines)} are skipped")
        for at, line in enumerate(lines):
            if "[FAIL]" in line:
                print("\n".join([line, *(l for l in lines[at + 1:at + 8] if l.startswith("        "))]))


def main():
    build = pathlib.Path(sys.argv[1]).resolve()
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        files = {n: folder / n for n in ("pwg", "pwg2", "short", "png", "pdf", "long")}
        write_raster(files["pwg"])
        write_raster(files["pwg2"], 2)
        write_raster(files["short"], cut=len(PACKED) // 2)
        write_png(files["png"])
        write_pdf(files["pdf"], 3)
        write_pdf(files["long"], 400)
        printer = Printer(build, folder)
        try:
            if "--suites" in sys.argv:
                test_suites(printer, files)
            else:
                for test in test_bytes, test_copies, test_bad_input, test_cancel, test_kills:
                    test(printer, files)
        finally:
            printer.kill(signal.SIGTERM)


main()
