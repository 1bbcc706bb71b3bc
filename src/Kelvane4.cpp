// The plug-in's exported functions, as one table: each wrapper checks its arguments in the
// documented order, converts the host's number, calls one internal function and turns its
// outcome into the float result. The folder listing (OpenFolder, GetFile, CloseFolder) is
// simple enough to live in its wrappers. The rest of this file's own work follows the table:
// the TPose reference list, the file copy, and the glue between the open-file dialog, the file list it
// fills and the platform's dialog and product page (platform/Dialog.h).
#include "kelvane/Kelvane4.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <new>

#include "BmpOps.h"
#include "FileOps.h"
#include "FrameState.h"
#include "PrjFile.h"
#include "PsdOps.h"
#include "VyxOps.h"
#include "kelvane_version.h"
#include "leanOBJ/leanOBJ.h"
#include "platform/Dialog.h"
#include "platform/fileio.h"
#include "util/convert.h"
#include "util/exportdata.h"

using kv::fromInt;
using kv::fromUint;
using kv::toInt;
using kv::toSingle;
using kv::toUint;

// Module state (exported data symbols).
extern "C" {
KV_DATA float answer = 0.0f;
KV_DATA float imgW = 50.0f;
KV_DATA float colIn = 0.0f;
KV_DATA kv::platform::Folder* folder = nullptr;
KV_DATA std::vector<std::string> docList;
KV_DATA uint32_t thisPrjHdr[4] = {0, 0, 0, 0};
KV_DATA std::vector<TPoseRef> tPoseList;
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

KV_EXPORT(Version, -1) { return KELVANE_VERSION_NUMBER; }

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
    return kv::removeFile(text) ? 0 : -1;
}

KV_EXPORT(FileCopyTo, -1) {
    if (!text || !memBlock1) return -1;
    return fromInt(fileCopyTo(text, memBlock1));
}

KV_EXPORT(FileRename, -1) {
    if (!text || !memBlock1) return -1;
    return kv::renameFile(text, memBlock1) ? 0 : -1;
}

KV_EXPORT(OpenFolder, -1) {
    kv::platform::Folder* dir = text ? kv::platform::openFolder(text) : nullptr;
    if (!dir) return -1;
    if (folder) kv::platform::closeFolder(folder);  // one enumeration at a time: the older one is let go
    folder = dir;
    return 0;
}

KV_EXPORT(GetFile, -1) {
    if (!folder) return -1;
    const char* name = kv::platform::nextEntry(folder);
    if (!name) return -3;
    copyOut(memBlock1, name);
    return 0;
}

KV_EXPORT(CloseFolder, -1) {
    if (!folder) return -1;
    kv::platform::closeFolder(folder);
    folder = nullptr;
    return 0;
}

KV_EXPORT(EmptyFolder, -1) {
    if (!text) return -1;
    return ClearFolder(text) ? 0 : -1;
}

// ---- OBJ processing: the polygroup list, append, splits and vertex transfer -------------

KV_EXPORT(GroupListAdd, -1) {
    const int32_t count = toInt(number);
    if (count <= 0) return -2;
    if (!text) return -1;
    addToGroupsList(text, count);
    return 0;
}

KV_EXPORT(GroupListGetName, -1) {
    if (!(number > -1)) return -1;
    copyOut(memBlock1, getGroupName(toInt(number)).c_str());
    return 0;
}

KV_EXPORT(GroupListSize, -1) { return getGroupsListSize(); }

KV_EXPORT(GroupListLoad, -9) {
    if (!text) return -9;
    return fromInt(loadGroupsList(text));
}

KV_EXPORT(GroupListSave, -9) {
    if (!text) return -9;
    return fromInt(saveGroupsList(text));
}

KV_EXPORT(GroupListClear, -1) {
    clearGroupsList();
    return 0;
}

KV_EXPORT(AppendOBJ, -9) {
    if (!text || !memBlock1) return -9;
    return static_cast<float>(LeanAddGroupOBJ(text, memBlock1, toInt(number)));
}

KV_EXPORT(SplitOBJ, -2) {
    if (!text || !memBlock1) return -2;
    return static_cast<float>(LeanSplitOBJ(text, memBlock1));
}

KV_EXPORT(SplitOBJtoVyx, -2) {
    if (!text || !memBlock1) return -2;
    return static_cast<float>(LeanSplitVyx(text, memBlock1));
}

KV_EXPORT(SwapVertices, -2) {
    if (!text || !memBlock1) return -2;
    return static_cast<float>(LeanSwapVertsOBJ(text, memBlock1));
}

// ---- OBJ processing: splits driven by the polygroup list, face counts, unique names ------

KV_EXPORT(ListSplitOBJtoOBJ, -2) {
    if (!text || !memBlock1) return -2;
    return static_cast<float>(ListSplitOBJ(text, memBlock1));
}

KV_EXPORT(ListSplitOBJtoVyx, -2) {
    if (!text || !memBlock1) return -2;
    return static_cast<float>(ListSplitVyx(text, memBlock1));
}

KV_EXPORT(CreateFacesList, -5) { return CreateGroupFacesList(); }

KV_EXPORT(GetFaces, -1) {
    if (!text) return -1;
    return fromInt(getGroupFaces(text));
}

KV_EXPORT(CheckName, -1) {
    if (!text) return -1;  // nothing to check; a null name is never handed out
    copyOut(memBlock1, NameCheck(text).c_str());
    return 0;
}

KV_EXPORT(ClearNameSet, -1) {
    NameSetClear();
    return 0;
}

// ---- Vyx mesh files ------------------------------------------------------------------------

KV_EXPORT(vyxtoOBJ, kVyxUnreadable) {
    if (!text || !memBlock1) return -9;
    return writeOBJfromVyx(text, memBlock1);
}

