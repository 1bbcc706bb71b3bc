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

/* ---- The TPose project file ---- */

/* Writes the project header and every TPose reference to file text; 0, -3 empty list, -1 null text, -17 cannot write. */
KV_API float WritePrjFile(const char* text, double number, char* memBlock1, char* memBlock2);
/* Appends data file text (filed under the number its name starts with) to project memBlock1;
   0 (also when an argument is null), -1 data file unreadable, -2 project cannot be appended to. */
KV_API float AddDatFile(const char* text, double number, char* memBlock1, char* memBlock2);
/* Reads project text into the TPose list and extracts its data files as <number>X.dat into the
   folder of path memBlock1; 0 (also when an argument is null), -17 cannot open. */
KV_API float OpenPrjFile(const char* text, double number, char* memBlock1, char* memBlock2);

#ifdef __cplusplus
}
#endif

#endif /* KELVANE_KELVANE4_H */
