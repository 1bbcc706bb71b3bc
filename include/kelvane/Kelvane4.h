/*
 * Kelvane4: the plug-in's exported functions.
 *
 * The host loads libKelvane4 and calls these functions by name. Every one has the same
 * signature, unused arguments included:
 *
 *   float F(const char* text, double number, char* memBlock1, char* memBlock2)
 *
 *   text       read-only NUL-terminated input, usually a path
 *   number     numeric input (index, size, flag, value)
 *   memBlock1  second input text (usually a second path) or the output text buffer
 *   memBlock2  never read or written
 *
 * The result is 0 or a positive count/value on success and a negative code on failure
 * (the few positive diagnostics are noted below). Text results are copied into memBlock1
 * NUL-terminated; the caller provides a block large enough.
 *
 * Numbers become integers by truncation toward zero with saturation ("int": NaN gives
 * -2147483648; "uint": saturates at 4294967295, NaN gives 2147483648) and floats by rounding
 * ("single").
 */
#ifndef KELVANE_KELVANE4_H
#define KELVANE_KELVANE4_H

#if defined(_WIN32)
#define KV_API __declspec(dllexport)
#else
#define KV_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* The host signature, for callers that resolve exports by name. */
typedef float (*KelvaneFn)(const char* text, double number, char* memBlock1, char* memBlock2);

/* ---- Module settings and the TPose reference list ---- */

/* 4.05. */
KV_API float Version(const char* text, double number, char* memBlock1, char* memBlock2);
/* Project modifier = uint(number); -1 when number is not greater than 0 (NaN included). */
KV_API float SetPrjModfier(const char* text, double number, char* memBlock1, char* memBlock2);
/* The project modifier, as an unsigned value. */
KV_API float GetPrjModfier(const char* text, double number, char* memBlock1, char* memBlock2);
/* BMP crop width = single(number); 0. */
KV_API float CropBMP_SetWidth(const char* text, double number, char* memBlock1, char* memBlock2);
/* Colour/level value for the PSD conversions = single(number); 0. */
KV_API float SetInColor(const char* text, double number, char* memBlock1, char* memBlock2);
/* Empties the TPose list and zeroes the project header; 0. */
KV_API float ClearTPoseList(const char* text, double number, char* memBlock1, char* memBlock2);
/* Appends (value = uint(number), name = text, data = memBlock1); -1 number <= 0, -2 null text/memBlock1. */
KV_API float AddTPoseRef(const char* text, double number, char* memBlock1, char* memBlock2);
/* Copies the data of the first reference named text into memBlock1; its value; -5 empty list, -1 null/not found. */
KV_API float GetTPoseRef(const char* text, double number, char* memBlock1, char* memBlock2);

/* ---- File and folder primitives ---- */

/* Deletes the file text; 0, or -1 (null text, or the system refuses). */
KV_API float FileDelete(const char* text, double number, char* memBlock1, char* memBlock2);
/* Copies text to memBlock1 (the destination is deleted first); 0, or -1 on any failure. */
KV_API float FileCopyTo(const char* text, double number, char* memBlock1, char* memBlock2);
/* Renames text to memBlock1; 0, or -1 (null argument, or the system refuses). */
KV_API float FileRename(const char* text, double number, char* memBlock1, char* memBlock2);
/* Opens folder text for listing with GetFile; 0, or -1 when it cannot be opened. */
KV_API float OpenFolder(const char* text, double number, char* memBlock1, char* memBlock2);
/* Copies the next entry name ("." and ".." included) into memBlock1; 0, -1 no folder open, -3 no more entries. */
KV_API float GetFile(const char* text, double number, char* memBlock1, char* memBlock2);
/* Closes the folder opened by OpenFolder; 0, or -1 when none is open. */
KV_API float CloseFolder(const char* text, double number, char* memBlock1, char* memBlock2);
/* Deletes the dotted entries of folder text (a backslash is appended to the path unless it ends in one); 0 or -1. */
KV_API float EmptyFolder(const char* text, double number, char* memBlock1, char* memBlock2);

/* ---- Vyx mesh files ---- */

/* Writes the OBJ text of Vyx mesh text to memBlock1, faces in the runs set by getFaceIDs; 0.
   -9 null argument, -18 no runs, -1760 unreadable, -2 OBJ not written, a wrong block's tag (positive). */
KV_API float vyxtoOBJ(const char* text, double number, char* memBlock1, char* memBlock2);
/* Sets the face runs from the first face block of text at subdivision level number; the run count. -9, -1760. */
KV_API float getFaceIDs(const char* text, double number, char* memBlock1, char* memBlock2);
/* Writes the RGB comment block of the colour block of text to memBlock1; 0. -9, -1760, -2. */
KV_API float outMRGB(const char* text, double number, char* memBlock1, char* memBlock2);
/* Puts the positions of vertex file text into Vyx file memBlock1; 0. -2 null, -1760, -201, -301, -401, -18. */
KV_API float SwapVertices_Vyx(const char* text, double number, char* memBlock1, char* memBlock2);
/* Number of UV tiles of Vyx file text; the last face's tile name to memBlock1. -17 unreadable. */
KV_API float GetUVTile(const char* text, double number, char* memBlock1, char* memBlock2);
/* Writes one Vyx file per UV tile of text; their number. -1760 unreadable, 1501 + i file i not written. */
KV_API float GetUVsFromVyx(const char* text, double number, char* memBlock1, char* memBlock2);
/* Copies tile file name int(number) of the last split to memBlock1 (nothing when there is none); 0. */
KV_API float getUVTileString(const char* text, double number, char* memBlock1, char* memBlock2);
/* Forgets the tile file names; 0. */
KV_API float clearUVTileString(const char* text, double number, char* memBlock1, char* memBlock2);

#ifdef __cplusplus
}
#endif

#endif /* KELVANE_KELVANE4_H */
