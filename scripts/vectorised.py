"""Reads `objdump -d -C` of AArch64 code: every function that matches a pattern must hold at least
so many loops with a vector multiplication, or it runs sample by sample.
"""

import argparse
import re
import sys

FUNCTION = re.compile(r"^([0-9a-f]+) <(.*)>:$")
INSTRUCTION = re.compile(r"^\s*([0-9a-f]+):\s+(\S+)\s*(.*)$")
VECTOR_MULTIPLY = re.compile(r"^(f?mul|f?mla|smull2?|smlal2?)$")


def functions(listing, pattern):
    """The instructions of each matching function, as (address, mnemonic, operands)."""
    found, current = {}, None
    for line in listing:
        header = FUNCTION.match(line)
        if header:
            current = found.setdefault(header[2], []) if re.search(pattern, header[2]) else None
        elif current is not None and (instruction := INSTRUCTION.match(line)):
            current.append((int(instruction[1], 16), instruction[2], instruction[3]))
    return found


def vector_loops(code):
    """Innermost loops, from a backward branch to its target, that multiply whole vectors."""
    loops = []
    for address, mnemonic, operands in code:
        if re.match(r"(b(\..*)?|cbn?z|tbn?z)$", mnemonic):
            target = int(re.search(r"([0-9a-f]+) <", operands)[1], 16)
            if target <= address:
                loops.append((target, address))
    inner = [(a, b) for a, b in loops
             if not any(a <= c and d <= b and (a, b) != (c, d) for c, d in loops)]
    return sum(any(a <= address <= b and VECTOR_MULTIPLY.match(mnemonic) and
                   re.match(r"v\d+\.", operands) for address, mnemonic, operands in code)
               for a, b in inner)


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("listing", help="of the disassembler")
    parser.add_argument("pattern", help="of the functions' names")
    parser.add_argument("function_count", type=int)
    parser.add_argument("loop_count", type=int, help="vector loops in each, at least")
    arguments = parser.parse_args()
    with open(arguments.listing, encoding="utf-8") as listing:
        found = functions(listing, arguments.pattern)
    wanted_functions, wanted_loops = arguments.function_count, arguments.loop_count
    faults = []
    for name, code in sorted(found.items()):
        loops = vector_loops(code)
        print(f"{loops} vector loops: {name}")
        if loops < wanted_loops:
            faults.append(f"{name}: {loops} vector loops, {wanted_loops} expected")
    if len(found) != wanted_functions:
        faults.append(f"{len(found)} functions match '{arguments.pattern}', {wanted_functions} expected")
    print(*faults, sep="\n", end="\n" if faults else "", file=sys.stderr)
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
