// The plug-in frame's module state and internal API: the exported data it owns, the TPose
// records it shares with the project file, and the work behind its own exports.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/folder.h"

// One TPose reference, 516 bytes, kept in memory and written to the project file as laid out.
struct TPoseRef {
    uint32_t value;
    char name[255];  // NUL-terminated: the key looked up by GetTPoseRef
    char data[257];  // NUL-terminated text stored with the name
};
static_assert(sizeof(TPoseRef) == 516, "TPoseRef is written to disk as laid out");

// Exported data symbols: the host may read them; they live as long as the library is loaded.
extern "C" {
extern float answer;                   // GetOpenDialog's result when no valid selection is made
extern float imgW;                     // BMP crop width (CropBMP_SetWidth)
extern float colIn;                    // colour/level value for the PSD conversions (SetInColor)
extern kv::platform::Folder* folder;   // the one open folder enumeration, or null
extern std::vector<std::string> docList;  // files chosen in the last open dialog
extern uint32_t thisPrjHdr[4];         // reserved, reserved, reference count, project modifier
extern std::vector<TPoseRef> tPoseList;  // the TPose reference list
}

// The small demonstration class; no host script reaches it.
class Kelvane4 {
public:
    void HelloWorld(const char* text);
};

class Kelvane4Priv {
public:
    void HelloWorldPriv(const char* text);
};

// Internal work behind the frame's own exports.
bool addTPoseRef(const char* name, uint32_t value, const char* data);
const TPoseRef* findTPoseRef(const char* name);
int fileCopyTo(const char* source, const char* destination);

// The open-file dialog and the product page.
constexpr const char* kOpenDialogTitle = "Choose files to Gathermesh...";
constexpr long kNavCBUserAction = 12;   // the event callback's selector for a user action
constexpr int kErrIllegalIndex = -1719;  // an index outside 1..count of docList
constexpr int kErrPathNotText = 1234;    // the chosen path has no text in the host's encoding
constexpr size_t kFilePathBytes = 256;   // the most GetFilePath copies into memBlock1
// The dialog's event callback: a user action that cancels or opens sets answer to 0.
void MyNavEventProc(long selector, int userAction);
// Shows the dialog; keeps a selection in docList and returns its size, answer when the dialog
// ends without one, or the platform's negative code when none could be shown.
float getOpenDialog();
// Copies item index (1-based) of docList into out (see GetFilePath); 0, kErrIllegalIndex, or
// kErrPathNotText for a path the dialog could not express as text (kept as an empty entry).
int getFilePath(int index, char* out);
void clearFileList();
// Flushes standard output and starts the default handler on the product page; 0 or -1.
int openProductPage();
