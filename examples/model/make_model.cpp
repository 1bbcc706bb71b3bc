// Writes the sample model of the posing round: a body, a head and two arms, each an OBJ part
// with positions, UVs, normals and faces in the a/b/c form (quads, and triangles at the
// caps and poles). Run once from this folder; its output is committed beside it:
//
//   c++ -std=c++20 -O2 make_model.cpp -o /tmp/make_model && /tmp/make_model
#include <array>
#include <cmath>
#include <cstdio>
#include <numbers>
#include <string>
#include <vector>

namespace {

struct Mesh {
    std::string name, comment;
    std::vector<std::array<double, 3>> v, vn;
    std::vector<std::array<double, 2>> vt;
    std::vector<std::vector<std::array<int, 3>>> f;  // corners: 1-based v, vt, vn
};

constexpr double kPi = std::numbers::pi;

// A capped tube of seg segments and rings rings, along axis (0 x, 1 y) from base over length.
Mesh tube(const char* name, int axis, std::array<double, 3> base, double length, double radius, int seg, int rings) {
    Mesh m{name, "a capped tube", {}, {}, {}, {}};
    const int a = axis, b = axis == 0 ? 1 : 0, c = 2;  // a: along the tube, b and c: across it
    for (int r = 0; r <= rings; ++r)
        for (int s = 0; s < seg; ++s) {
            double t = 2 * kPi * s / seg;
            std::array<double, 3> p = base, n{0, 0, 0};
            p[a] += length * r / rings;
            p[b] += radius * std::cos(t);
            p[c] += radius * std::sin(t);
            n[b] = std::cos(t);
            n[c] = std::sin(t);
            m.v.push_back(p);
            m.vn.push_back(n);
        }
    for (int r = 0; r <= rings; ++r)
        for (int s = 0; s <= seg; ++s) m.vt.push_back({double(s) / seg, double(r) / rings});
    auto vi = [&](int r, int s) { return r * seg + s % seg + 1; };
    auto ti = [&](int r, int s) { return r * (seg + 1) + s + 1; };
    for (int r = 0; r < rings; ++r)
        for (int s = 0; s < seg; ++s)
            m.f.push_back({{vi(r, s), ti(r, s), vi(r, s)},
                           {vi(r, s + 1), ti(r, s + 1), vi(r, s + 1)},
                           {vi(r + 1, s + 1), ti(r + 1, s + 1), vi(r + 1, s + 1)},
                           {vi(r + 1, s), ti(r + 1, s), vi(r + 1, s)}});
    // The caps: a centre vertex each and a fan of triangles.
    for (int end = 0; end < 2; ++end) {
        std::array<double, 3> p = base, n{0, 0, 0};
        p[a] += end ? length : 0;
        n[a] = end ? 1 : -1;
        m.v.push_back(p);
        m.vn.push_back(n);
        m.vt.push_back({0.5, end ? 1.0 : 0.0});
        const int centre = int(m.v.size()), tc = int(m.vt.size()), nc = int(m.vn.size());
        const int r = end ? rings : 0;
        for (int s = 0; s < seg; ++s)
            m.f.push_back({{centre, tc, nc}, {vi(r, s), ti(r, s), nc}, {vi(r, s + 1), ti(r, s + 1), nc}});
    }
    return m;
}

// A UV sphere with two pole vertices, rings - 1 rings of seg vertices between them.
Mesh sphere(const char* name, std::array<double, 3> centre, double radius, int seg, int rings) {
    Mesh m{name, "a UV sphere", {}, {}, {}, {}};
    auto add = [&](double phi, double t) {
        std::array<double, 3> n{std::sin(phi) * std::cos(t), std::cos(phi), std::sin(phi) * std::sin(t)};
        m.v.push_back({centre[0] + radius * n[0], centre[1] + radius * n[1], centre[2] + radius * n[2]});
        m.vn.push_back(n);
    };
    add(0, 0);
    for (int r = 1; r < rings; ++r)
        for (int s = 0; s < seg; ++s) add(kPi * r / rings, 2 * kPi * s / seg);
    add(kPi, 0);
    for (int r = 0; r <= rings; ++r)
        for (int s = 0; s <= seg; ++s) m.vt.push_back({double(s) / seg, 1 - double(r) / rings});
    const int last = int(m.v.size());
    auto vi = [&](int r, int s) { return r == 0 ? 1 : r == rings ? last : 1 + (r - 1) * seg + s % seg + 1; };
    auto ti = [&](int r, int s) { return r * (seg + 1) + s + 1; };
    for (int r = 0; r < rings; ++r)
        for (int s = 0; s < seg; ++s) {
            std::vector<std::array<int, 3>> face;
            auto corner = [&](int rr, int ss) { face.push_back({vi(rr, ss), ti(rr, ss), vi(rr, ss)}); };
            corner(r, s);
            if (r != 0) corner(r, s + 1);
            corner(r + 1, s + 1);
            if (r + 1 != rings) corner(r + 1, s);
            m.f.push_back(face);
        }
    return m;
}

bool write(const Mesh& m) {
    std::string path = m.name + ".obj";
    FILE* out = std::fopen(path.c_str(), "w");
    if (!out) return false;
    std::fprintf(out, "# %s: %s, %zu vertices, %zu faces\n", m.name.c_str(), m.comment.c_str(), m.v.size(), m.f.size());
    for (auto& p : m.v) std::fprintf(out, "v %.6g %.6g %.6g\n", p[0], p[1], p[2]);
    for (auto& t : m.vt) std::fprintf(out, "vt %.6g %.6g\n", t[0], t[1]);
    for (auto& n : m.vn) std::fprintf(out, "vn %.6g %.6g %.6g\n", n[0], n[1], n[2]);
    std::fprintf(out, "g %s\n", m.name.c_str());
    for (auto& f : m.f) {
        std::fputc('f', out);
        for (auto& c : f) std::fprintf(out, " %d/%d/%d", c[0], c[1], c[2]);
        std::fputc('\n', out);
    }
    std::printf("%s: %zu vertices, %zu faces\n", path.c_str(), m.v.size(), m.f.size());
    return std::fclose(out) == 0;
}

}  // namespace

int main() {
    bool ok = write(tube("Body", 1, {0, 0, 0}, 1.6, 0.5, 24, 12));
    ok = write(sphere("Head", {0, 1.95, 0}, 0.33, 20, 12)) && ok;
    ok = write(tube("Arm_L", 0, {0.5, 1.4, 0}, 1.2, 0.13, 10, 8)) && ok;
    ok = write(tube("Arm_R", 0, {-1.7, 1.4, 0}, 1.2, 0.13, 10, 8)) && ok;
    return ok ? 0 : 1;
}
