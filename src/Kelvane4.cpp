// The plug-in's exported functions, as one table: each wrapper checks its arguments in the
// documented order, converts the host's number, calls one internal function and turns its
// outcome into the float result. The work of this file's own subsystem (settings, the TPose
// reference list, file copy and the folder listing) follows the table.
#include "kelvane/Kelvane4.h"

#include <cstdio>
#include <cstring>
#include <iostream>
#include <new>

#include "FileOps.h"
#include "Kelvane4Priv.h"
#include "VyxOps.h"
#include "util/convert.h"

using kv::fromInt;
using kv::fromUint;
using kv::toInt;
using kv::toSingle;
using kv::toUint;

// Module state (exported data symbols).
extern "C" {
KV_API float answer = 0.0f;
KV_API float imgW = 50.0f;
KV_API float colIn = 0.0f;
KV_API DIR* folder = nullptr;
KV_API std::vector<std::string> docList;
KV_API uint32_t thisPrjHdr[4] = {0, 0, 0, 0};
KV_API std::vector<TPoseRef> tPoseList;
}

// Defines an export with the host signature. No exception may reach the host: one that
// escapes the body (an allocation failure, say) becomes the code given as onThrow.
#define KV_EXPORT(name, onThrow)                                                              \
    static float name##Body(const char*, double, char*, char*);                              \
    float name(const char* text, double number, char* memBlock1, char* memBlock2) {          \
        try {                                                                                 \
            return name##Body(text, number, memBlock1, memBlock2);                            \
        } catch (...) {                                                                       \
            return onThrow;                                                                   \
        }                                                                                     \
    }                                                                                         \
    static float name##Body([[maybe_unused]] const char* text, [[maybe_unused]] double number, \
                            [[maybe_unused]] char* memBlock1, [[maybe_unused]] char* memBlock2)

// Copies a text result into the host's block (a null block is left alone).
static void copyOut(char* memBlock1, const char* s) {
    if (memBlock1) std::strcpy(memBlock1, s);
}

// ---- Settings and the TPose reference list ----------------------------------------------

KV_EXPORT(Version, -1) { return 4.05f; }

KV_EXPORT(SetPrjModfier, -1) {
    if (!(number > 0)) return -1;
    thisPrjHdr[3] = toUint(number);
    return 0;
}

KV_EXPORT(GetPrjModfier, -1) { return fromUint(thisPrjHdr[3]); }

KV_EXPORT(CropBMP_SetWidth, -1) {
    imgW = toSingle(number);
    return 0;
}

KV_EXPORT(SetInColor, -1) {
    colIn = toSingle(number);
    return 0;
}

KV_EXPORT(ClearTPoseList, -1) {
    tPoseList.clear();
    std::memset(thisPrjHdr, 0, sizeof thisPrjHdr);
    return 0;
}

KV_EXPORT(AddTPoseRef, -2) {
    if (number <= 0) return -1;  // NaN passes and is stored as uint(NaN)
    if (!text || !memBlock1) return -2;
    addTPoseRef(text, toUint(number), memBlock1);
    return 0;
}

KV_EXPORT(GetTPoseRef, -1) {
    if (tPoseList.empty()) return -5;
    if (!text) return -1;
    const TPoseRef* ref = findTPoseRef(text);
    if (!ref) return -1;
    copyOut(memBlock1, ref->data);
    return fromUint(ref->value);
}

// ---- File and folder primitives -----------------------------------------------------------

KV_EXPORT(FileDelete, -1) {
    if (!text) return -1;
    return std::remove(text) == 0 ? 0 : -1;
}

KV_EXPORT(FileCopyTo, -1) {
    if (!text || !memBlock1) return -1;
    return fromInt(fileCopyTo(text, memBlock1));
}

KV_EXPORT(FileRename, -1) {
    if (!text || !memBlock1) return -1;
    return std::rename(text, memBlock1) == 0 ? 0 : -1;
}

KV_EXPORT(OpenFolder, -1) {
    DIR* dir = text ? opendir(text) : nullptr;
    if (!dir) return -1;
    if (folder) closedir(folder);  // one enumeration at a time: the older one is let go
    folder = dir;
    return 0;
}

KV_EXPORT(GetFile, -1) {
    if (!folder) return -1;
    const dirent* entry = readdir(folder);
    if (!entry) return -3;
    copyOut(memBlock1, entry->d_name);
    return 0;
}

KV_EXPORT(CloseFolder, -1) {
    if (!folder) return -1;
    closedir(folder);
    folder = nullptr;
    return 0;
}

KV_EXPORT(EmptyFolder, -1) {
    if (!text) return -1;
    return ClearFolder(text) ? 0 : -1;
}

// ---- Vyx mesh files ------------------------------------------------------------------------

KV_EXPORT(vyxtoOBJ, -1760) {
    if (!text || !memBlock1) return -9;
    return writeOBJfromVyx(text, memBlock1);
}

KV_EXPORT(getFaceIDs, -1760) {
    if (!text) return -9;
    return GetFaceIDsVyx(text, number);
}

KV_EXPORT(outMRGB, -1760) {
    if (!text || !memBlock1) return -9;
    return fromInt(ReadVertColorVyx(text, memBlock1));
}

KV_EXPORT(SwapVertices_Vyx, -1760) {
    if (!text || !memBlock1) return -2;
    return fromInt(swapVerticesVyx(memBlock1, text));
}

KV_EXPORT(GetUVTile, -17) {
    if (!text) return -17;
    return GetUVTile(text, memBlock1);
}

KV_EXPORT(GetUVsFromVyx, -1760) {
    if (!text) return -1760;
    return GetUVsFromVyx(text);
}

KV_EXPORT(getUVTileString, -1) {
    getUVTileString(toInt(number), memBlock1);
    return 0;
}

KV_EXPORT(clearUVTileString, -1) {
    clearUVTileString();
    return 0;
}

// ---- The work behind the frame's exports ------------------------------------------------

// Copies s into a fixed field, always NUL-terminated (longer texts are cut).
template <size_t N>
static void setField(char (&field)[N], const char* s) {
    std::memset(field, 0, N);
    std::strncpy(field, s, N - 1);
}

bool addTPoseRef(const char* name, uint32_t value, const char* data) {
    TPoseRef ref;
    ref.value = value;
    setField(ref.name, name);
    setField(ref.data, data);
    tPoseList.push_back(ref);
    thisPrjHdr[2] += 1;
    return true;
}

const TPoseRef* findTPoseRef(const char* name) {
    for (const TPoseRef& ref : tPoseList)
        if (std::strcmp(ref.name, name) == 0) return &ref;
    return nullptr;
}

int fileCopyTo(const char* source, const char* destination) {
    std::remove(destination);  // a failure here is ignored; copying onto itself thus fails below
    FILE* in = std::fopen(source, "rb");
    if (!in) return -1;
    FILE* out = std::fopen(destination, "wb");
    if (!out) {
        std::fclose(in);
        return -1;
    }
    char* buffer = new (std::nothrow) char[4000];
    int result = buffer ? 0 : -1;
    while (buffer) {
        size_t n = std::fread(buffer, 1, 4000, in);
        if (n == 0) break;
        if (std::fwrite(buffer, 1, n, out) < n) {
            result = -1;
            break;
        }
    }
    delete[] buffer;
    std::fclose(in);
    if (std::fclose(out) != 0) result = -1;
    return result;
}

void Kelvane4::HelloWorld(const char* text) {
    Kelvane4Priv priv;
    priv.HelloWorldPriv(text);
}

void Kelvane4Priv::HelloWorldPriv(const char* text) { std::cout << text << std::endl; }
