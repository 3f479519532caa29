#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Writes, in assembly, loops of the operations that the definition has for one vector, on
registers, in many orders each.

    makeLimitLoops.py OUTPUT ORDERS

No operation waits for another, but for fused steps, which add to what a register holds: what such a
loop takes is what the processor's units and its decoder need, and no program that keeps to the
definition (docs/numerics.md) is faster. A loop is

    void loop(int64_t count, float (*floorf)(float));

and runs `count` times, at least once; limitLoops_PIPELINE is the table of the orders of one. The
pipelines whose exponential is libm's have no loop but zeros: their limit is the calls.
"""
import itertools
import random
import sys

NEIGHBOURS = {"2_minimal": 4, "2_maximal": 8, "3_minimal": 6, "3_maximal": 26}
GROUPS = {"2_minimal": 1, "2_maximal": 2, "3_minimal": 1, "3_maximal": 3}  # of fluxes, by weight
# Vector registers; 0 is the argument of floorf. Integers stay apart: as floats they are so small
# that to add to them takes longer.
FLOATS, INTEGERS, CONSTANTS = range(1, 8), range(8, 10), range(10, 16)
OF_INTEGERS = {"cvttps2dq", "pcmpgtd", "pand", "pandn", "por", "pminsd", "pslld", "paddd",
               "extract", "insert", "andn"}


def multiply_add(fuses, count):
    return ["fma"] * count if fuses else ["mul", "add"] * count


def exponential(set_):
    """exp(-s) from s, with its integer side; `avx` takes integers by halves."""
    fuses, halves = set_ == "avx2", 2 if set_ == "avx" else 1
    least = ["pcmpgtd", "pand", "pandn", "por"] if set_ == "none" else ["pminsd"]
    reduced = ["mul", *(["call"] * 4 if set_ == "none" else ["round"])] + multiply_add(fuses, 2)
    polynomial = ["mul"] + multiply_add(fuses, 7) + ([] if fuses else ["mul"])
    integers = (["cvttps2dq"] + least + ["pslld", "paddd", "pcmpgtd"]) * halves
    return (reduced + polynomial + integers + ["mul", "andn"]
            + (["extract"] + ["insert"] * 2 if halves == 2 else []))


def operations(shape, conduction, set_):
    """Of one vector, neighbour by neighbour, and then those of the sum."""
    fuses = set_ == "avx2"
    if conduction == "quadratic":
        conductance = multiply_add(fuses, 1) + ["div"]
    else:
        conductance = ["mul"] + exponential(set_)
    n, groups = NEIGHBOURS[shape], GROUPS[shape]
    of_one = ["sub", "mul"] + conductance
    if fuses:  # the first flux of a group is a product; the others, and the groups, are added
        fluxes = [["mul"]] * groups + [["fma"]] * (n - groups)
        weights = ["fma"] * (groups - 1)
    else:
        fluxes = [["mul"]] + [["mul", "add"]] * (n - 1)
        weights = ["mul"] * (groups - 1)
    return [of_one + flux for flux in fluxes], weights + multiply_add(fuses, 1)


def ordered(neighbours, last, number):
    """The operations in an order of their own for each number: 0 is that of the definition; with
    odd numbers the divisions stand at equal distances among the rest, with even ones anywhere."""
    operations_ = [*itertools.chain(*neighbours, last)]
    chosen = random.Random(number)
    if number == 0:
        return operations_
    chosen.shuffle(operations_)
    if number % 2:
        rest = [operation for operation in operations_ if operation != "div"]
        for i in range(divisions := len(operations_) - len(rest)):
            rest.insert(round(i * len(operations_) / divisions), "div")
        return rest
    return operations_


def text_of(operation, result, a, b, suffix, set_):
    """The instructions of an operation on registers a and b. Without AVX an instruction overwrites
    an operand, and a copy goes before it."""
    if operation == "call":
        return [f"movaps %xmm{a}, %xmm0", "call *%rbx"]
    packed = {"sub", "mul", "add", "div"}
    name = operation + suffix if operation in packed else {"andn": "andnps"}.get(
        operation, operation)
    if set_ == "none":
        if operation == "cvttps2dq":
            return [f"cvttps2dq %xmm{a}, %xmm{result}"]
        source = "$23" if operation == "pslld" else f"%xmm{a}"
        return [f"movaps %xmm{b}, %xmm{result}", f"{name} {source}, %xmm{result}"]
    if operation == "extract":
        return [f"vextractf128 $1, %ymm{a}, %xmm{result}"]
    if operation == "insert":
        return [f"vinsertf128 $1, %xmm{a}, %ymm{b}, %ymm{result}"]
    if operation == "fma":
        return [f"vfmadd231{suffix} %ymm{a}, %ymm{b}, %ymm{result}"]
    if operation == "round":
        return [f"vroundps $9, %ymm{a}, %ymm{result}"]
    wide = "ymm" if operation in packed | {"andn"} or set_ == "avx2" else "xmm"
    if operation == "cvttps2dq":
        return [f"v{name} %{wide}{a}, %{wide}{result}"]
    first = "$23" if operation == "pslld" else f"%{wide}{a}"
    return [f"v{name} {first}, %{wide}{b}, %{wide}{result}"]


def body(order, suffix, set_):
    """A result goes to a register of its own; a fused step adds to one of the last results."""
    floats, integers, recent = itertools.cycle(FLOATS), itertools.cycle(INTEGERS), [*FLOATS][1:]
    operands = itertools.cycle(itertools.permutations(CONSTANTS, 2))
    for operation in order:
        if operation == "fma":
            result = recent[0]
        else:
            result = next(integers if operation in OF_INTEGERS else floats)
        if result in FLOATS:
            recent = [register for register in recent if register != result][-5:] + [result]
        yield from text_of(operation, result, *next(operands), suffix, set_)


def loop(name, order, suffix, set_):
    width = "x" if set_ == "none" else "y"
    move = "movups" if set_ == "none" else "vmovups"
    lines = [f"{name}:", "push %rbx", "push %rbp", "sub $8, %rsp", "mov %rdi, %rbp",
             "mov %rsi, %rbx", "lea constants_" + suffix + "(%rip), %rax",
             *(f"{move} (%rax), %{width}mm{register}" for register in range(16)), ".p2align 5",
             "1:", *body(order, suffix, set_), "dec %rbp", "jnz 1b",
             *([] if set_ == "none" else ["vzeroupper"]), "add $8, %rsp", "pop %rbp", "pop %rbx",
             "ret"]
    return "\n".join(lines)


def main(output, orders):
    parts = [".text"]
    tables = ['.section .data.rel.ro,"aw"', ".p2align 3"]
    for shape, conduction, bits, set_ in itertools.product(
            NEIGHBOURS, ("quadratic", "exponential"), (32, 64), ("none", "avx", "avx2")):
        name = f"diffusefilt{shape}_{conduction}_float{bits}_{set_}"
        tables += [f".globl limitLoops_{name}", f"limitLoops_{name}:"]
        if (conduction, bits) == ("exponential", 64):
            tables += [".quad 0"] * orders
            continue
        found = operations(shape, conduction, set_)
        suffix = "ps" if bits == 32 else "pd"
        parts += [loop(f"{name}.{k}", ordered(*found, k), suffix, set_) for k in range(orders)]
        tables += [f".quad {name}.{k}" for k in range(orders)]
    constants = [".section .rodata", ".p2align 5", "constants_ps:", ".fill 8, 4, 0x3fc00000",
                 "constants_pd:", ".fill 4, 8, 0x3ff8000000000000"]
    with open(output, "w", encoding="ascii") as file:
        print(*parts, *tables, *constants, '.section .note.GNU-stack,"",@progbits', sep="\n",
              file=file)


if __name__ == "__main__":
    main(sys.argv[1], int(sys.argv[2]))
