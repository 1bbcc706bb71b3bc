// Writes a synthetic posed combined mesh of about SIZE_MB megabytes: parts appended one after
// another, a "g" line per part, v/vt/vn lines and quad and triangle faces in the a/b/c form,
// as the posing round produces them.
// Also writes OUT.obj.groups, the polygroup list file of the parts (for the list-driven splits).
//   obj_bench_gen OUT.obj SIZE_MB [PARTS]
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

void put(std::string& s, double v) {
    char b[32];
    auto r = std::to_chars(b, b + sizeof b, v, std::chars_format::fixed, 6);
    s.append(b, r.ptr);
}

void putInt(std::string& s, long v) {
    char b[24];
    auto r = std::to_chars(b, b + sizeof b, v);
    s.append(b, r.ptr);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        std::fprintf(stderr, "usage: %s OUT.obj SIZE_MB [PARTS]\n", argv[0]);
        return 2;
    }
    const double target = std::atof(argv[2]) * 1e6;
    const int parts = argc > 3 ? std::atoi(argv[3]) : 24;
    FILE* out = std::fopen(argv[1], "wb");
    if (!out) return 1;
    // About 177 bytes of text per grid vertex (v, vt, vn and one face's share).
    const long perPart = static_cast<long>(target / 177 / parts) + 4;
    const long cols = 256, rows = perPart / cols + 2;
    std::string s;
    s.reserve(1 << 24);
    unsigned seed = 12345;
    auto noise = [&] { seed = seed * 1103515245u + 12345u; return double(seed >> 8 & 0xFFFF) / 65536.0 - 0.5; };
    long base = 0, faces = 0;
    std::string list;
    double written = 0;
    for (int p = 0; p < parts; ++p) {
        s += "g part_";
        putInt(s, p);
        s += '\n';
        for (long r = 0; r < rows; ++r)
            for (long c = 0; c < cols; ++c) {
                s += "v ";
                put(s, p * 3.0 + double(c) * 0.01 + noise() * 0.001);
                s += ' ';
                put(s, double(r) * 0.01);
                s += ' ';
                put(s, noise());
                s += "\nvt ";
                put(s, double(c) / double(cols));
                s += ' ';
                put(s, double(r) / double(rows));
                s += "\nvn 0.000000 0.000000 1.000000\n";
            }
        for (long r = 0; r + 1 < rows; ++r)
            for (long c = 0; c + 1 < cols; ++c) {
                long a = base + r * cols + c + 1, b = a + 1, d = a + cols, e = d + 1;
                auto corner = [&](long i) {
                    s += ' ';
                    putInt(s, i);
                    s += '/';
                    putInt(s, i);
                    s += '/';
                    putInt(s, i);
                };
                s += 'f';
                if (c % 4 == 3) {  // every fourth cell as two triangles
                    corner(a), corner(b), corner(e);
                    s += "\nf";
                    corner(a), corner(e), corner(d);
                } else {
                    corner(a), corner(b), corner(e), corner(d);
                }
                s += '\n';
                faces += c % 4 == 3 ? 2 : 1;
                if (s.size() > (1 << 24) - 256) {
                    written += double(std::fwrite(s.data(), 1, s.size(), out));
                    s.clear();
                }
            }
        // The group list record: 128-byte name, first and end face big-endian.
        std::string rec(136, '\0');
        std::string name = "part_" + std::to_string(p);
        rec.replace(0, name.size(), name);
        long first = faces - (rows - 1) * ((cols - 1) + (cols - 1) / 4);
        for (int k = 0; k < 4; ++k) {
            rec[size_t(128 + k)] = char(first >> (24 - 8 * k));
            rec[size_t(132 + k)] = char(faces >> (24 - 8 * k));
        }
        list += rec;
        base += rows * cols;
        written += double(std::fwrite(s.data(), 1, s.size(), out));
        s.clear();
    }
    if (std::fclose(out) != 0) return 1;
    FILE* groups = std::fopen((std::string(argv[1]) + ".groups").c_str(), "wb");
    if (!groups || std::fwrite(list.data(), 1, list.size(), groups) != list.size() || std::fclose(groups) != 0) return 1;
    std::printf("%s: %.1f MB, %d parts, %ld vertices\n", argv[1], written / 1e6, parts, base);
    return 0;
}
