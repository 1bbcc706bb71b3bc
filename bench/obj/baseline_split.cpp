// The plain split the benchmarks compare against: std::getline, one std::set per group,
// a string stream per face line and stream output, the straightforward way to write the
// lean split by group.
//   obj_bench_baseline obj|vyt IN.obj OUTDIR/
#include <cstdint>
#include <fstream>
#include <iostream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

int main(int argc, char** argv) {
    if (argc < 4) {
        std::cerr << "usage: " << argv[0] << " obj|vyt IN.obj OUTDIR/\n";
        return 2;
    }
    const bool vyt = std::string(argv[1]) == "vyt";
    std::ifstream in(argv[2]);
    if (!in) return 1;
    std::vector<std::string> vertices{"#start of vector"};
    std::vector<float> xyz;
    std::map<std::string, int> names;
    std::vector<std::set<int>> sets(1);
    int current = 0;
    std::string line;
    while (std::getline(in, line)) {
        if (line.size() > 1 && line[0] == 'v' && line[1] == ' ') {
            if (vyt) {
                std::istringstream ss(line.substr(2));
                float x = 0, y = 0, z = 0;
                ss >> x >> y >> z;
                xyz.insert(xyz.end(), {x, y, z});
            } else {
                vertices.push_back(line);
            }
        } else if (!line.empty() && line[0] == 'g') {
            auto [it, added] = names.emplace(line.substr(2), int(names.size()));
            current = it->second;
            if (added) sets.resize(names.size() + 1);
        } else if (!line.empty() && line[0] == 'f') {
            std::string text = line.substr(2);
            if (text.find('/') != std::string::npos) {
                std::istringstream tokens(text);
                std::string token, reduced;
                while (std::getline(tokens, token, ' ')) reduced += token.substr(0, token.find('/')) + " ";
                text = reduced;
            }
            std::istringstream ss(text);
            int i;
            while (ss >> i) sets[size_t(current)].insert(i);
        }
    }
    for (const auto& [name, number] : names) {
        const std::set<int>& set = sets[size_t(number)];
        if (vyt) {
            std::ofstream out(std::string(argv[3]) + name + ".Vyt", std::ios::binary);
            auto word = [&](uint32_t v) {
                char b[4] = {char(v >> 24), char(v >> 16), char(v >> 8), char(v)};
                out.write(b, 4);
            };
            word(10001), word(uint32_t(16 + 12 * set.size())), word(uint32_t(set.size())), word(0);
            for (int i : set)
                for (int k = 0; k < 3; ++k) {
                    float f = xyz[size_t(i - 1) * 3 + size_t(k)];
                    uint32_t bits;
                    __builtin_memcpy(&bits, &f, 4);
                    word(bits);
                }
        } else {
            std::ofstream out(std::string(argv[3]) + std::to_string(set.size()) + "_" + name + ".obj");
            for (int i : set) out << vertices[size_t(i)] << "\n";
        }
    }
    return 0;
}
