"""Kelvane for pipeline scripts: loads the Kelvane4 plug-in with ctypes and calls its exports
exactly as the host does (text, number, memBlock1, memBlock2; a float result).

The plug-in keeps its state (the polygroup list, the face runs, the TPose list, ...) in the
process, shared by every Plugin object. The module therefore serialises all calls with one
lock: threads may share it, but their calls never interleave, and a multi-call operation such
as posing_round runs as one unit.

    import kelvane
    plugin = kelvane.Plugin()                       # bundled, $KELVANE_PLUGIN, the build folder, or installed
    total = plugin.combine(["Body.obj", "Head.obj"], "combined.obj")
    # ... the host poses combined.obj into posed.obj ...
    posed = plugin.posing_round(["Body.obj", "Head.obj"], "posed.obj", "out")
"""
import ctypes
import os
import re
import sys
import threading
from pathlib import Path

from . import round as _round
from .check import check

__all__ = ["Plugin", "KelvaneError", "RoundError", "meaning", "check", "__version__"]

_LOCK = threading.RLock()
_HERE = Path(__file__).resolve().parent
_SOURCE = _HERE.parent.parent
# The table of failure meanings: installed beside the module, or in the source tree.
_CODES_FILES = (_HERE / "codes.def", _SOURCE / "include" / "kelvane" / "codes.def")
# The plug-in a wheel carries inside the package.
_BUNDLED = _HERE / "lib" / {"win32": "Kelvane4.dll", "darwin": "libKelvane4.dylib"}.get(sys.platform, "libKelvane4.so")


def _version():
    """The project's version: written beside the installed module, else the checkout's one line."""
    try:
        from ._version import version
        return version
    except ImportError:
        found = re.search(r"project\(Kelvane VERSION ([0-9.]+)", (_SOURCE / "CMakeLists.txt").read_text())
        return found.group(1)


__version__ = _version()


def _load_codes():
    """{(export, code): meaning} from the plug-in's table of failure codes."""
    for path in _CODES_FILES:
        if path.is_file():
            rows = re.findall(r'^KV_CODE\((\w+), (-?\d+), "([^"]*)"\)', path.read_text(), re.M)
            return {(name, int(code)): text for name, code, text in rows}
    return {}


CODES = _load_codes()


def meaning(export, code):
    """The meaning of failure code `code` of `export`, or "" when the table has none."""
    return CODES.get((export, int(code)), "") if float(code).is_integer() else ""


class KelvaneError(Exception):
    """An export failed: `export` returned `code`, which means `meaning`."""

    def __init__(self, export, code, meaning_text=None):
        self.export = export
        self.code = int(code) if float(code).is_integer() else code
        self.meaning = meaning(export, code) if meaning_text is None else meaning_text
        text = f"{export} -> {code:g}"
        super().__init__(f"{text} ({self.meaning})" if self.meaning else text)


class RoundError(KelvaneError):
    """A posing round refused or could not bring back a part: `part` and `cause` (the first of
    `refused`, every (part, cause) when several parts were refused)."""

    def __init__(self, part, cause, refused=None):
        Exception.__init__(self, f"{os.fsdecode(part)}: {cause}")
        self.export, self.code, self.meaning = None, None, cause
        self.part, self.cause = os.fsdecode(part), cause
        self.refused = refused or [(self.part, cause)]


def _path(p):
    return None if p is None else os.fsencode(p)


def _default_plugin():
    env = os.environ.get("KELVANE_PLUGIN")
    if env:
        return env
    if _BUNDLED.is_file():
        return str(_BUNDLED)
    built = _SOURCE / "build" / "libKelvane4.so"
    return str(built) if built.exists() else "libKelvane4.so.4"  # else the system's library path


