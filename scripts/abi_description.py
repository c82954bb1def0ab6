"""Turns what abidw wrote of the library and of those it is linked with (XML) into a description that
people can read and diff: the name to link against, the exported functions, the host's record, and the
virtual functions of the classes that hosts and the platform call by their order.
"""

import argparse
import subprocess
import sys
import xml.etree.ElementTree as ElementTree

RECORDS = ["audio_proxy_config_t"]
CLASSES = """audio_proxy_stream_t AudioStream TunnelStream AudioThread MixerThread AudioOutput
    OutputWrapper AudioProcesser VolumeMixer ChannelMixer Resampler HwSyncHeaderBase HwSyncHeaderV1
    HwSyncHeaderV2 HwSyncBurstObserver HwSyncPolicy HwSyncDefaultPolicy BridgeHalHidl FrameBuffer""".split()


def demangle(names):
    result = subprocess.run(["c++filt"], input="\n".join(names), capture_output=True, text=True,
                            check=True)
    return dict(zip(names, result.stdout.split("\n")))


def definition(roots, name):
    for root in roots:
        for found in root.iter("class-decl"):
            if found.get("name") == name and found.get("is-declaration-only") != "yes":
                types = {each.get("id"): each.get("name") for each in root.iter() if each.get("id")}
                return found, types
    sys.exit(f"abi: the library has no class {name}; is it built with debug information?")


def virtual_functions(declared):
    """By slot. Destructors have two, the first before all others; not every compiler tells so."""
    slots = {}
    for member in declared.iter("member-function"):
        if member.get("vtable-offset") is not None:
            slot = -1 if member.get("destructor") else int(member.get("vtable-offset"))
            slots[slot] = member.find("function-decl")
    return sorted(slots.items())


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("version")
    parser.add_argument("corpus", nargs="+", help="what abidw wrote of a library; the main one first")
    arguments = parser.parse_args()
    roots = [ElementTree.parse(path).getroot() for path in arguments.corpus]
    print("library", roots[0].get("soname"), "version", arguments.version)
    for symbol in sorted(found.get("name") for found in roots[0].find("elf-function-symbols")):
        print("exports", symbol)
    for name in RECORDS:
        record, types = definition(roots, name)
        print(f"\nrecord {name}, {int(record.get('size-in-bits')) // 8} bytes")
        for member in record.iter("data-member"):
            field = member.find("var-decl")
            print(f"  {int(member.get('layout-offset-in-bits')) // 8:3}",
                  types[field.get("type-id")], field.get("name"))
    for name in CLASSES:
        declared, types = definition(roots, name)
        bases = [types[base.get("type-id")] for base in declared.iter("base-class")]
        print(f"\nclass {name}" + (": " + ", ".join(bases) if bases else ""))
        slots = virtual_functions(declared)
        plain = demangle([function.get("mangled-name") for _, function in slots])
        for slot, function in slots:
            print(f"  {slot if slot >= 0 else '~':>3} {plain[function.get('mangled-name')]}")


if __name__ == "__main__":
    main()
