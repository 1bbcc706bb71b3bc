// The mesh viewer's rasteriser. Vertices are projected once per mesh; each triangle is filled
// over its bounding box with edge functions evaluated at pixel centres, kept where it is nearer
// than what the depth buffer holds, and shaded flat by the angle between its normal and a light
// from the upper left front (both sides lit alike).
#include "render.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace kvtool {
namespace {

constexpr Rgb kBackground{34, 36, 42}, kText{228, 228, 228};
constexpr size_t kLegendGroups = 12;  // groups named under a panel; more are counted

struct Basis {
    float right[3], up[3], toward[3];  // screen x, screen y, towards the viewer
};

Basis basisOf(View v) {
    const float s = 1 / std::sqrt(2.0f), t = 1 / std::sqrt(3.0f), u = 1 / std::sqrt(6.0f);
    switch (v) {
        case View::Back: return {{-1, 0, 0}, {0, 1, 0}, {0, 0, -1}};
        case View::Left: return {{0, 0, 1}, {0, 1, 0}, {-1, 0, 0}};
        case View::Right: return {{0, 0, -1}, {0, 1, 0}, {1, 0, 0}};
        case View::Top: return {{1, 0, 0}, {0, 0, -1}, {0, 1, 0}};
        case View::Iso: return {{s, 0, -s}, {-u, 2 * u, -u}, {t, t, t}};
        case View::Front: break;
    }
    return {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
}

float dot3(const float* a, const float* p) { return a[0] * p[0] + a[1] * p[1] + a[2] * p[2]; }

// View coordinates of every vertex (x right, y up, z towards the viewer) and their bounds.
struct Projected {
    std::vector<float> p;
    float lo[3] = {std::numeric_limits<float>::max(), std::numeric_limits<float>::max(), std::numeric_limits<float>::max()};
    float hi[3] = {std::numeric_limits<float>::lowest(), std::numeric_limits<float>::lowest(), std::numeric_limits<float>::lowest()};
};

Projected project(const Mesh& m, const Basis& b) {
    Projected out;
    out.p.resize(m.xyz.size());
    for (size_t i = 0; i < m.xyz.size(); i += 3) {
        const float* v = &m.xyz[i];
        const float q[3] = {dot3(b.right, v), dot3(b.up, v), dot3(b.toward, v)};
        for (int k = 0; k < 3; ++k) {
            out.p[i + size_t(k)] = q[k];
            out.lo[k] = std::min(out.lo[k], q[k]);
            out.hi[k] = std::max(out.hi[k], q[k]);
        }
    }
    return out;
}

// One panel's drawing area in the picture and the picture's depth buffer.
struct Target {
    Picture& pic;
    std::vector<float>& depth;
    int left, right, bottom;  // columns [left, right), rows [0, bottom)
};

Rgb shade(Rgb c, float k) {
    auto ch = [k](uint8_t v) { return static_cast<uint8_t>(std::min(255.0f, float(v) * k)); };
    return {ch(c.r), ch(c.g), ch(c.b)};
}

float lightOf(const float* a, const float* b, const float* c) {
    const float e[3] = {b[0] - a[0], b[1] - a[1], b[2] - a[2]}, f[3] = {c[0] - a[0], c[1] - a[1], c[2] - a[2]};
    const float n[3] = {e[1] * f[2] - e[2] * f[1], e[2] * f[0] - e[0] * f[2], e[0] * f[1] - e[1] * f[0]};
    const float len = std::sqrt(dot3(n, n));
    static const float kLight[3] = {-0.36f, -0.48f, 0.8f};  // screen rows grow downwards
    return len > 0 ? 0.3f + 0.7f * std::fabs(dot3(n, kLight)) / len : 0.3f;
}

// Fills a triangle of screen points (x, y, depth) with pixel centres inside or on its edges.
void fillTriangle(Target& t, const float* a, const float* b, const float* c, Rgb colour) {
    float area = (b[0] - a[0]) * (c[1] - a[1]) - (b[1] - a[1]) * (c[0] - a[0]);
    if (!(std::fabs(area) > 1e-12f)) return;
    if (area < 0) std::swap(b, c), area = -area;
    const int x0 = std::max(t.left, int(std::ceil(std::min({a[0], b[0], c[0]}) - 0.5f)));
    const int x1 = std::min(t.right - 1, int(std::floor(std::max({a[0], b[0], c[0]}) - 0.5f)));
    const int y0 = std::max(0, int(std::ceil(std::min({a[1], b[1], c[1]}) - 0.5f)));
    const int y1 = std::min(t.bottom - 1, int(std::floor(std::max({a[1], b[1], c[1]}) - 0.5f)));
    if (x0 > x1 || y0 > y1) return;
    const Rgb lit = shade(colour, lightOf(a, b, c));
    auto edge = [](const float* u, const float* v, float px, float py) {
        return (v[0] - u[0]) * (py - u[1]) - (v[1] - u[1]) * (px - u[0]);
    };
    const float inv = 1 / area;
    for (int y = y0; y <= y1; ++y) {
        const float py = float(y) + 0.5f;
        for (int x = x0; x <= x1; ++x) {
            const float px = float(x) + 0.5f;
            const float w0 = edge(b, c, px, py), w1 = edge(c, a, px, py), w2 = edge(a, b, px, py);
            if (w0 < 0 || w1 < 0 || w2 < 0) continue;
            const float z = (w0 * a[2] + w1 * b[2] + w2 * c[2]) * inv;
            float& d = t.depth[size_t(y) * size_t(t.pic.width) + size_t(x)];
            if (z <= d) continue;
            d = z;
            t.pic.set(x, y, lit);
        }
    }
}

// A square dot per vertex, lighter when nearer.
void drawPoints(Target& t, const std::vector<float>& s, float zLo, float zHi, int dot) {
    const float range = zHi > zLo ? zHi - zLo : 1;
    for (size_t i = 0; i < s.size(); i += 3) {
        const Rgb c = shade(groupColour(0), 0.45f + 0.55f * (s[i + 2] - zLo) / range);
        const int cx = int(std::floor(s[i])) - dot / 2, cy = int(std::floor(s[i + 1])) - dot / 2;
        for (int y = std::max(cy, 0); y < std::min(cy + dot, t.bottom); ++y)
            for (int x = std::max(cx, t.left); x < std::min(cx + dot, t.right); ++x) {
                float& d = t.depth[size_t(y) * size_t(t.pic.width) + size_t(x)];
                if (s[i + 2] > d) d = s[i + 2], t.pic.set(x, y, c);
            }
    }
}

// The common frame: one scale, one centre, the panel size.
struct Frame {
    float scale = 1, mid[2] = {0, 0};
    int margin = 0, panelW = 0, panelH = 0, font = 1, lineH = 0, legendH = 0;
};

Frame frameOf(const std::vector<Mesh>& meshes, const std::vector<Projected>& proj, int size) {
    float lo[2] = {std::numeric_limits<float>::max(), std::numeric_limits<float>::max()}, hi[2] = {-lo[0], -lo[1]};
    for (const Projected& p : proj)
        for (int k = 0; k < 2; ++k) lo[k] = std::min(lo[k], p.lo[k]), hi[k] = std::max(hi[k], p.hi[k]);
    Frame f;
    if (lo[0] > hi[0]) lo[0] = lo[1] = hi[0] = hi[1] = 0;  // no vertices at all
    const float w = hi[0] - lo[0], h = hi[1] - lo[1], extent = std::max({w, h, 1e-20f});
    f.margin = std::max(4, size / 25);
    f.scale = float(size - 2 * f.margin) / extent;
    f.mid[0] = (lo[0] + hi[0]) / 2, f.mid[1] = (lo[1] + hi[1]) / 2;
    f.panelW = std::clamp(int(std::ceil(w * f.scale)) + 2 * f.margin, size / 3, size);
    f.panelH = std::clamp(int(std::ceil(h * f.scale)) + 2 * f.margin, size / 3, size);
    f.font = std::max(1, size / 400);
    f.lineH = (kGlyphHeight + 3) * f.font;
    size_t lines = 1;
    for (const Mesh& m : meshes) lines = std::max(lines, 1 + std::min(m.groups.size(), kLegendGroups + 1));
    f.legendH = int(lines) * f.lineH + f.lineH / 2;
    return f;
}

std::string fitted(const std::string& text, int width, int font) {
    const size_t most = size_t(std::max(1, width / (kGlyphWidth * font)));
    return text.size() <= most ? text : text.substr(0, most > 2 ? most - 2 : most) + "..";
}

// The legend under a panel: the file name, then a swatch and the name of each group.
void drawLegend(Picture& pic, const Mesh& m, const Frame& f, int x0) {
    const int x = x0 + f.lineH / 2, width = f.panelW - f.lineH;
    int y = f.panelH + f.lineH / 4;
    std::string title = m.name + (m.tris.empty() ? ", " + std::to_string(m.vertexCount()) + " points" : "");
    drawText(pic, x, y, fitted(title, width, f.font), f.font, kText);
    for (size_t g = 0; g < m.groups.size() && g <= kLegendGroups; ++g) {
        y += f.lineH;
        const bool more = g == kLegendGroups;
        const std::string name = more ? "+ " + std::to_string(m.groups.size() - g) + " more groups" : m.groups[g];
        if (!more) pic.fill(x, y, 7 * f.font, 7 * f.font, groupColour(g));
        drawText(pic, x + 10 * f.font, y, fitted(name, width - 10 * f.font, f.font), f.font, kText);
    }
}

// Projects a mesh into its panel's pixels and draws its faces, or its points when it has none.
void drawMesh(Target& t, const Mesh& m, Projected& p, const Frame& f, int size) {
    const float cx = float(t.left) + float(f.panelW) / 2, cy = float(f.panelH) / 2;
    for (size_t i = 0; i < p.p.size(); i += 3) {
        p.p[i] = cx + (p.p[i] - f.mid[0]) * f.scale;
        p.p[i + 1] = cy - (p.p[i + 1] - f.mid[1]) * f.scale;
        p.p[i + 2] *= f.scale;
    }
    if (m.tris.empty()) return drawPoints(t, p.p, p.lo[2] * f.scale, p.hi[2] * f.scale, std::max(2, size / 200));
    const uint32_t* tri = m.tris.data();
    for (size_t k = 0; k < m.triangleCount(); ++k, tri += 3)
        fillTriangle(t, &p.p[size_t{tri[0]} * 3], &p.p[size_t{tri[1]} * 3], &p.p[size_t{tri[2]} * 3],
                     groupColour(m.triGroup[k]));
}

}  // namespace

bool parseView(const std::string& name, View& view) {
    static const std::pair<const char*, View> kNames[] = {{"front", View::Front}, {"back", View::Back},
                                                          {"left", View::Left},   {"right", View::Right},
                                                          {"top", View::Top},     {"iso", View::Iso}};
    for (const auto& [n, v] : kNames)
        if (name == n) return view = v, true;
    return false;
}

Rgb groupColour(size_t i) {
    static constexpr Rgb kFirst[] = {{232, 84, 66},  {74, 144, 232},  {96, 196, 92},  {240, 186, 48},
                                     {176, 104, 216}, {48, 196, 196}, {240, 128, 184}, {160, 116, 72},
                                     {168, 208, 64},  {116, 116, 236}, {244, 148, 84}, {132, 180, 168}};
    if (i < std::size(kFirst)) return kFirst[i];
    const float h = std::fmod(float(i) * 0.618034f, 1.0f) * 6, x = 1 - std::fabs(std::fmod(h, 2.0f) - 1);
    const float rgb[6][3] = {{1, x, 0}, {x, 1, 0}, {0, 1, x}, {0, x, 1}, {x, 0, 1}, {1, 0, x}};
    const float* c = rgb[std::min(5, int(h))];
    auto ch = [](float v) { return static_cast<uint8_t>(60 + v * 180); };
    return {ch(c[0]), ch(c[1]), ch(c[2])};
}

Picture renderMeshes(const std::vector<Mesh>& meshes, View view, int size) {
    const Basis basis = basisOf(view);
    std::vector<Projected> proj;
    for (const Mesh& m : meshes) proj.push_back(project(m, basis));
    const Frame f = frameOf(meshes, proj, size);
    const int gap = std::max(2, size / 200), n = int(meshes.size());
    Picture pic(n * f.panelW + (n - 1) * gap, f.panelH + f.legendH, kBackground);
    std::vector<float> depth(size_t(pic.width) * size_t(pic.height), std::numeric_limits<float>::lowest());
    for (int i = 0; i < n; ++i) {
        const int x0 = i * (f.panelW + gap);
        if (i > 0) pic.fill(x0 - gap, 0, gap, pic.height, {70, 74, 84});
        Target t{pic, depth, x0, x0 + f.panelW, f.panelH};
        drawMesh(t, meshes[size_t(i)], proj[size_t(i)], f, size);
        drawLegend(pic, meshes[size_t(i)], f, x0);
    }
    return pic;
}

}  // namespace kvtool
