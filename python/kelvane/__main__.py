"""python -m kelvane: the emulator's subcommands that need no C++ tool, on the module's plug-in.

    python -m kelvane call Version                 Version -> 4.05
    python -m kelvane check Body.obj Head.obj      what would keep the parts from coming back
    python -m kelvane combine Body.obj Head.obj --out combined.obj
    python -m kelvane split-back posed.obj --round combined.obj.round --out posed/

Results, messages and exit statuses are those of `kelvane`: a call's failure code comes with its
meaning, a refused round names every refused part with its cause and writes nothing.
"""
import argparse
import struct
import sys

from . import Plugin, RoundError, __version__, check, meaning


def _float_text(r):
    """The result as `kelvane` prints it: a whole number plainly, else the shortest text that
    reads back as the same 32-bit float."""
    if r == r and abs(r) < 1e16 and r == int(r):
        return f"{r:.0f}"
    for digits in range(1, 10):
        text = f"{r:.{digits}g}"
        if struct.unpack("f", struct.pack("f", float(text)))[0] == r:
            return text
    return repr(r)


def _call(plugin, a):
    try:
        result, after = plugin.call(a.name, None if a.null_text else a.text, a.number, a.mem1)
    except AttributeError:
        print(f"kelvane: the plug-in has no export named {a.name}", file=sys.stderr)
        return 2
    why = meaning(a.name, result) if result < 0 else ""
    print(f"{a.name} -> {_float_text(result)}" + (f" ({why})" if why else ""))
    if after != a.mem1:
        print(f"  memBlock1: {after}")
    return 0


def _refused(e, what):
    for part, cause in e.refused:
        print(f"{part}: {cause}", file=sys.stderr)
    print(f"{what}: refused, nothing written", file=sys.stderr)
    return 1


def _combine(plugin, a):
    try:
        vertices = plugin.combine(a.parts, a.out)
    except RoundError as e:
        return _refused(e, "combine")
    print(f"combine: {len(a.parts)} parts, {vertices} vertices -> {a.out}")
    return 0


def _split_back(plugin, a):
    try:
        posed = plugin.split_back(a.posed, a.round, a.out)
    except RoundError as e:
        return _refused(e, "split-back")
    for part, target in posed.items():
        print(f"{part} -> {target}")
    return 0


def main(argv=None):
    parser = argparse.ArgumentParser(prog="python -m kelvane",
                                     description="Load the Kelvane4 plug-in and call its exports as the host does")
    parser.add_argument("--version", action="version", version=f"kelvane {__version__}")
    parser.add_argument("--plugin", help="plug-in library to load (default: the module's own)")
    sub = parser.add_subparsers(dest="command", required=True)
    call = sub.add_parser("call", help="call one export and print its result and memBlock1")
    call.add_argument("name", help="export to call")
    call.add_argument("--text", default="", help="the text argument")
    call.add_argument("--number", type=float, default=0.0, help="the number argument (any double, nan included)")
    call.add_argument("--mem1", default="", help="initial content of memBlock1")
    call.add_argument("--null-text", action="store_true", help="pass a null text pointer")
    chk = sub.add_parser("check", help="list what would keep part meshes from coming back from a round")
    chk.add_argument("meshes", nargs="+")
    comb = sub.add_parser("combine", help="combine part meshes for posing, each checked first")
    comb.add_argument("parts", nargs="+")
    comb.add_argument("--out", required=True, help="the combined OBJ file to write")
    back = sub.add_parser("split-back", help="give every part of a combine its posed positions")
    back.add_argument("posed", help="the posed combined OBJ file")
    back.add_argument("--round", required=True, help="the round file written by combine")
    back.add_argument("--out", required=True, help="folder for the posed parts")
    a = parser.parse_args(argv)

    if a.command == "check":
        found = check(a.meshes)
        for line in found:
            print(line)
        return 1 if found else 0
    try:
        plugin = Plugin(a.plugin)
    except OSError as e:
        print(f"kelvane: {e}", file=sys.stderr)
        return 2
    return {"call": _call, "combine": _combine, "split-back": _split_back}[a.command](plugin, a)


if __name__ == "__main__":
    sys.exit(main())