KV_EXPORT(getFaceIDs, kVyxUnreadable) {
    if (!text) return -9;
    return GetFaceIDsVyx(text, number);
}

KV_EXPORT(outMRGB, kVyxUnreadable) {
    if (!text || !memBlock1) return -9;
    return fromInt(ReadVertColorVyx(text, memBlock1));
}

KV_EXPORT(SwapVertices_Vyx, kVyxUnreadable) {
    if (!text || !memBlock1) return -2;
    return fromInt(swapVerticesVyx(memBlock1, text));
}

KV_EXPORT(GetUVTile, kTilesUnreadable) {
    if (!text) return kTilesUnreadable;
    return countUVTiles(text, memBlock1);
}

KV_EXPORT(GetUVsFromVyx, kVyxUnreadable) {
    if (!text) return kVyxUnreadable;
    return splitUVTiles(text);
}

KV_EXPORT(getUVTileString, -1) {
    copyUVTileName(toInt(number), memBlock1);
    return 0;
}

KV_EXPORT(clearUVTileString, -1) {
    clearUVTileNames();
    return 0;
}

// ---- The TPose project file ---------------------------------------------------------------

KV_EXPORT(WritePrjFile, -17) {
    if (tPoseList.empty()) return -3;
    if (!text) return -1;
    return fromInt(writePrjFile(text));
}

KV_EXPORT(AddDatFile, -2) {
    if (!text || !memBlock1) return 0;
    return fromInt(addDatFile(text, memBlock1));
}

KV_EXPORT(OpenPrjFile, -17) {
    if (!text || !memBlock1) return 0;
    return fromInt(openPrjFile(text, memBlock1));
}

// ---- Images: BMP crop, PSD conversions, merge, heal, thumbnails ------------------------
// The file operations refuse null paths themselves (as a source that cannot be opened or a
// destination that cannot be created).

KV_EXPORT(CropBMPfile, kVyxUnreadable) {
    // The start column becomes a byte position in 64 bits; the crop refuses one beyond 32 bits.
    return cropBMP(text, memBlock1, int64_t{toInt(number)} * 3, toInt(imgW));
}

KV_EXPORT(MakeStencilPSD, -1) { return convertPSD(text, colIn, toSingle(number), true); }

KV_EXPORT(SwapColorsPSD, -1) { return convertPSD(text, colIn, toSingle(number), false); }

KV_EXPORT(RGBtoGrayscale, -1) {
    const double level = !(number >= 0) ? 0.0 : number > 255 ? 255.0 : number;  // NaN becomes 0
    return GrayscalePSD(text, memBlock1, toInt(level));
}

KV_EXPORT(MergePSDfiles, -1) { return mergePSD(text, memBlock1, toSingle(number)); }

KV_EXPORT(HealPSDfiles, -1) { return mergeSeamlessPSD(text, memBlock1, number > 0); }

KV_EXPORT(CreateThumbnail, -1) { return createThumb(text, toInt(number)); }

// ---- The open-file dialog and the product page --------------------------------------------

KV_EXPORT(GetOpenDialog, kv::platform::kDialogFailed) { return getOpenDialog(); }

KV_EXPORT(GetFilePath, kErrIllegalIndex) { return fromInt(getFilePath(toInt(number), memBlock1)); }

KV_EXPORT(ClearFileList, -1) {
    clearFileList();
    return 0;
}

KV_EXPORT(inPut, -1) { return fromInt(openProductPage()); }

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
    kv::removeFile(destination);  // a failure here is ignored; copying onto itself thus fails below
    FILE* in = kv::openStream(source, "rb");
    if (!in) return -1;
    FILE* out = kv::openStream(destination, "wb");
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
    if (std::ferror(in)) result = -1;  // a read that failed is no end of the file
    std::fclose(in);
    if (std::fclose(out) != 0) result = -1;
    if (result != 0) kv::removeFile(destination);  // a cut copy is worse than none
    return result;
}

void Kelvane4::HelloWorld(const char* text) {
    Kelvane4Priv priv;
    priv.HelloWorldPriv(text);
}

void Kelvane4Priv::HelloWorldPriv(const char* text) { std::cout << text << std::endl; }

// ---- The open-file dialog and the product page: the work ----------------------------------

void MyNavEventProc(long selector, int userAction) {
    if (selector != kNavCBUserAction) return;
    if (userAction == kv::platform::kUserActionCancel || userAction == kv::platform::kUserActionOpen) answer = 0;
}

float getOpenDialog() {
    std::vector<std::string> chosen;
    int action = kv::platform::showOpenDialog(kOpenDialogTitle, chosen);
    if (action < 0) return fromInt(action);
    MyNavEventProc(kNavCBUserAction, action);
    if (action != kv::platform::kUserActionOpen || chosen.empty()) return answer;
    docList = std::move(chosen);
    return fromUint(static_cast<uint32_t>(docList.size()));
}

int getFilePath(int index, char* out) {
    if (index < 1 || static_cast<size_t>(index) > docList.size()) return kErrIllegalIndex;
    const std::string& path = docList[static_cast<size_t>(index) - 1];
    if (path.empty()) return kErrPathNotText;
    if (!out) return 0;
    const size_t n = std::min(path.size(), kFilePathBytes);
    std::memcpy(out, path.data(), n);
    if (n < kFilePathBytes) out[n] = '\0';  // a path of 256 bytes or more is left unterminated
    return 0;
}

void clearFileList() { std::vector<std::string>().swap(docList); }

int openProductPage() {
    std::fflush(stdout);
    std::cout.flush();
    return kv::platform::openURL(KELVANE_PRODUCT_URL);
}