class Plugin:
    """The loaded plug-in: `path`, else $KELVANE_PLUGIN, else the one inside the package (a wheel's),
    else the build folder or installed location."""

    def __init__(self, path=None):
        self.path = os.fspath(path) if path is not None else _default_plugin()
        self._lib = ctypes.CDLL(self.path)

    def call(self, name, text=None, number=0.0, mem1=None, size=1 << 20):
        """Calls export `name` as the host does; returns (result, memBlock1's text afterwards).
        memBlock1 is a block of `size` bytes that starts with `mem1`."""
        fn = getattr(self._lib, name)
        fn.restype = ctypes.c_float
        fn.argtypes = [ctypes.c_char_p, ctypes.c_double, ctypes.c_char_p, ctypes.c_char_p]
        initial = _path(mem1) or b""
        if len(initial) >= size:
            raise ValueError(f"mem1 does not fit a block of {size} bytes")
        block1, block2 = ctypes.create_string_buffer(initial, size), ctypes.create_string_buffer(16)
        with _LOCK:
            result = fn(_path(text), float(number), block1, block2)
        return result, os.fsdecode(block1.value)

    def _checked(self, name, text=None, number=0.0, mem1=None):
        result, out = self.call(name, text, number, mem1)
        if result < 0:
            raise KelvaneError(name, result)
        return result, out

    def _new_files(self, name, source, out_dir):
        """Runs a split of `source` into `out_dir`; the files it wrote, sorted."""
        out_dir = Path(out_dir)
        with _LOCK:
            before = set(out_dir.iterdir())
            self._checked(name, source, mem1=os.path.join(os.fsdecode(out_dir), ""))
            written = sorted(set(out_dir.iterdir()) - before)
        if not written:
            cause = "the polygroup list is empty" if name.startswith("List") else 'the mesh has no "g" line'
            raise RoundError(source, f"{name} wrote no file: {cause}")
        return written

    def append_obj(self, part, offset, combined):
        """Appends part mesh `part` to `combined` as one group, its faces shifted by `offset`
        vertices; returns the number of vertices appended."""
        return int(self._checked("AppendOBJ", part, offset, combined)[0])

    def combine(self, parts, combined):
        """The safe round's first half, as `kelvane combine`: checks every part (raises RoundError
        for one that cannot come back), appends the parts to the new file `combined` (those with CR
        line ends, relative indices or faces outside a "g" line from a rewritten copy) and writes
        the round file `combined` + ".round". Returns the combined vertex count."""
        with _LOCK:
            return _round.combine(self, parts, combined, RoundError)

    def split_back(self, posed, round_file, out_dir):
        """The safe round's second half, as `kelvane split-back`: {part: posed part in out_dir},
        every part whole, or RoundError and nothing written."""
        try:
            records = _round.read_round(round_file)
        except (OSError, ValueError) as e:
            raise RoundError(round_file, str(e)) from None
        with _LOCK:
            return _round.split_back(self, posed, records, out_dir, RoundError)

    def split_obj(self, posed, out_dir, vertex_files=False):
        """Splits `posed` by its groups into `out_dir`: vertex-only OBJ files named by vertex count,
        or .Vyt vertex files named by group; returns the files written."""
        return self._new_files("SplitOBJtoVyx" if vertex_files else "SplitOBJ", posed, out_dir)

    def list_split(self, combined, out_dir, vertex_files=False):
        """Splits `combined` by the polygroup list's face ranges into `<group>.obj` (or .Vyt) files."""
        return self._new_files("ListSplitOBJtoVyx" if vertex_files else "ListSplitOBJtoOBJ", combined, out_dir)

    def swap_vertices(self, posed_part, part_mesh):
        """Appends the other lines of `part_mesh` to vertex-only file `posed_part`, making it the posed part."""
        self._checked("SwapVertices", posed_part, mem1=part_mesh)
        return Path(posed_part)

    def swap_vertices_vyx(self, vertex_file, vyx):
        """Puts the positions of .Vyt file `vertex_file` into Vyx mesh `vyx`."""
        self._checked("SwapVertices_Vyx", vertex_file, mem1=vyx)
        return Path(vyx)

    def vyx_to_obj(self, base, mesh, obj, level):
        """Converts Vyx mesh `mesh` to OBJ file `obj`, its faces in the runs of `base` subdivided
        `level` times; returns the number of face runs."""
        with _LOCK:
            runs = int(self._checked("getFaceIDs", base, level)[0])
            result, _ = self._checked("vyxtoOBJ", mesh, mem1=obj)
            if result > 0:  # the tag of a block found out of place
                raise KelvaneError("vyxtoOBJ", result, f"a block with tag {result:g} out of place")
            return runs

    def posing_round(self, parts, posed_combined, out_dir):
        """The plug-in's half of a posing round on `parts`, combined in this order (by combine):
        `posed_combined` is split back into `out_dir` as split_back does. Returns {part: posed
        part file}; raises RoundError naming the part and cause when one cannot come back right."""
        scans, records = _round.round_records(parts)
        refused = [(s.path, c) for i, s in enumerate(scans) for c, r in _round.problems(scans, i) if r == "refuse"]
        if refused:
            raise RoundError(*refused[0], refused=refused)
        with _LOCK:
            return _round.split_back(self, posed_combined, records, out_dir, RoundError)
