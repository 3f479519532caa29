#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""The closure records and the loop they are for, as the host of a replaced parallel loop sees
them: every field in its place with its value.

    closure_test.py LIBRARY
"""
import ctypes
import struct
import sys
import unittest

from pipelines import LIBRARY, PIPELINES, seeds

# The names of a record's fields in their order. An int64 is marked "+", a field of the records of
# one element type alone "float32:" or "float64:"; everything else is an int32.
LAYOUTS = {
    (2, True): "outMin0 interiorRowEnd interiorRowBegin outStride1 float64:gradTIn inputExtent1"
               " inputStride1 interiorVectorEnd +inputOffset float32:gradTIn +outputOffset inputMax0"
               " lastVectorX vectorCount leftVectorCount",
    (2, False): "outMin0 unclampedRowEnd outStride1 float64:gradTIn inputExtent1 inputStride1"
                " unclampedSpan +inputOffset float32:gradTIn +outputOffset vectorCount lastVectorX"
                " inputMax0",
    (3, True): "outExtent1 outMin0 outMin1 interiorPlaneEnd interiorPlaneBegin outStride1 outStride2"
               " float64:gradTIn inputExtent1 inputExtent2 inputStride1 inputStride2 interiorRowEnd"
               " +inputOffset float32:gradTIn +outputOffset interiorVectorEnd outEnd1 inputMax0"
               " inputMax1 lastVectorX vectorCount interiorRowBegin leftVectorCount",
    (3, False): "outExtent1 outMin0 outMin1 unclampedPlaneEnd outStride1 outStride2 float64:gradTIn"
                " inputExtent1 inputExtent2 inputStride1 inputStride2 unclampedRowEnd unclampedSpan"
                " float64:sqrtThree +inputOffset float32:gradTIn +outputOffset vectorCount"
                " lastVectorX inputMax0 outEnd1 inputMax1",
}


def fields_of(pipeline):
    for name in LAYOUTS[pipeline.dimensions, pipeline.minimal].split():
        only, _, field = name.rpartition(":")
        if only in ("", f"float{pipeline.bits}"):
            yield field


def values_of(pipeline, source, target, threshold):
    """Of all fields, by their definitions."""
    (x, width, _), (y, height, stride1), (z, depth, stride2) = target
    (inX, W, _), (inY, H, inStride1), (inZ, D, inStride2) = source
    L = pipeline.lanes
    if pipeline.dimensions == 2:
        z = inZ = 0
    endX, endY, endZ = x + width, y + height, z + depth
    count = (width + L - 1) // L
    left = min(count, 0 if x > 0 else -x // L + 1)
    span = min(width - L, W - x - L - 1)
    rows, planes = min(max(y, 1), endY), min(max(z, 1), endZ)
    return {
        "outMin0": x, "outMin1": y, "outExtent1": height, "outEnd1": endY,
        "outStride1": stride1, "outStride2": stride2, "inputExtent1": H, "inputExtent2": D,
        "inputStride1": inStride1, "inputStride2": inStride2, "inputMax0": W - 1,
        "inputMax1": H - 1, "inputOffset": inX + inY * inStride1 + inZ * inStride2,
        "outputOffset": x + y * stride1 + z * stride2, "gradTIn": threshold,
        "sqrtThree": struct.unpack("d", struct.pack("Q", 0x3ffbb67ae8584caa))[0],
        "lastVectorX": endX - L, "vectorCount": count, "leftVectorCount": left,
        "interiorVectorEnd": max(left, span // L + 1), "unclampedSpan": span,
        "interiorRowBegin": rows, "interiorRowEnd": max(rows, min(H - 1, endY)),
        "unclampedRowEnd": max(y, min(H - 1, endY)),
        "interiorPlaneBegin": planes, "interiorPlaneEnd": max(planes, min(D - 1, endZ)),
        "unclampedPlaneEnd": max(z, min(D - 1, endZ)),
    }


def random_shapes(random, lanes):
    """Any that the ladder lets pass, with offsets beyond 32 bits: (min, extent, stride) for each
    dimension of the input, and of the output."""
    for d in range(3):
        least = lanes if d == 0 else 0
        most = 12 if random.random() < 0.7 else 90
        extent, out_extent = least + random.randint(1, most), least + random.randint(d > 0, most)
        out_min = random.randint(-out_extent - 3, extent + 3)
        first, last = (max(min(v, extent - 1), 0) for v in (out_min - 1, out_min + out_extent))
        strides = (1, 1) if d == 0 else [random.randint(-2**31, 2**31 - 1) for _ in range(2)]
        yield ((random.randint(last + 1 - extent, first), extent, strides[0]),
               (out_min, out_extent, strides[1]))


class Closure(unittest.TestCase):
    def loops(self, pipeline, source, target, threshold=1.0):
        """Calls a pipeline and returns the loops that it asked for: context, first, count and
        the record."""
        layout = "@" + "".join({"gradTIn": "f" if pipeline.bits == 32 else "d", "sqrtThree": "d"}.get(
            field, "q" if field[0] == "+" else "i") for field in fields_of(pipeline)) + "PPPP"
        loops = []

        @ctypes.CFUNCTYPE(ctypes.c_int, *[ctypes.c_void_p] * 2, *[ctypes.c_int] * 2, ctypes.c_void_p)
        def loop(context, _, first, count, record):
            loops.append((context, first, count, struct.unpack(
                layout, ctypes.string_at(record, struct.calcsize(layout)))))
            return 4711

        set_loop = LIBRARY.halide_set_custom_do_par_for
        set_loop.restype, set_loop.argtypes = ctypes.c_void_p, [ctypes.c_void_p]
        previous = set_loop(ctypes.cast(loop, ctypes.c_void_p))
        self.assertEqual(pipeline.call(source, threshold, target), 4711 if loops else 0)
        set_loop(previous)
        return loops

    def test_record_holds_every_field_in_its_place(self):
        count = 0
        for pipeline, random, replay in seeds("closure", 50, 2000):
            count += 1
            shapes = [*zip(*random_shapes(random, pipeline.lanes))]
            threshold = random.randint(1, 1000) / 8
            source, target = pipeline.buffer(64, shapes[0]), pipeline.buffer(4096, shapes[1])
            (context, first, extent, record), = self.loops(pipeline, source, target, threshold)
            values = values_of(pipeline, *shapes, threshold)
            names = [field.strip("+") for field in fields_of(pipeline)]
            self.assertEqual(dict(zip(names, record)), {name: values[name] for name in names}, replay)
            self.assertEqual(record[-4:], (4096, ctypes.addressof(target), 64,
                                           ctypes.addressof(source)), replay)
            outer = shapes[1][pipeline.dimensions - 1]
            self.assertEqual((context, first, extent), (None, *outer[:2]), replay)
        print(f"records of the parallel loop that are as defined\t{count}", flush=True)

    def test_inputs_wider_than_a_vector_run_the_loop(self):
        memory = (ctypes.c_double * 4000)()
        for pipeline in PIPELINES:
            L = pipeline.lanes
            for width in (1, L - 1, L, L + 1, L + 2) if pipeline.runs_here else ():
                source, target = (pipeline.buffer(ctypes.addressof(memory) + 8 * at,
                                                  [(0, extent, 1), (0, 3, 20), (0, 3, 100)])
                                  for at, extent in ((0, width), (2000, L)))
                self.assertEqual(len(self.loops(pipeline, source, target)), int(width > L))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], failfast=True)
