"""The Python module against the built plug-in ($KELVANE_PLUGIN), and the code tables of the
header and the README against the plug-in's table of failure codes."""
import os
import re
import shutil
import subprocess
import sys
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

import pytest

import kelvane

ROOT = Path(__file__).resolve().parents[2]
MODEL = ROOT / "examples" / "model"
PARTS = ["Body", "Head", "Arm_L", "Arm_R"]


@pytest.fixture(scope="module")
def plugin():
    return kelvane.Plugin()


def vertices(path):
    return [line for line in Path(path).read_text().splitlines() if line.startswith("v ")]


def test_posing_round_moves_only_the_posed_group(plugin, tmp_path):
    parts = [shutil.copy(MODEL / f"{p}.obj", tmp_path) for p in PARTS]
    assert plugin.combine(parts, tmp_path / "combined.obj") == 314 + 222 + 92 + 92
    # The "host" lifts the head (vertices 315 to 536) by 1 along y.
    lines, n = [], 0
    for line in (tmp_path / "combined.obj").read_text().splitlines():
        if line.startswith("v "):
            n += 1
            x, y, z = map(float, line.split()[1:4])
            line = f"v {x} {y + (314 < n <= 536)} {z}"
        lines.append(line)
    (tmp_path / "posed.obj").write_text("\n".join(lines) + "\n")
    (tmp_path / "out").mkdir()
    posed = plugin.posing_round(parts, tmp_path / "posed.obj", tmp_path / "out")

    assert sorted(p.name for p in posed.values()) == sorted(f"{p}.obj" for p in PARTS)
    for part, out in posed.items():
        old, new = vertices(part), vertices(out)
        assert len(old) == len(new)
        lift = 1 if Path(part).stem == "Head" else 0
        assert all(float(n.split()[2]) == pytest.approx(float(o.split()[2]) + lift, abs=1e-4) for o, n in zip(old, new))
        faces = [line for line in Path(part).read_text().splitlines() if line.startswith("f ")]
        assert [line for line in Path(out).read_text().splitlines() if line.startswith("f ")] == faces


def test_splits_report_the_files_they_wrote(plugin, tmp_path):
    plugin.combine([MODEL / "Arm_L.obj", MODEL / "Arm_R.obj"], tmp_path / "c.obj")
    assert [f.name for f in plugin.split_obj(tmp_path / "c.obj", tmp_path)] == ["92.obj", "92_copy1.obj"]
    assert [f.name for f in plugin.split_obj(tmp_path / "c.obj", tmp_path, vertex_files=True)] == ["Arm_L.Vyt", "Arm_R.Vyt"]
    assert [f.name for f in plugin.list_split(tmp_path / "c.obj", tmp_path)] == ["Arm_L.obj", "Arm_R.obj"]


@pytest.mark.parametrize("action, export, code", [
    (lambda p, d: p.split_obj(d / "missing.obj", d), "SplitOBJ", -1),
    (lambda p, d: p.append_obj(d / "missing.obj", 0, d / "c.obj"), "AppendOBJ", -1),
    (lambda p, d: p.swap_vertices(d / "v.obj", d / "missing.obj"), "SwapVertices", -20),
    (lambda p, d: p.swap_vertices_vyx(d / "missing.Vyt", d / "missing.Vyx"), "SwapVertices_Vyx", -1760),
    (lambda p, d: p.vyx_to_obj(d / "missing.Vyx", d / "m.Vyx", d / "m.obj", 1), "getFaceIDs", -1760),
])
def test_failures_raise_with_the_export_code_and_meaning(plugin, tmp_path, action, export, code):
    with pytest.raises(kelvane.KelvaneError) as caught:
        action(plugin, tmp_path)
    e = caught.value
    assert (e.export, e.code) == (export, code)
    assert e.meaning and e.meaning == kelvane.meaning(export, code) and e.meaning in str(e)


def test_call_is_the_host_call_and_calls_are_serialised(plugin):
    assert plugin.call("Version")[0] == pytest.approx(float(kelvane.__version__), abs=1e-6)
    plugin.call("ClearNameSet")
    with ThreadPoolExecutor(8) as pool:
        names = list(pool.map(lambda _: plugin.call("CheckName", "Arm")[1], range(8)))
    assert sorted(names) == sorted(["Arm"] + [f"Arm_copy{i}" for i in range(1, 8)])


def codes_in(text):
    """The failure codes a table cell or comment names: -N, and ranges -A..-B."""
    found = set()
    for a, b in re.findall(r"(?<![\w.])-(\d+)(?:\.\.-(\d+))?", text):
        found.update(range(-int(a), -int(b or a) - 1, -1))
    return found


def table_codes(names):
    return {code for (name, code) in kelvane.CODES if name in names}


def test_header_and_readme_agree_with_the_code_table():
    header = (ROOT / "include" / "kelvane" / "Kelvane4.h").read_text()
    documented = {}
    for comment, name in re.findall(r"/\*((?:(?!\*/).)*)\*/\s*KV_API float (\w+)\(", header, re.S):
        documented[name] = codes_in(comment)
        assert documented[name] == table_codes({name}), f"header, {name}"
    assert {name for name, _ in kelvane.CODES} <= documented.keys()

    covered = set()
    for row in re.findall(r"^\| (`\w+`.*?) \|.*\| ([^|]*) \|$", (ROOT / "README.md").read_text(), re.M):
        names = set(re.findall(r"`(\w+)`", row[0])) & documented.keys()
        if names:
            covered |= names
            assert codes_in(row[1]) == table_codes(names), f"README, {sorted(names)}"
    assert covered == documented.keys()


