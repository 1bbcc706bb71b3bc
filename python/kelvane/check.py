"""Part meshes as a posing round reads them, and what would keep them from coming back right.

Lines are read as the plug-in reads them: "v " lines are vertices, lines starting with "f" faces
(position indices before any "/", read until one is no integer), "g" group lines. The causes are
those of `kelvane check`, word for word."""
import os
import re

REWRITE, REST, REFUSE = "rewrite", "rest", "refuse"
_INT = re.compile(r"[+-]?\d+")
_DEVICES = {"CON", "PRN", "AUX", "NUL"} | {f"{d}{i}" for d in ("COM", "LPT") for i in range(1, 10)}


def group_name(path):
    """The group AppendOBJ gives a part: its file name after the last / or \\, before the last dot."""
    name = re.split(r"[/\\]", os.fsdecode(path))[-1]
    return name.rsplit(".", 1)[0] if "." in name else name


def _lines(data):
    lines = data.split(b"\n")
    if lines and lines[-1] == b"":
        lines.pop()
    return lines


def face_indices(line, vertices):
    """(raw, resolved) position indices of a face line; relative ones resolved against `vertices`."""
    text = line[2:]
    slashed = b"/" in text
    out = []
    for token in text.split():
        if slashed:
            token = token.split(b"/")[0]
            if not token:
                continue
        m = _INT.match(token.decode("latin-1"))
        if not m or not -2**31 <= int(m.group()) < 2**31:
            break
        raw = int(m.group())
        out.append((raw, vertices + 1 + raw if raw < 0 else raw))
        if m.end() != len(token):
            break
    return out


class PartScan:
    """One part: vertex and face counts, the vertices its faces use, and what is odd about it."""

    def __init__(self, path):
        self.path, self.name = os.fsdecode(path), group_name(path)
        self.readable = False
        self.vertices = self.faces = self.cr_lines = self.relative = self.zero = self.beyond = 0
        self.faces_before_group, self.has_group, self.used = 0, False, []
        try:
            with open(path, "rb") as f:
                lines = _lines(f.read())
        except OSError:
            return
        self.readable = True
        self.vertices = sum(1 for line in lines if line[:2] == b"v ")
        self.used = [False] * self.vertices
        seen = 0
        for line in lines:
            self.cr_lines += line.endswith(b"\r")
            if line[:2] == b"v ":
                seen += 1
            elif line[:1] == b"g":
                self.has_group = True
            elif line[:1] == b"f":
                self.faces += 1
                self.faces_before_group += not self.has_group
                for raw, at in face_indices(line, seen):
                    self.zero += raw == 0
                    self.relative += raw < 0
                    if raw != 0 and not 1 <= at <= self.vertices:
                        self.beyond += 1
                    elif raw != 0:
                        self.used[at - 1] = True

    @property
    def unused(self):
        return self.used.count(False)


def _refused_name(n):
    if n in ("", ".", "..") or len(n.encode()) >= 128 or n[-1] in ". ":
        return True
    if any(ord(c) < 32 or ord(c) == 127 or c in '<>:"|?*' for c in n):
        return True
    return n.split(".")[0].upper() in _DEVICES


def problems(scans, i):
    """[(cause, remedy)] of scans[i] in a round of all of `scans`."""
    s = scans[i]
    if not s.readable:
        return [("cannot be read", REFUSE)]
    p = []
    if s.faces == 0:
        p.append(("no faces", REFUSE))
    if s.faces and not s.has_group:
        p.append(('no "g" line', REWRITE))
    elif s.faces_before_group:
        p.append(('faces before its first "g" line', REWRITE))
    if s.relative:
        p.append(("relative face indices", REWRITE))
    if s.zero:
        p.append(("zero face indices", REFUSE))
    if s.beyond:
        p.append((f"face indices beyond its {s.vertices} vertices", REFUSE))
    if s.faces and s.unused:
        p.append((f"{s.unused} of {s.vertices} vertices no face uses", REST))
    if s.cr_lines:
        p.append(("CR line ends", REWRITE))
    other = next((o for j, o in enumerate(scans) if j != i and o.name == s.name), None)
    if other is not None:
        p.append((f"stem {s.name} shared with {other.path}", REFUSE))
    if " " in s.name:
        p.append((f"name {s.name} is read as several groups", REFUSE))
    elif _refused_name(s.name):
        p.append((f"name {s.name} is refused by the splits", REFUSE))
    return p


def check(*paths):
    """What would keep the meshes from coming back from a posing round together: a list of
    "MESH: cause" texts, empty when every mesh is safe. Takes paths or one list of them."""
    if len(paths) == 1 and not isinstance(paths[0], (str, bytes, os.PathLike)):
        paths = tuple(paths[0])
    scans = [PartScan(p) for p in paths]
    return [f"{s.path}: {cause}" for i, s in enumerate(scans) for cause, _ in problems(scans, i)]


def rewritten(scan):
    """The part as bytes the plug-in reads right: line feeds only, absolute indices, a "g" line first."""
    with open(scan.path, "rb") as f:
        lines = _lines(f.read())
    out = [b"g " + os.fsencode(scan.name)] if scan.faces_before_group else []
    counts = [0, 0, 0]
    for line in lines:
        line = line[:-1] if line.endswith(b"\r") else line
        if line[:2] == b"v ":
            counts[0] += 1
        elif line[:2] in (b"vt", b"vn"):
            counts[1 if line[:2] == b"vt" else 2] += 1
        if line[:1] == b"f" and b"-" in line:
            tokens = []
            for token in line[1:].split():
                parts = token.split(b"/")
                for k, part in enumerate(parts[:3]):
                    if re.fullmatch(rb"-\d+", part):
                        parts[k] = str(counts[k] + 1 + int(part)).encode()
                tokens.append(b"/".join(parts))
            line = b" ".join([b"f"] + tokens)
        out.append(line)
    return b"\n".join(out) + b"\n"
