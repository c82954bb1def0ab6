"""Compares two 16-bit WAV files of one shape: no sample may differ by more than so many steps."""

import argparse
import sys

import numpy
import soundfile


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("steps", type=int)
    parser.add_argument("files", nargs=2)
    arguments = parser.parse_args()
    infos = [soundfile.info(path) for path in arguments.files]
    shapes = [(info.channels, info.samplerate, info.subtype, info.frames) for info in infos]
    first, second = (soundfile.read(path, dtype="int16")[0] for path in arguments.files)
    if shapes[0] != shapes[1] or shapes[0][2] != "PCM_16" or not first.any():
        sys.exit(f"{' and '.join(arguments.files)}: {shapes[0]} and {shapes[1]} can't be compared, "
                 "or are silent")
    differences = numpy.abs(first.astype(int) - second)
    print(f"{first.size} samples: {numpy.count_nonzero(differences)} differ, by {differences.max()} "
          f"steps at most ({arguments.steps} allowed)")
    return 1 if differences.max() > arguments.steps else 0


if __name__ == "__main__":
    sys.exit(main())
