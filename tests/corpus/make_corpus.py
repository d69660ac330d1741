#!/usr/bin/env python3
"""Writes the hand-made hostile TIFFs of this folder (classic TIFF, little-endian).

Each file is a header, one directory and whatever data bytes the case needs; README.md says what
each one caught or guards. Run from any folder: python3 tests/corpus/make_corpus.py
"""
import os
import struct

HERE = os.path.dirname(os.path.abspath(__file__))

SHORT, LONG, RATIONAL, ASCII, BYTE = 3, 4, 5, 2, 1
SIZES = {BYTE: 1, ASCII: 1, SHORT: 2, LONG: 4, RATIONAL: 8}


def tiff(entries, data=b"", next_ifd=0, pad=b""):
    """entries: list of (tag, type, values). Values that do not fit in 4 bytes follow the IFD."""
    header = b"II*\x00" + struct.pack("<I", 8)
    ifd_size = 2 + 12 * len(entries) + 4
    extra = b""
    body = struct.pack("<H", len(entries))
    base = 8 + ifd_size
    for tag, typ, values in sorted(entries, key=lambda e: e[0]):
        if isinstance(values, dict):  # a raw entry: any count, the value field as given
            body += struct.pack("<HHII", tag, typ, values["count"], values["value"])
            continue
        if typ == ASCII:
            raw = values
            count = len(raw)
        else:
            fmt = {BYTE: "B", SHORT: "H", LONG: "I", RATIONAL: "II"}[typ]
            flat = []
            for v in values:
                flat.extend(v if isinstance(v, tuple) else (v,))
            raw = struct.pack("<" + fmt[0] * len(flat) if typ != RATIONAL else "<" + "I" * len(flat), *flat)
            count = len(values)
        if len(raw) <= 4:
            body += struct.pack("<HHI", tag, typ, count) + raw.ljust(4, b"\0")
        else:
            body += struct.pack("<HHII", tag, typ, count, base + len(extra))
            extra += raw + (b"\0" if len(raw) % 2 else b"")
    body += struct.pack("<I", next_ifd)
    return header + body + extra + data + pad


def image(width, length, bps=8, spp=1, photometric=1, offsets=None, counts=None, rows=None, more=(),
          data=b""):
    """A strip image whose data (if any) follows the directory; offsets are absolute."""
    rows = length if rows is None else rows
    entries = [
        (256, LONG, [width]),
        (257, LONG, [length]),
        (258, SHORT, [bps] * spp),
        (259, SHORT, [1]),
        (262, SHORT, [photometric]),
        (273, LONG, offsets if offsets is not None else [0]),
        (277, SHORT, [spp]),
        (278, LONG, [rows]),
        (279, LONG, counts if counts is not None else [len(data)]),
    ]
    overridden = {e[0] for e in more}
    entries = [e for e in entries if e[0] not in overridden] + list(more)
    probe = tiff(entries)
    if offsets is None:  # data right after the directory
        entries = [(273, LONG, [len(probe)]) if e[0] == 273 else e for e in entries]
    return tiff(entries, data)


def palette_map(bits):
    n = 1 << bits
    return (320, SHORT, [i * 257 % 65536 for i in range(n)] * 3)


