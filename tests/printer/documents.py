# SPDX-License-Identifier: MIT
#
# Documents to print, and what was printed.
import re
import struct
import zlib

WIDTH_POINTS, HEIGHT_POINTS, DPI = 144, 180, 600
WIDTH, HEIGHT = WIDTH_POINTS * DPI // 72, HEIGHT_POINTS * DPI // 72


def row(y):
    return bytes(v for x in range(WIDTH) for v in ((x // 5) % 256, (y // 6) % 256, (x + y) // 9 % 256))


ROWS = [row(y) for y in range(HEIGHT)]


# `ticket` has numbers and texts by their offsets.
def raster_header(pages, copies=1, ticket={}):
    header = bytearray(1796)

    def put(at, *values):
        struct.pack_into(f">{len(values)}I", header, at, *values)

    header[0:9] = b"PwgRaster"
    put(276, DPI, DPI)
    put(340, copies)
    put(352, WIDTH_POINTS, HEIGHT_POINTS)
    put(372, WIDTH, HEIGHT)
    put(384, 8, 24, 3 * WIDTH, 0, 19)
    put(420, 3)
    put(452, pages)
    for at, value in ticket.items():
        if isinstance(value, int):
            put(at, value)
        else:
            header[at:at + len(value)] = value
    return bytes(header)


def raster_row(pixels):
    packed = bytearray([0])
    for at in range(0, len(pixels), 3 * 128):
        part = pixels[at:at + 3 * 128]
        count = len(part) // 3
        packed += bytes([257 - count if count > 1 else 0]) + part
    return bytes(packed)


PACKED = b"".join(raster_row(r) for r in ROWS)


def write_raster(path, pages=1, cut=0, copies=1, ticket={}):
    data = b"RaS2" + (raster_header(pages, copies, ticket) + PACKED) * pages
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


# The sheets, a TIFF file each, that follow one another in a stream.
def sheets(data):
    starts = [m.start() for m in re.finditer(b"II\\*\\0|II\\+\\0", data)]
    return [data[a:b] for a, b in zip(starts, [*starts[1:], len(data)])]


# The strips of every directory of a TIFF file: all that is printed, without the document's name.
def planes(data):
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
