"""The safe posing round, as `kelvane combine` and `kelvane split-back` do it, and its round file:

    # comments
    kelvane-round 1
    part <vertex offset> <vertices> <first face> <end face> <group> <path>
"""
import os
import shutil
import tempfile
from pathlib import Path

from .check import REFUSE, REWRITE, PartScan, problems, rewritten


class RoundPart:
    def __init__(self, offset, vertices, first_face, end_face, name, path):
        self.offset, self.vertices, self.first_face, self.end_face = offset, vertices, first_face, end_face
        self.name, self.path = name, os.fsdecode(path)


def write_round(path, parts):
    lines = ["# kelvane posing round: the parts in the order they were combined",
             "# part <vertex offset> <vertices> <first face> <end face> <group> <path>", "kelvane-round 1"]
    lines += [f"part {p.offset} {p.vertices} {p.first_face} {p.end_face} {p.name} {p.path}" for p in parts]
    with open(path, "xb") as f:
        f.write(("\n".join(lines) + "\n").encode())


def read_round(path):
    """The parts of a round file; ValueError when it is none."""
    parts, header = [], False
    for n, line in enumerate(Path(path).read_bytes().decode().split("\n"), 1):
        line = line.rstrip("\r")
        if not line or line.startswith("#"):
            continue
        if not header:
            if line.split() != ["kelvane-round", "1"]:
                break
            header = True
            continue
        words = line.split(" ", 6)
        try:
            if words[0] != "part" or len(words) != 7 or not words[6]:
                raise ValueError
            p = RoundPart(*map(int, words[1:5]), words[5], words[6])
        except ValueError:
            raise ValueError(f"{path}:{n}: not a part line") from None
        parts.append(p)
    if not header or not parts:
        raise ValueError(f'{path}: not a round file (no "kelvane-round 1" line and parts)')
    return parts


def combine(plugin, parts, combined, error):
    """Checks, rewrites where needed and appends `parts` into `combined`; writes combined + ".round"."""
    combined = Path(combined)
    round_file = Path(os.fsdecode(combined) + ".round")
    for f in (combined, round_file):
        if f.exists():
            raise error(f, "exists: a round never appends to a finished file")
    scans = [PartScan(p) for p in parts]
    found = [problems(scans, i) for i in range(len(scans))]
    refused = [(s.path, cause) for s, p in zip(scans, found) for cause, remedy in p if remedy == REFUSE]
    if refused:
        raise error(*refused[0], refused=refused)
    records, offset, face = [], 0, 0
    with tempfile.TemporaryDirectory(dir=combined.resolve().parent, prefix=".kelvane-round-") as work:
        plugin._checked("GroupListClear")
        for s, p in zip(scans, found):
            source = s.path
            if any(remedy == REWRITE for _, remedy in p):
                source = os.path.join(work, s.name + ".obj")
                Path(source).write_bytes(rewritten(s))
            got = plugin.append_obj(source, offset, combined)
            if got != s.vertices:
                raise error(s.path, f"AppendOBJ appended {got} vertices, the part has {s.vertices}")
            records.append(RoundPart(offset, s.vertices, face, face + s.faces, s.name, os.path.abspath(s.path)))
            offset, face = offset + s.vertices, face + s.faces
    write_round(round_file, records)
    return offset


def _posed_part(scan, posed):
    """The part's bytes with its used vertex lines taken, in order, from `posed`."""
    data = Path(scan.path).read_bytes()
    lines = data.split(b"\n")
    vertex, nxt = 0, 0
    for i, line in enumerate(lines):
        if line[:2] == b"v ":
            if scan.used[vertex]:
                lines[i] = posed[nxt].rstrip(b"\r") + (b"\r" if line.endswith(b"\r") else b"")
                nxt += 1
            vertex += 1
    return b"\n".join(lines)


def _fresh(out_dir, name):
    stem, dot, ext = name.rpartition(".")
    stem, ext = (stem, dot + ext) if dot else (name, "")
    target, n = out_dir / name, 0
    while target.exists():
        n += 1
        target = out_dir / f"{stem}_copy{n}{ext}"
    return target


def split_back(plugin, posed, records, out_dir, error):
    """Splits `posed` by the round's polygroup list and writes every part into `out_dir`;
    {part path: written file}. Refuses, writing nothing, when a part cannot come back right."""
    scans = [PartScan(r.path) for r in records]
    for r, s in zip(records, scans):
        if not s.readable or s.vertices != r.vertices or s.faces != r.end_face - r.first_face:
            raise error(r.path, f"not the part that was combined ({r.vertices} vertices, "
                                f"{r.end_face - r.first_face} faces)")
    vertices = max(r.offset + r.vertices for r in records)
    faces = max(r.end_face for r in records)
    try:
        lines = Path(posed).read_bytes().split(b"\n")
    except OSError:
        raise error(posed, "cannot be read") from None
    pv = sum(1 for line in lines if line[:2] == b"v ")
    pf = sum(1 for line in lines if line[:1] == b"f")
    if (pv, pf) != (vertices, faces):
        raise error(posed, f"{pv} vertices and {pf} faces, the round combined {vertices} and {faces}")
    out_dir = Path(out_dir)
    out_dir.mkdir(parents=True, exist_ok=True)
    results = []
    with tempfile.TemporaryDirectory(dir=out_dir, prefix=".kelvane-round-") as scratch:
        plugin._checked("GroupListClear")
        for r in records:
            plugin._checked("GroupListAdd", r.name, r.end_face - r.first_face)
        plugin._checked("ListSplitOBJtoOBJ", posed, mem1=os.path.join(scratch, ""))
        for r, s in zip(records, scans):
            split = Path(scratch, r.name + ".obj")
            got = [line for line in split.read_bytes().split(b"\n") if line[:2] == b"v "] if split.exists() else []
            want = s.vertices - s.unused
            if len(got) != want:
                raise error(r.path, f"the split gave {len(got)} vertices, its faces use {want}")
            results.append(_posed_part(s, got))
    written = {}
    for r, data in zip(records, results):
        target = _fresh(out_dir, Path(r.path).name)
        with open(target, "xb") as f:
            f.write(data)
        written[Path(r.path)] = target
    return written


def round_records(parts):
    """The round's records of `parts` combined in this order, as combine writes them."""
    scans = [PartScan(p) for p in parts]
    records, offset, face = [], 0, 0
    for s in scans:
        records.append(RoundPart(offset, s.vertices, face, face + s.faces, s.name, s.path))
        offset, face = offset + s.vertices, face + s.faces
    return scans, records


__all__ = ["RoundPart", "read_round", "write_round", "combine", "split_back", "round_records", "problems"]