CASES = {
    "claims_100000x100000.tif": image(100000, 100000, spp=3, photometric=2, counts=[0xFFFFFFFF]),
    "claims_32767x32767_rgba.tif": image(32767, 32767, spp=4, photometric=2, counts=[0xFFFFFFFF],
                                         more=[(338, SHORT, [2])]),
    "claims_1x4000000000.tif": image(1, 4000000000, counts=[0xFFFFFFFF]),
    "claims_16384x16384_lzw_one_strip.tif": image(16384, 16384, spp=3, photometric=2, more=[(259, SHORT, [5])],
                                                  data=bytes(range(256))),
    "claims_huge_strip_bytecount.tif": image(64, 64, counts=[0xFFFFFFF0], data=b"\x80" * 32),
    "strip_offset_past_end.tif": image(16, 16, offsets=[0x7FFFFFF0], counts=[256]),
    "strip_offset_at_end.tif": image(16, 16, offsets=[0], counts=[256], data=b""),
    "rows_per_strip_0.tif": image(16, 16, rows=0, data=bytes(range(256))),
    "bits_per_sample_0.tif": image(16, 16, bps=0, data=bytes(256)),
    "bits_per_sample_64.tif": image(4, 4, bps=64, data=bytes(128)),
    "bits_per_sample_17_rgb.tif": image(4, 4, bps=17, spp=3, photometric=2, data=bytes(128)),
    "samples_per_pixel_0.tif": image(16, 16, spp=0, data=bytes(256)),
    "samples_per_pixel_1000.tif": image(2, 2, spp=1000, photometric=2, data=bytes(4000)),
    "extra_samples_beyond_spp.tif": image(4, 4, spp=2, more=[(338, SHORT, [2, 2, 2])], data=bytes(32)),
    "palette_without_colormap.tif": image(8, 8, photometric=3, data=bytes(64)),
    "palette_16bit_short_colormap.tif": image(4, 4, bps=16, photometric=3, more=[palette_map(4)],
                                              data=bytes(32)),
    "palette_index_past_map.tif": image(4, 4, bps=8, photometric=3, more=[palette_map(2)],
                                        data=bytes([255] * 16)),
    "width_0.tif": image(0, 16, data=bytes(16)),
    "lzw_garbage.tif": image(32, 32, more=[(259, SHORT, [5])], data=bytes(range(256)) * 2),
    "deflate_garbage.tif": image(32, 32, more=[(259, SHORT, [8])], data=b"\x78\x9c" + bytes(range(200))),
    "jpeg_garbage.tif": image(32, 32, spp=3, photometric=6, more=[(259, SHORT, [7])],
                              data=b"\xff\xd8\xff\xdb" + bytes(300)),
    "ccitt_g4_garbage_wide.tif": image(30000, 30000, bps=1, photometric=0, more=[(259, SHORT, [4])],
                                       data=bytes([0x55] * 64)),
    "ycbcr_subsampling_4x4_width_1.tif": image(1, 1, spp=3, photometric=6,
                                               more=[(530, SHORT, [4, 4])], data=bytes(18)),
    "tile_width_0.tif": tiff([(256, LONG, [16]), (257, LONG, [16]), (258, SHORT, [8]), (262, SHORT, [1]),
                              (322, LONG, [0]), (323, LONG, [16]), (324, LONG, [8]), (325, LONG, [256])]),
    "tile_huge.tif": tiff([(256, LONG, [16]), (257, LONG, [16]), (258, SHORT, [8]), (262, SHORT, [1]),
                           (322, LONG, [0x7FFFFFF0]), (323, LONG, [0x7FFFFFF0]), (324, LONG, [8]),
                           (325, LONG, [256])]),
    "directory_count_huge.tif": b"II*\x00\x08\x00\x00\x00\xff\xff" + bytes(16),
    "next_directory_past_end.tif": image(2, 2, data=bytes(4))[:-4],
    "icc_count_huge.tif": image(2, 2, data=bytes(4), more=[(34675, 7, {"count": 0x7FFFFFFF, "value": 8})]),
    "colormap_count_huge.tif": image(2, 2, photometric=3, data=bytes(4),
                                     more=[(320, SHORT, {"count": 0x7FFFFFFF, "value": 8})]),
    "strip_offsets_count_huge.tif": image(2, 2, data=bytes(4),
                                          more=[(273, LONG, {"count": 0x3FFFFFFF, "value": 8}),
                                                (279, LONG, {"count": 0x3FFFFFFF, "value": 8})]),
    "private_tag_type_14.tif": image(4, 1, data=bytes(4), more=[(65000, 14, {"count": 3, "value": 0x636261})]),
    "codec_tags_uncompressed.tif": image(4, 1, data=bytes(4),
                                         more=[(513, BYTE, [1]), (519, BYTE, [1]), (50674, BYTE, [1])]),
    "header_only.tif": b"II*\x00",
    "bigtiff_header_only.tif": b"II+\x00\x08\x00\x00\x00\x10\x00\x00\x00\x00\x00\x00\x00",
}


def main():
    for name, blob in CASES.items():
        with open(os.path.join(HERE, name), "wb") as f:
            f.write(blob)


if __name__ == "__main__":
    main()
