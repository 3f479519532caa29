#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""The library as it is built, without a call: what it shows to the dynamic linker, what the
objects of each instruction set define, import and execute, and what it says of itself.

    library_test.py LIBRARY OBJECT...
"""
import collections
import ctypes
import functools
import itertools
import pathlib
import re
import subprocess
import sys
import unittest

from pipelines import LIBRARY, PIPELINES, ROOT

_, PATH, *OBJECTS = sys.argv
SETS = ("none", "avx", "avx2", "frame")


def lines_of(*command):
    """What a command prints, line by line, in words."""
    return [line.split() for line in
            subprocess.run(command, capture_output=True, text=True, check=True).stdout.splitlines()]


def objects_of(part):
    return [path for path in OBJECTS if f"diffusefilt_{part}.dir" in path]


def expanded(name):
    """a{b,c} is ab and ac."""
    if not (braces := re.search(r"\{(.*?)\}", name)):
        return [name]
    return [other for choice in braces[1].split(",")
            for other in expanded(name[:braces.start()] + choice + name[braces.end():])]


class Surface(unittest.TestCase):
    def stored(self):
        """surface.txt: below each heading names, or lines where they have no kinds."""
        text = (ROOT / "tests/surface.txt").read_text().replace(",\n", ",")
        _, *parts = re.split(r"^\[(.*)\]\n", text, flags=re.M)
        for heading, body in zip(parts[::2], parts[1::2]):
            split = str.split if " " in heading else str.splitlines
            for name in itertools.chain(*map(expanded, split(body))):
                yield f"{heading} {name}"

    def found(self):
        for w in lines_of("readelf", "--dyn-syms", "-W", PATH):
            if len(w) >= 8 and w[0][-1] == ":" and w[0] not in ("0:", "Num:"):
                yield " ".join(["imported" if w[6] == "UND" else "defined", *w[3:6], w[7]])
        libraries = 0
        for w in lines_of("readelf", "-dW", PATH):
            if len(w) > 1 and w[1] in ("(RPATH)", "(RUNPATH)", "(SONAME)", "(TEXTREL)",
                                       "(INIT_ARRAYSZ)", "(FINI_ARRAYSZ)"):
                yield f"dynamic {w[1]} {w[-1] if w[2] == 'Library' else w[2]}"
            elif len(w) > 1 and w[1] == "(BIND_NOW)":
                yield "dynamic (BIND_NOW)"
            elif len(w) > 1 and w[1] == "(NEEDED)":
                libraries += 1
                yield f"dynamic (NEEDED) {libraries} {w[-1]}"
        for w in lines_of("readelf", "-lW", PATH):
            if len(w) > 6 and w[0] in ("GNU_STACK", "GNU_RELRO"):
                yield f"segment {w[0]} {w[6]}"

    def test_is_that_of_the_list(self):
        if not re.search(r"^CMAKE_BUILD_TYPE:\w+=Release$",
                         (pathlib.Path(PATH).parent / "CMakeCache.txt").read_text(), re.M):
            self.skipTest("other builds import more")
        found, stored = (collections.Counter(names) for names in (self.found(), self.stored()))
        self.assertEqual((sorted(stored - found), sorted(found - stored)), ([], []),
                         "the library lacks the first and adds the second to tests/surface.txt: undo "
                         "that, or change the list, raise the version and do what "
                         "scripts/check-interface says")

    def test_finalisers_are_known(self):
        """The runtime's four clean-ups beside the compiler's own."""
        names = [w[4] for w in lines_of("readelf", "-rW", PATH)
                 if len(w) > 4 and w[2] == "R_X86_64_64" and re.search("(cleanup|shutdown)$", w[4])]
        self.assertEqual(names, ["halide_profiler_shutdown", "halide_cache_cleanup",
                                 "halide_trace_cleanup", "halide_thread_pool_cleanup"])

    def test_tasks_are_named_local_functions(self):
        """What a profiler calls the tasks; the list has no such name."""
        local = {w[2] for w in lines_of("nm", PATH) if len(w) == 3 and w[1] == "t"}
        for pipeline in PIPELINES:
            loop = f"diffusefilt{pipeline.dimensions}.s0.{'xyz'[pipeline.dimensions - 1]}"
            self.assertIn(f"par_for_{pipeline.name}_{loop}", local)


# Above SSE2: VEX and EVEX forms, SSE3, SSSE3, SSE4, and what came to the integer side.
ABOVE_BASELINE = (
    "^(v[a-z]|addsubp|haddp|hsubp|movddup|movs[hl]dup|lddqu|fisttp|pshufb|palignr|pabs|phadd|phsub|"
    "psign|pmulhrsw|pmaddubsw|p?blend|dpp[sd]|extractps|insertps|movntdqa|mpsadbw|packusdw|pcmpeqq|"
    "pcmpgtq|pextr[bdq]|pinsr[bdq]|phminpos|p(max|min)(sb|sd|ud|uw)|pmov[sz]x|pmuldq|pmulld|ptest|"
    "round[ps][sd]|pcmp[ei]str|crc32|popcnt|andn |bextr|bls|[tl]zcnt|movbe|(sar|shl|shr|ror|mul)x|"
    "pdep|pext)")
ABOVE_AVX = (
    "^(vf(n?m|maddsub|msubadd)|v(extract|insert|broadcast)i|vbroadcasts[sd] %xmm|andn |bextr|bls|"
    "[tl]zcnt|(sar|shl|shr|ror|mul)x )|^vp(?!ermil|erm2f128)[a-z0-9]+ .*%ymm|%zmm|%k")
NOWHERE = "gather|^v?rcp|^v?rsqrt|%zmm|%k"


class Isolation(unittest.TestCase):
    """Instruction sets do not leak."""

    @staticmethod
    @functools.cache
    def instructions(part):
        """The mnemonic, whether it names memory, and the registers: "vmulps (%ymm"."""
        prefixes = ("rep", "repz", "repnz", "lock", "notrack", "data16", "cs")
        kinds = set()
        for w in lines_of("objdump", "-d", "--no-show-raw-insn", *objects_of(part)):
            if len(w) < 2 or w[0][-1] != ":" or len(w[0]) > 9:
                continue
            name, *operands = itertools.dropwhile(lambda word: word in prefixes, w[1:])
            named = re.findall(r"\(|%[xyz]mm|%k", operands[0] if operands else "")
            kinds.add(" ".join([name, *sorted(set(named), reverse=True)]) + " ")
        return kinds

    def matches(self, part, pattern):
        return [kind for kind in self.instructions(part) if re.search(pattern, kind)]

    def test_sets_use_only_their_instructions(self):
        for part, pattern in (("none", ABOVE_BASELINE), ("frame", ABOVE_BASELINE),
                              ("avx", ABOVE_AVX), *((part, NOWHERE) for part in SETS)):
            self.assertEqual(self.matches(part, pattern), [], part)
        # The disassembly is read.
        for part, pattern in (("frame", "^mov"), ("none", "^divpd"), ("avx", "^vdivpd .*%ymm"),
                              ("avx", ABOVE_BASELINE), ("avx2", ABOVE_AVX)):
            self.assertNotEqual(self.matches(part, pattern), [], part)

    def test_no_weak_symbol_is_defined_twice(self):
        """The linker keeps one copy of a weak function: none may be defined for two sets."""
        weak = [{w[2] for w in lines_of("nm", "--defined-only", *objects_of(part))
                 if len(w) == 3 and w[1] in "WwVvu"} for part in SETS]
        for one, other in itertools.combinations(weak, 2):
            self.assertEqual(one & other, set())
        self.assertGreaterEqual(len(set.union(*weak)), 24)  # of the in-line path

    def test_imports_are_those_of_their_work(self):
        """Nothing of the C library but exp and floorf: no memcpy, no memset, no stack check."""
        errors = expanded("halide_error_{buffer_argument_is_null,bad_type,access_out_of_bounds,"
                          "buffer_extents_negative,constraint_violated,"
                          "buffer_allocation_too_large,host_is_null}")
        wanted = {"none": ["exp", "floorf"], "avx": ["exp"], "avx2": ["exp"],
                  "frame": ["halide_do_par_for", *errors]}
        for part in SETS:
            imports = {w[1] for w in lines_of("nm", "--undefined-only", *objects_of(part))
                       if len(w) == 2 and "diffusefilt" not in w[1]} - {"_GLOBAL_OFFSET_TABLE_"}
            self.assertIn(wanted[part][0], imports)
            # The compiler may prove that a row of the ladder cannot fire.
            self.assertLessEqual(imports, {*wanted[part]}, part)


class Argument(ctypes.Structure):
    _fields_ = [("name", ctypes.c_char_p), ("kind", ctypes.c_int32), ("dimensions", ctypes.c_int32),
                ("code", ctypes.c_uint8), ("bits", ctypes.c_uint8), ("lanes", ctypes.c_uint16),
                ("default", ctypes.POINTER(ctypes.c_uint64)), ("others", ctypes.c_void_p * 4)]


class Metadata(ctypes.Structure):
    _fields_ = [("version", ctypes.c_int32), ("num_arguments", ctypes.c_int32),
                ("arguments", ctypes.POINTER(Argument)), ("target", ctypes.c_char_p),
                ("name", ctypes.c_char_p)]


class Descriptions(unittest.TestCase):
    def test_metadata_state_the_pipeline(self):
        features = {"none": "large_buffers-no_runtime",
                    "avx": "avx-large_buffers-no_runtime-sse41",
                    "avx2": "avx-avx2-large_buffers-no_runtime-sse41"}
        for pipeline in PIPELINES:
            n, bits = pipeline.dimensions, pipeline.bits
            function = LIBRARY[f"{pipeline.name}_metadata"]
            function.restype = ctypes.POINTER(Metadata)
            record = function()[0]
            self.assertEqual((record.version, record.num_arguments, record.name.decode()),
                             (0, 3, pipeline.name))
            self.assertEqual(record.target.decode(), f"x86-64-linux-{features[pipeline.set]}")
            found = [(a.name, a.kind, a.dimensions, a.code, a.bits, a.lanes, bool(a.default),
                      any(a.others)) for a in record.arguments[:3]]
            self.assertEqual(found, [(b"keyimForType", 1, n, 2, bits, 1, False, False),
                                     (b"gradTIn", 0, 0, 2, 64, 1, True, False),
                                     (b"diffusefilt%d" % n, 2, n, 2, bits, 1, False, False)])
            self.assertEqual(record.arguments[1].default[0], 0)  # +0.0

    def test_header_lists_the_pipelines(self):
        header = (ROOT / "include/diffusefilt_halide.h").read_text()
        self.assertEqual(re.findall(r"^ +X\((\w+)\)", header, re.M),
                         [pipeline.name for pipeline in PIPELINES])

    def test_document_tells_the_orders_that_the_reference_evaluates(self):
        orders = (ROOT / "tests/orders.txt").read_text()
        self.assertEqual(orders.count(";"), 16)
        self.assertIn(f"```\n{orders}```\n", (ROOT / "docs/numerics.md").read_text())


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
