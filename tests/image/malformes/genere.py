#!/usr/bin/env python3
"""Writes the malformed TIFF files of this folder, each named by its fault.

Every file must end in an Erreur when read (test TiffMalformes). Run from anywhere:
    python3 tests/image/malformes/genere.py
Files found by the fuzzer are added to the folder by hand (named crash-*.tif) and are not
produced here.
"""
import os
import struct

ICI = os.path.dirname(os.path.abspath(__file__))
SHORT, LONG, RATIONAL, FLOAT, LONG8 = 3, 4, 5, 11, 16


def tiff(entrees, pixels=b"", suivant=0, gros=False, premier=None):
    """Pixels at offset 8, then the directory, then the values longer than four bytes.
    entrees: {tag: (type, count, bytes)}; 'premier' overrides the first directory offset."""
    o = ">" if gros else "<"
    repertoire = 8 + len(pixels) + (len(pixels) & 1)
    f = (b"MM" if gros else b"II") + struct.pack(o + "HI", 42, repertoire if premier is None else premier)
    f += pixels + (b"\0" if len(pixels) & 1 else b"")
    valeurs = repertoire + 2 + 12 * len(entrees) + 4
    hors = b""
    f += struct.pack(o + "H", len(entrees))
    for tag in sorted(entrees):
        t, n, v = entrees[tag]
        f += struct.pack(o + "HHI", tag, t, n)
        if len(v) <= 4:
            f += v + b"\0" * (4 - len(v))
        else:
            f += struct.pack(o + "I", valeurs + len(hors))
            hors += v + (b"\0" if len(v) & 1 else b"")
    f += struct.pack(o + "I", suivant)
    return f + hors


def big(entrees, pixels=b"", suivant=0, premier=None, largeur=8, zero=0):
    """The same in BigTIFF: 16-byte header, 8-byte counts and offsets, 20-byte entries."""
    repertoire = 16 + len(pixels) + (len(pixels) & 1)
    f = b"II" + struct.pack("<HHHQ", 43, largeur, zero, repertoire if premier is None else premier)
    f += pixels + (b"\0" if len(pixels) & 1 else b"")
    valeurs = repertoire + 8 + 20 * len(entrees) + 8
    hors = b""
    f += struct.pack("<Q", len(entrees))
    for tag in sorted(entrees):
        t, n, v = entrees[tag]
        f += struct.pack("<HHQ", tag, t, n)
        if len(v) <= 8:
            f += v + b"\0" * (8 - len(v))
        else:
            f += struct.pack("<Q", valeurs + len(hors))
            hors += v + (b"\0" if len(v) & 1 else b"")
    f += struct.pack("<Q", suivant)
    return f + hors


def vals(t, *v, gros=False):
    o = ">" if gros else "<"
    code = {SHORT: "H", LONG: "I", LONG8: "Q"}[t]
    return (t, len(v), b"".join(struct.pack(o + code, x) for x in v))


