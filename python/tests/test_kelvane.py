"""The Python module against the built plug-in ($KELVANE_PLUGIN), and the code tables of the
header and the README against the plug-in's table of failure codes."""
import re
import shutil
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
    assert plugin.call("Version")[0] == pytest.approx(4.05)
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
