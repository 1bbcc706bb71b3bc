// OBJ processing: the polygroup list, the splits of a posed combined mesh into one file per
// part, the append that builds the combined mesh, the vertex transfer back into the parts, the
// face-count map and the unique-name check. The engine behind the splits lives beside this
// file: indexset.h (vertex index sets), splitscan (the chunked scan and its join), partfiles
// (building and storing the part files) and objtext (the OBJ line readers).
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

// One polygroup of the combined mesh: faces [firstFace, endFace), counted 0-based over the
// whole mesh. 136 bytes, written to the group list file as laid out (integers big-endian).
struct groupID {
    char name[128];  // NUL-terminated; names are cut to 127 bytes
    int32_t firstFace;
    int32_t endFace;
};
static_assert(sizeof(groupID) == 136, "groupID is a 136-byte file record");

// One vertex position.
struct vertexS {
    float x, y, z;
};

// Module state (exported data symbols), alive while the library is loaded.
extern "C" {
extern std::vector<groupID> groupsList;                  // the polygroups, in mesh order
extern int32_t faceIndex;                                // first face of the next record added
extern std::map<std::string, int32_t> groupFacesList;    // group name -> face count
extern std::set<std::string> nameSet;                    // names handed out by NameCheck
}

namespace obj {

// How a split scans a large input: on `threads` threads (0: the KELVANE_THREADS setting, else
// one per core; at most 16), in chunks of at least minChunk bytes; a list split's chunks keep
// their faces in blocks of at least blockFaces faces. The result never depends on them.
struct ScanOptions {
    unsigned threads = 0;
    size_t minChunk = size_t(8) << 20;
    int64_t blockFaces = 4096;
};

}  // namespace obj

// ---- Polygroup list ----
void addToGroupsList(const char* name, int32_t count);
float getGroupsListSize();
std::string getGroupName(int32_t index);  // "null" when out of range or empty
void clearGroupsList();
int saveGroupsList(const char* path);   // 0, -1 empty list, -3 cannot write
int loadGroupsList(const char* path);   // 0, -3 cannot open

// ---- Splits, append and vertex transfer ----
double LeanSplitOBJ(const char* objPath, char* outPath, const obj::ScanOptions& options = {});  // 0, -1, -2, -3
double LeanSplitVyx(const char* objPath, char* outPath, const obj::ScanOptions& options = {});  // 0, -1, -3
double LeanAddGroupOBJ(const char* partPath, char* combinedPath, int vertexOffset);  // count, -1, -2
double LeanSwapVertsOBJ(const char* vertexPath, const char* meshPath);  // 0, -10, -20, -30
bool LeanSwapVerts(const char* vertexPath, const char* meshPath);

// ---- List-driven splits, face counts and unique names ----
double ListSplitOBJ(const char* objPath, char* outPath, const obj::ScanOptions& options = {});  // 0, -1, -3, -5
double ListSplitVyx(const char* objPath, char* outPath, const obj::ScanOptions& options = {});  // 0, -1, -3, -5
float CreateGroupFacesList();                            // 0, -5
int32_t getGroupFaces(const char* name);                 // count, -1
std::string NameCheck(const char* name);
void NameSetClear();