def trap_cases(folder):
    """Writes the trap meshes of tests/data/round_traps.txt into `folder`; returns the cases."""
    cases, mesh, lines = [], None, []

    def flush():
        if mesh:
            (folder / mesh).parent.mkdir(parents=True, exist_ok=True)
            (folder / mesh).write_bytes("".join(lines).encode())
    for line in (ROOT / "tests" / "data" / "round_traps.txt").read_text().splitlines():
        if line.startswith("== "):
            flush()
            mesh, lines = line[3:], []
        elif line.startswith("case "):
            parts, outcome = line[5:].split(" -> ")
            cases.append((parts.split("|"), outcome))
        elif mesh:
            lines.append(line.replace("<CR>", "\r") + "\n")
    flush()
    return cases


def posed_by_index(part, offset):
    """The part as a round must give it back when the posed mesh holds "v K 0 0" for vertex K."""
    lines, used, vertices = Path(part).read_bytes().split(b"\n"), set(), 0
    for line in lines:
        vertices += line[:2] == b"v "
        if line[:1] == b"f":
            used |= {vertices + 1 + i if i < 0 else i for i in (int(t.split(b"/")[0]) for t in line[1:].split())}
    out, v = [], 0
    for line in lines:
        if line[:2] == b"v ":
            v += 1
            if v in used:
                line = f"v {offset + v} 0 0".encode() + (b"\r" if line.endswith(b"\r") else b"")
        out.append(line)
    return b"\n".join(out)


def test_safe_round_brings_every_trap_back_exact_or_refuses_it(plugin, tmp_path):
    for parts, outcome in trap_cases(tmp_path):
        parts = [tmp_path / p for p in parts]
        out = tmp_path / "out" / outcome[:7]
        if outcome != "exact":
            with pytest.raises(kelvane.RoundError) as caught:
                plugin.combine(parts, tmp_path / "r.obj")
            assert f"{tmp_path}/{outcome[8:]}" in str(caught.value)
            assert not (tmp_path / "r.obj").exists()
            with pytest.raises(kelvane.RoundError):  # the same reason without a combine
                plugin.posing_round(parts, tmp_path / "r.obj", out)
            assert not out.exists()
            continue
        combined = tmp_path / "c.obj"
        plugin.combine(parts, combined)
        posed, k = [], 0
        for line in combined.read_text().splitlines():
            if line.startswith("v "):
                k += 1
                line = f"v {k} 0 0"
            posed.append(line)
        (tmp_path / "posed.obj").write_text("\n".join(posed) + "\n")
        back = plugin.split_back(tmp_path / "posed.obj", str(combined) + ".round", out)
        again = plugin.posing_round(parts, combined, out)  # unposed: every part as it was, fresh names
        offset = 0
        for part in parts:
            assert back[part] == out / part.name
            assert back[part].read_bytes() == posed_by_index(part, offset), part
            assert again[part].name.endswith("_copy1.obj") and again[part].read_bytes() == part.read_bytes()
            offset += sum(1 for line in part.read_bytes().split(b"\n") if line[:2] == b"v ")


def test_check_and_round_files_agree_with_the_cli(plugin, tmp_path):
    cli = os.environ.get("KELVANE_BIN")
    if not cli:
        pytest.skip("KELVANE_BIN names no kelvane program")
    trap_cases(tmp_path)
    meshes = sorted(str(p) for p in tmp_path.rglob("*.obj"))
    done = subprocess.run([cli, "check", *meshes], capture_output=True, text=True)
    assert done.returncode == 1 and done.stdout.splitlines() == kelvane.check(meshes)
    parts = [str(tmp_path / p) for p in ("unused.obj", "relative.obj", "crlf.obj")]
    subprocess.run([cli, "combine", *parts, "--out", str(tmp_path / "cli.obj")], check=True, capture_output=True)
    plugin.combine(parts, tmp_path / "py.obj")
    assert (tmp_path / "cli.obj").read_bytes() == (tmp_path / "py.obj").read_bytes()
    assert (tmp_path / "cli.obj.round").read_text() == (tmp_path / "py.obj.round").read_text()
    # Each reads the other's round file.
    subprocess.run([cli, "split-back", str(tmp_path / "cli.obj"), "--round", str(tmp_path / "py.obj.round"),
                    "--out", str(tmp_path / "a")], check=True, capture_output=True)
    plugin.split_back(tmp_path / "py.obj", tmp_path / "cli.obj.round", tmp_path / "b")
    for part in parts:
        name = Path(part).name
        assert (tmp_path / "a" / name).read_bytes() == (tmp_path / "b" / name).read_bytes() == Path(part).read_bytes()


@pytest.mark.parametrize("args", [
    ["--version"], ["call", "Version"], ["call", "SetPrjModfier", "--number", "nan"],
    ["call", "SplitOBJ", "--text", "missing.obj", "--mem1", "out/"], ["call", "FileDelete", "--null-text"],
    ["call", "CheckName", "--text", "Arm", "--mem1", "x"], ["call", "NoSuchExport"]])
def test_python_m_kelvane_answers_as_the_cli(args, tmp_path):
    cli = os.environ.get("KELVANE_BIN")
    if not cli:
        pytest.skip("KELVANE_BIN names no kelvane program")
    env = {**os.environ, "PYTHONPATH": str(Path(kelvane.__file__).parents[1])}
    run = [subprocess.run(c + args, capture_output=True, text=True, cwd=tmp_path, env=env)
           for c in ([cli], [sys.executable, "-m", "kelvane"])]
    assert (run[1].returncode, run[1].stdout) == (run[0].returncode, run[0].stdout)
