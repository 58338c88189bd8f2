#!/usr/bin/env python3
"""Writes the image reader's seeds into fuzz/corpus/fuzz-image-reader: tiny valid files of every layout the
reader takes (PNG of each colour type at 8 and 16 bits, palette and interlaced; TIFF at 8, 16 and 32 bits;
baseline and progressive JPEG). Run with an interpreter that has OpenCV and numpy."""
import os
import struct
import zlib

import cv2
import numpy as np

HERE = os.path.join(os.path.dirname(os.path.abspath(__file__)), "corpus", "fuzz-image-reader")


def png_chunk(kind, data):
    return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data) & 0xFFFFFFFF)


def png(width, height, bit_depth, colour_type, rows, extra=b"", interlace=0):
    header = struct.pack(">IIBBBBB", width, height, bit_depth, colour_type, 0, 0, interlace)
    raw = b"".join(b"\0" + row for row in rows)
    return (b"\x89PNG\r\n\x1a\n" + png_chunk(b"IHDR", header) + extra + png_chunk(b"IDAT", zlib.compress(raw)) +
            png_chunk(b"IEND", b""))


def write(name, data):
    with open(os.path.join(HERE, name), "wb") as file:
        file.write(data)


def main():
    os.makedirs(HERE, exist_ok=True)
    generator = np.random.default_rng(7)
    # PNG: gray and alpha, a palette with a transparency key, 2-bit gray, Adam7 (OpenCV writes none of them).
    write("gray-alpha8.png", png(3, 2, 8, 4, [bytes(generator.integers(0, 256, 6, dtype=np.uint8))] * 2))
    palette = png_chunk(b"PLTE", bytes(range(12))) + png_chunk(b"tRNS", b"\x00\xff")
    write("palette.png", png(4, 2, 8, 3, [b"\x00\x01\x02\x03", b"\x03\x02\x01\x00"], palette))
    write("gray2.png", png(5, 2, 2, 0, [b"\x1b\xc0", b"\xe4\x40"]))
    write("interlaced16.png", png(5, 5, 16, 2, [bytes(generator.integers(0, 256, 30, dtype=np.uint8))] * 5,
                                  interlace=1))
    images = {
        "gray8": generator.integers(0, 256, (3, 4), dtype=np.uint8),
        "rgb16": generator.integers(0, 65536, (3, 4, 3), dtype=np.uint16),
        "rgba8": generator.integers(0, 256, (3, 4, 4), dtype=np.uint8),
        "rgba16": generator.integers(0, 65536, (2, 3, 4), dtype=np.uint16),
        "gray32": generator.random((3, 4), dtype=np.float32),
        "rgb32": generator.random((2, 3, 3), dtype=np.float32),
    }
    for name in ("gray8", "rgb16", "rgba8"):
        cv2.imwrite(os.path.join(HERE, name + ".png"), images[name])
    lzw = [cv2.IMWRITE_TIFF_COMPRESSION, 5]
    for name in ("gray8", "rgb16", "rgba16", "gray32", "rgb32"):
        cv2.imwrite(os.path.join(HERE, name + ".tif"), images[name], lzw)
    cv2.imwrite(os.path.join(HERE, "gray8.jpg"), np.kron(images["gray8"], np.ones((4, 4), np.uint8)))
    colour = np.kron(images["rgba8"][:, :, :3], np.ones((4, 4, 1), np.uint8))
    cv2.imwrite(os.path.join(HERE, "rgb8.jpg"), colour)
    cv2.imwrite(os.path.join(HERE, "rgb8-progressive.jpg"), colour, [cv2.IMWRITE_JPEG_PROGRESSIVE, 1])


if __name__ == "__main__":
    main()
