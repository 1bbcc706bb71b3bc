// Parses an OBJ file with Debian's tinyobjloader and prints its counts: the general parser the
// split benchmark compares with (built when libtinyobjloader-dev is installed).
//   obj_bench_tinyobj FILE.obj
#include <tiny_obj_loader.h>

#include <cstdio>

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: obj_bench_tinyobj FILE.obj\n");
        return 2;
    }
    tinyobj::ObjReaderConfig config;
    config.triangulate = false;  // the faces as the file has them, as the splits read them
    tinyobj::ObjReader reader;
    if (!reader.ParseFromFile(argv[1], config)) {
        std::fprintf(stderr, "%s\n", reader.Error().c_str());
        return 1;
    }
    size_t faces = 0;
    for (const tinyobj::shape_t& shape : reader.GetShapes()) faces += shape.mesh.num_face_vertices.size();
    std::printf("%zu vertices, %zu groups, %zu faces\n", reader.GetAttrib().vertices.size() / 3, reader.GetShapes().size(), faces);
    return 0;
}