def simple(colonnes=4, lignes=4, canaux=1, bits=8, format_=1, pixels=None, compression=1, **autres):
    """A one-strip image with the usual tags; 'autres' adds or replaces tags (None removes)."""
    if pixels is None:
        pixels = b"\x05" * (colonnes * lignes * canaux * bits // 8)
    e = {
        256: vals(LONG, colonnes), 257: vals(LONG, lignes), 258: vals(SHORT, *[bits] * canaux),
        259: vals(SHORT, compression), 262: vals(SHORT, 2 if canaux >= 3 else 1), 273: vals(LONG, 8),
        277: vals(SHORT, canaux), 278: vals(LONG, lignes), 279: vals(LONG, len(pixels)),
        339: vals(SHORT, *[format_] * canaux),
    }
    for tag, v in autres.items():
        tag = int(tag[1:])
        if v is None:
            e.pop(tag, None)
        else:
            e[tag] = v
    return e, pixels


def ecrire(nom, octets):
    with open(os.path.join(ICI, nom), "wb") as f:
        f.write(octets)


def lzw(codes):
    """(code, width) pairs packed most significant bit first."""
    bits, n, o = 0, 0, bytearray()
    for c, w in codes:
        bits, n = bits << w | c, n + w
        while n >= 8:
            o.append((bits >> (n - 8)) & 0xFF)
            n -= 8
    if n:
        o.append((bits << (8 - n)) & 0xFF)
    return bytes(o)


def principal():
    e, p = simple()
    base = tiff(e, p)
    repertoire = 8 + len(p)

    # Header and directory chain.
    ecrire("truncated-header.tif", base[:5])
    ecrire("truncated-directory.tif", base[:repertoire + 2 + 12 * 3])
    ecrire("ifd-offset-past-eof.tif", tiff(e, p, premier=100000))
    ecrire("entry-count-huge.tif", b"II" + struct.pack("<HIH", 42, 8, 65535) + b"\0" * 40)

    # Entry values.
    f = bytearray(tiff(e, p))
    # BitsPerSample with 3 values whose offset lies past the end.
    ent = repertoire + 2 + 12 * 2
    f[ent + 4:ent + 12] = struct.pack("<II", 3, 100000)
    ecrire("value-offset-past-eof.tif", bytes(f))
    f = bytearray(tiff(e, p))
    f[ent + 4:ent + 12] = struct.pack("<II", 0x40000001, 8)  # 0x40000001 SHORTs: 2 GB of values
    ecrire("count-overflow.tif", bytes(f))
    f = bytearray(tiff(e, p))
    ent0 = repertoire + 2
    f[ent0 + 2:ent0 + 8] = struct.pack("<HI", 4, 0xFFFFFFFF)  # ImageWidth as 4 G LONGs
    ecrire("count-max.tif", bytes(f))
    ecrire("unknown-field-type.tif", tiff({**e, 300: (19, 1, b"abcd")}, p))
    # Many entries sharing one large value: each lies in the file, together they do not.
    shared = bytearray(tiff({**e, **{t: (SHORT, 1, b"\0\0") for t in range(1000, 1200)}, 270: (2, 3000, b"x" * 3000)}, p))
    # Point the 200 extra entries at the 3000-byte value: 600 kB of values in a 5 kB file.
    off270 = None
    n = struct.unpack_from("<H", shared, repertoire)[0]
    for i in range(n):
        tag, t, c, v = struct.unpack_from("<HHII", shared, repertoire + 2 + 12 * i)
        if tag == 270:
            off270 = v
    for i in range(n):
        a = repertoire + 2 + 12 * i
        tag = struct.unpack_from("<H", shared, a)[0]
        if 1000 <= tag < 1200:
            struct.pack_into("<HII", shared, a + 2, 2, 3000, off270)
    ecrire("values-shared-huge.tif", bytes(shared))
    ecrire("width-rational-zero.tif", tiff({**e, 256: (RATIONAL, 1, struct.pack("<II", 0, 0))}, p))
    ecrire("width-float-huge.tif", tiff({**e, 256: (FLOAT, 1, struct.pack("<f", 1e30))}, p))

    # Sizes.
    ecrire("width-zero.tif", tiff(*simple(_256=vals(LONG, 0))))
    ecrire("width-past-int.tif", tiff(*simple(_256=vals(LONG, 0x80000000))))
    ecrire("size-product-overflow.tif", tiff(*simple(_256=vals(LONG, 0x7FFFFFFF), _257=vals(LONG, 0x7FFFFFFF),
                                                     _258=vals(SHORT, 64, 64, 64, 64), _277=vals(SHORT, 4),
                                                     _339=vals(SHORT, 3, 3, 3, 3), _278=vals(LONG, 0x7FFFFFFF))))
    ecrire("bits-count-zero.tif", tiff(*simple(_258=(SHORT, 0, b""))))
    ecrire("bits-zero.tif", tiff(*simple(_258=vals(SHORT, 0))))
    ecrire("bits-absurd.tif", tiff(*simple(_258=vals(SHORT, 65535))))
    ecrire("bits-mixed.tif", tiff(*simple(canaux=2, _258=vals(SHORT, 8, 16))))
    ecrire("samples-zero.tif", tiff(*simple(_277=vals(SHORT, 0))))
    ecrire("samples-huge.tif", tiff(*simple(_277=vals(SHORT, 65535))))
    ecrire("rows-per-strip-zero.tif", tiff(*simple(_278=vals(LONG, 0))))
    ecrire("sampleformat-void.tif", tiff(*simple(_339=vals(SHORT, 4))))

    # Strips.
    ecrire("strip-offset-past-eof.tif", tiff(*simple(_273=vals(LONG, 100000))))
    ecrire("strip-bytecount-past-eof.tif", tiff(*simple(_279=vals(LONG, 100000))))
    ecrire("strip-bytecount-too-small.tif", tiff(*simple(_279=vals(LONG, 3))))
    ecrire("strip-offset-wraps.tif", tiff(*simple(_273=vals(LONG, 0xFFFFFFF0), _279=vals(LONG, 0x20))))
    ecrire("too-few-strip-offsets.tif", tiff(*simple(_278=vals(LONG, 1), _279=vals(LONG, 4, 4, 4, 4))))
    ecrire("too-few-strip-bytecounts.tif", tiff(*simple(_278=vals(LONG, 1), _273=vals(LONG, 8, 12, 16, 20))))
    ecrire("strips-and-tiles.tif", tiff(*simple(_322=vals(LONG, 16))))
    ecrire("neither-strips-nor-tiles.tif", tiff(*simple(_273=None)))

    # Tiles.
    tuiles = dict(_273=None, _278=None, _279=None, _322=vals(LONG, 16), _323=vals(LONG, 16))
    ecrire("tile-size-zero.tif", tiff(*simple(**{**tuiles, "_322": vals(LONG, 0)}, _324=vals(LONG, 8),
                                              _325=vals(LONG, 16))))
    ecrire("tile-offsets-too-few.tif", tiff(*simple(colonnes=20, pixels=b"\5" * 512, **tuiles,
                                                    _324=vals(LONG, 8), _325=vals(LONG, 256, 256))))
    ecrire("tile-bytecount-past-eof.tif", tiff(*simple(pixels=b"\5" * 256, **tuiles, _324=vals(LONG, 8),
                                                       _325=vals(LONG, 5000))))
    ecrire("tile-huge-width.tif", tiff(*simple(**{**tuiles, "_322": vals(LONG, 0x7FFFFFF0)}, _324=vals(LONG, 8),
                                               _325=vals(LONG, 16))))

    # Palette.
    carte = vals(SHORT, *([0] * 768))
    ecrire("colormap-wrong-size.tif", tiff(*simple(_262=vals(SHORT, 3), _320=vals(SHORT, *([0] * 700)))))
    ecrire("colormap-missing.tif", tiff(*simple(_262=vals(SHORT, 3))))
    ecrire("palette-16-bits.tif", tiff(*simple(bits=16, _262=vals(SHORT, 3), _320=carte)))
    ecrire("palette-4-bits.tif", tiff(*simple(bits=4, _262=vals(SHORT, 3), _320=carte)))
    ecrire("palette-3-channels.tif", tiff(*simple(canaux=3, _262=vals(SHORT, 3), _320=carte)))
    ecrire("photometric-unknown.tif", tiff(*simple(_262=vals(SHORT, 5))))

    # Compressed data.
    ecrire("lzw-corrupt-code.tif", tiff(*simple(compression=5,
                                                pixels=lzw([(256, 9), (65, 9), (400, 9), (65, 9), (257, 9)]))))
    ecrire("lzw-string-after-clear.tif", tiff(*simple(compression=5, pixels=lzw([(256, 9), (300, 9)] + [(65, 9)] * 20))))
    # Ten bytes where sixteen are needed, and no End code.
    ecrire("lzw-truncated.tif", tiff(*simple(compression=5, pixels=lzw([(256, 9)] + [(65, 9)] * 10))))
    ecrire("lzw-huge-claim.tif", tiff(*simple(colonnes=60000, lignes=60000, compression=5,
                                              pixels=lzw([(256, 9), (65, 9), (257, 9)]))))
    # 1000 strips of one line share one block of LZW data: each could give its line, all of them
    # together ask far more than the file could hold.
    donnees = lzw([(256, 9)] + [(65, 9)] * 1700 + [(257, 9)])
    n = 1000
    e = simple(colonnes=1000000, lignes=n, compression=5, pixels=donnees, _278=vals(LONG, 1),
               _273=vals(LONG, *[8] * n), _279=vals(LONG, *[len(donnees)] * n))
    ecrire("strips-shared-huge.tif", tiff(*e))
    ecrire("packbits-truncated.tif", tiff(*simple(compression=32773, pixels=bytes([0x05, 1, 2]))))
    ecrire("packbits-noop-only.tif", tiff(*simple(compression=32773, pixels=bytes([0x80] * 16))))
    ecrire("compression-unsupported.tif", tiff(*simple(compression=50001)))
    ecrire("predictor-float.tif", tiff(*simple(compression=5, _317=vals(SHORT, 3),
                                               pixels=lzw([(256, 9)] + [(5, 9)] * 16 + [(257, 9)]))))
    ecrire("predictor-1-bit.tif", tiff(*simple(bits=1, pixels=b"\0\0\0\0", _317=vals(SHORT, 2))))
    # Planar files have one strip or tile per plane.
    ecrire("planar-too-few-strips.tif", tiff(*simple(canaux=3, _284=vals(SHORT, 2))))
    ecrire("planar-too-few-tiles.tif", tiff(*simple(canaux=2, pixels=b"\5" * 512, **tuiles, _284=vals(SHORT, 2),
                                                    _324=vals(LONG, 8), _325=vals(LONG, 256))))
    # Three LZW planes of 16 bytes: the third stops after 10.
    plan = lzw([(256, 9)] + [(65, 9)] * 16 + [(257, 9)])
    court = lzw([(256, 9)] + [(66, 9)] * 10)
    plans = plan + plan + court
    ecrire("planar-lzw-plane-truncated.tif", tiff(*simple(canaux=3, compression=5, pixels=plans, _284=vals(SHORT, 2),
                                                           _273=vals(LONG, 8, 8 + len(plan), 8 + 2 * len(plan)),
                                                           _279=vals(LONG, len(plan), len(plan), len(court)))))
    # Predictor 3 on 32-bit floats whose LZW strip ends early.
    ecrire("predictor-float-truncated.tif", tiff(*simple(bits=32, format_=3, compression=5, _317=vals(SHORT, 3),
                                                          pixels=lzw([(256, 9)] + [(7, 9)] * 40))))
    ecrire("predictor-float-on-integers.tif", tiff(*simple(bits=32, _317=vals(SHORT, 3))))
    # JPEG YCbCr: three 8-bit channels and subsampling 1, 2 or 4 only.
    ecrire("jpeg-ycbcr-two-channels.tif", tiff(*simple(canaux=2, compression=7, _262=vals(SHORT, 6))))
    ecrire("jpeg-ycbcr-subsampling-3.tif", tiff(*simple(canaux=3, compression=7, _262=vals(SHORT, 6),
                                                       _530=vals(SHORT, 3, 3))))
    ecrire("ycbcr-uncompressed.tif", tiff(*simple(canaux=3, _262=vals(SHORT, 6))))

    # Big-endian.
    eb, pb = simple()
    eb = {t: vals(v[0], *struct.unpack("<" + ("H" if v[0] == SHORT else "I") * v[1], v[2]), gros=True)
          for t, v in eb.items()}
    grosb = tiff(eb, pb, gros=True)
    ecrire("bigendian-truncated.tif", grosb[:len(grosb) - 7])

    # BigTIFF.
    eg, pg = simple()
    eg = {t: (v[0] if v[0] != LONG else LONG8, v[1],
              v[2] if v[0] != LONG else b"".join(struct.pack("<Q", x) for x in struct.unpack("<" + "I" * v[1], v[2])))
          for t, v in eg.items()}
    sain = big(eg, pg)
    rep = 16 + len(pg)
    ecrire("bigtiff-truncated-header.tif", sain[:12])
    ecrire("bigtiff-offset-width-4.tif", big(eg, pg, largeur=4))
    ecrire("bigtiff-header-not-zero.tif", big(eg, pg, zero=1))
    ecrire("bigtiff-ifd-past-eof.tif", big(eg, pg, premier=1 << 40))
    ecrire("bigtiff-ifd-offset-wraps.tif", big(eg, pg, premier=(1 << 64) - 8))
    ecrire("bigtiff-entry-count-huge.tif", sain[:rep] + struct.pack("<Q", 1 << 60) + sain[rep + 8:])
    ecrire("bigtiff-truncated-directory.tif", sain[:rep + 8 + 20 * 3])
    ecrire("bigtiff-strip-offset-past-eof.tif", big({**eg, 273: vals(LONG8, 1 << 35)}, pg))
    ecrire("bigtiff-strip-offset-wraps.tif", big({**eg, 273: vals(LONG8, (1 << 64) - 16)}, pg))
    ecrire("bigtiff-strip-bytecount-huge.tif", big({**eg, 279: vals(LONG8, 1 << 62)}, pg))
    ecrire("bigtiff-count-overflow.tif", big({**eg, 258: (SHORT, 1 << 63, struct.pack("<Q", 40))}, pg))
    ecrire("bigtiff-value-offset-past-eof.tif", big({**eg, 258: (SHORT, 5, struct.pack("<Q", 1 << 33))}, pg))
    ecrire("bigtiff-width-long8-huge.tif", big({**eg, 256: vals(LONG8, 1 << 40)}, pg))
    ecrire("bigtiff-tile-offsets-too-few.tif", big(simple(colonnes=20, pixels=b"\5" * 512, **tuiles,
                                                           _324=vals(LONG8, 16), _325=vals(LONG8, 256, 256))[0],
                                                    b"\5" * 512))

    # "Dallage MPD".
    ecrire("dallage-one-tag.tif", tiff(*simple(_40000=vals(LONG, 2))))
    ecrire("dallage-missing-tile.tif", tiff(*simple(_40000=vals(LONG, 2), _40001=vals(LONG, 2))))
    ecrire("dallage-zero-tiles.tif", tiff(*simple(_40000=vals(LONG, 0), _40001=vals(LONG, 2))))


if __name__ == "__main__":
    principal()
