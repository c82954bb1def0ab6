"""Compares two 16-bit WAV files of one shape: no sample may differ by more than so many steps.

    compare_audio.py STEPS FILE FILE
"""

import array
import struct
import sys


def read(path):
    """Channels, rate and bits of the format chunk, and the samples."""
    with open(path, "rb") as file:
        content = file.read()
    at, chunks = 12, {}
    while at + 8 <= len(content):
        name, size = struct.unpack_from("<4sI", content, at)
        chunks[name] = content[at + 8:at + 8 + size]
        at += 8 + size + size % 2
    channels, rate, _, _, bits = struct.unpack_from("<HIIHH", chunks[b"fmt "], 2)
    data = chunks[b"data"]
    shape = (channels, rate, bits, len(data))
    return shape, array.array("h", data) if bits == 16 else []


def main():
    steps = int(sys.argv[1])
    (shape, first), (other_shape, second) = read(sys.argv[2]), read(sys.argv[3])
    if shape != other_shape or not any(first):
        sys.exit(f"{sys.argv[2]} and {sys.argv[3]}: {shape} and {other_shape} can't be compared, "
                 "or are silent")
    differences = [abs(a - b) for a, b in zip(first, second)]
    differing = sum(difference > 0 for difference in differences)
    print(f"{len(first)} samples: {differing} differ, by {max(differences)} steps at most "
          f"({steps} allowed)")
    return 1 if max(differences) > steps else 0


if __name__ == "__main__":
    sys.exit(main())
