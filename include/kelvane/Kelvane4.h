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

/* KELVANE_BUILDING is defined while the plug-in is built (and in programs that link its objects
 * directly): the functions are exported. A program that includes this header to link the
 * installed library imports them. */
#if defined(_WIN32)
#if defined(KELVANE_BUILDING)
#define KV_API __declspec(dllexport)
#else
#define KV_API __declspec(dllimport)
#endif
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
/* Copies text to memBlock1 (the destination is deleted first); 0, or -1 on any failure, a read
   error included (a cut copy is removed). */
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

/* ---- OBJ processing: the polygroup list, append, splits and vertex transfer ---- */

/* Adds group text with int(number) faces to the polygroup list; 0, -2 count <= 0, -1 null text. */
KV_API float GroupListAdd(const char* text, double number, char* memBlock1, char* memBlock2);
/* Copies the name of group int(number) ("null" when out of range) into memBlock1; 0, -1 number <= -1. */
KV_API float GroupListGetName(const char* text, double number, char* memBlock1, char* memBlock2);
/* The number of groups in the list; -1 when it is empty. */
KV_API float GroupListSize(const char* text, double number, char* memBlock1, char* memBlock2);
/* Replaces the list with the group list file text; 0, -3 cannot open, -9 null text. */
KV_API float GroupListLoad(const char* text, double number, char* memBlock1, char* memBlock2);
/* Writes the list to the group list file text; 0, -1 empty list, -3 cannot write, -9 null text. */
KV_API float GroupListSave(const char* text, double number, char* memBlock1, char* memBlock2);
/* Empties the list, the running face index and the face-count map; 0. */
KV_API float GroupListClear(const char* text, double number, char* memBlock1, char* memBlock2);
/* Appends part text to combined memBlock1, indices shifted by int(number); vertices appended, -1, -2, -9. */
KV_API float AppendOBJ(const char* text, double number, char* memBlock1, char* memBlock2);
/* Splits combined OBJ text by its "g" groups into vertex-line files in memBlock1's folder; 0, -1, -2, -3. */
KV_API float SplitOBJ(const char* text, double number, char* memBlock1, char* memBlock2);
/* Splits combined OBJ text by its "g" groups into ".Vyt" vertex files in memBlock1's folder; 0, -1, -2, -3. */
KV_API float SplitOBJtoVyx(const char* text, double number, char* memBlock1, char* memBlock2);
/* Appends the non-vertex, non-comment lines of mesh memBlock1 to vertex file text; 0, -2, -10, -20, -30. */
KV_API float SwapVertices(const char* text, double number, char* memBlock1, char* memBlock2);

/* ---- OBJ processing: splits driven by the polygroup list, face counts, unique names ---- */

/* Splits combined OBJ text by the list's face ranges into vertex-line files "<name>.obj" in memBlock1's folder; 0, -1, -2, -3, -5. */
KV_API float ListSplitOBJtoOBJ(const char* text, double number, char* memBlock1, char* memBlock2);
/* Splits combined OBJ text by the list's face ranges into vertex files "<name>.Vyt" in memBlock1's folder; 0, -1, -2, -3, -5. */
KV_API float ListSplitOBJtoVyx(const char* text, double number, char* memBlock1, char* memBlock2);
/* Builds the group name -> face count map from the list; 0, -5 when the list is empty. */
KV_API float CreateFacesList(const char* text, double number, char* memBlock1, char* memBlock2);
/* The face count of group text; -1 when text is null, the map is empty or holds no such name. */
KV_API float GetFaces(const char* text, double number, char* memBlock1, char* memBlock2);
/* Copies text, or the first free "<text>_copyN" when text was handed out before, into memBlock1; 0 (-1 null text). */
KV_API float CheckName(const char* text, double number, char* memBlock1, char* memBlock2);
/* Forgets every name handed out by CheckName; 0. */
KV_API float ClearNameSet(const char* text, double number, char* memBlock1, char* memBlock2);

/* ---- Vyx mesh files ---- */

/* Writes the OBJ text of Vyx mesh text to memBlock1, faces in the runs set by getFaceIDs; 0.
   -9 null argument, -18 no runs, -1760 unreadable, -2 OBJ not written, a wrong block's tag (positive). */
KV_API float vyxtoOBJ(const char* text, double number, char* memBlock1, char* memBlock2);
/* Sets the face runs from the first face block of text at subdivision level number; the run count. -9, -1760. */
KV_API float getFaceIDs(const char* text, double number, char* memBlock1, char* memBlock2);
/* Writes the RGB comment block of the colour block of text to memBlock1; 0. -9, -1760, -2. */
KV_API float outMRGB(const char* text, double number, char* memBlock1, char* memBlock2);
/* Puts the positions of vertex file text into Vyx file memBlock1; 0. -2 null, -1760 unreadable or vertex records cut,
   -201, -301, -401, -18 no vertex block before the end of the file. */
KV_API float SwapVertices_Vyx(const char* text, double number, char* memBlock1, char* memBlock2);
/* Number of UV tiles of Vyx file text (0 without a UV block); the last face's tile name to memBlock1.
   -17 unreadable or UV records cut. */
KV_API float GetUVTile(const char* text, double number, char* memBlock1, char* memBlock2);
/* Writes one Vyx file per UV tile of text; their number (0 without a UV block). -1760 unreadable or UV records
   cut, 1501 + i file i not written. */
KV_API float GetUVsFromVyx(const char* text, double number, char* memBlock1, char* memBlock2);
/* Copies tile file name int(number) of the last split to memBlock1 (nothing when there is none); 0. */
KV_API float getUVTileString(const char* text, double number, char* memBlock1, char* memBlock2);
/* Forgets the tile file names; 0. */
KV_API float clearUVTileString(const char* text, double number, char* memBlock1, char* memBlock2);

/* ---- The TPose project file ---- */

/* Writes the project header and every TPose reference to file text; 0, -3 empty list, -1 null text, -17 cannot write. */
KV_API float WritePrjFile(const char* text, double number, char* memBlock1, char* memBlock2);
/* Appends data file text (filed under the number its name starts with) to project memBlock1;
   0 (also when an argument is null), -1 data file unreadable, -2 project cannot be appended to. */
KV_API float AddDatFile(const char* text, double number, char* memBlock1, char* memBlock2);
/* Reads project text into the TPose list and extracts its data files as <number>X.dat into the
   folder of path memBlock1; 0 (also when an argument is null), -17 cannot open. */
KV_API float OpenPrjFile(const char* text, double number, char* memBlock1, char* memBlock2);

/* ---- Images: BMP crop, PSD conversions, merge, heal, thumbnails ----
 * BMP: 24-bit uncompressed, header numbers least significant byte first.
 * PSD: version 1, no colour-mode data, raw planar 8-bit data, and header numbers stored least
 * significant byte first (a file in the most-significant-first order is refused with -2).
 * Colours are numbers red * 65536 + green * 256 + blue. The PSD rewrites (swap, stencil, merge,
 * heal) replace their file atomically and write one byte more than they read (the last byte
 * repeated). A PSD file too short for its sections or planes gives -1. */

/* Crops source text to memBlock1: CropBMP_SetWidth pixels from column int(number), all stored rows
   but the first and the last two (a crop wider than a row reads on into the next rows); 0, -1760 no
   source, -5 destination not created, -7 refused: not a BMP, height < 3, column * 3 or width * 3
   beyond 32 bits, rows the file cannot hold, a region outside the pixel bytes in the file, or an
   output over four times those bytes. */
KV_API float CropBMPfile(const char* text, double number, char* memBlock1, char* memBlock2);
/* PSD text: pixels of the SetInColor colour are kept, all others become colour number; 0, -1..-4, -5. */
KV_API float MakeStencilPSD(const char* text, double number, char* memBlock1, char* memBlock2);
/* PSD text: pixels of the SetInColor colour become colour number; 0, -1..-4, -5. */
KV_API float SwapColorsPSD(const char* text, double number, char* memBlock1, char* memBlock2);
/* Grayscale PSD of RGB text at memBlock1, level = number clamped to 0..255; 0, -1..-4, -3 not RGB, -5. */
KV_API float RGBtoGrayscale(const char* text, double number, char* memBlock1, char* memBlock2);
/* Merges PSD text over memBlock1 (key colour number transparent), written to text; 0, -1..-4, -6 size, -5. */
KV_API float MergePSDfiles(const char* text, double number, char* memBlock1, char* memBlock2);
/* memBlock1's borders from text's interior (columns when number > 0, else rows), written to text;
   0, -1..-4, -9 text below 100x100, -6 size, -5. */
KV_API float HealPSDfiles(const char* text, double number, char* memBlock1, char* memBlock2);
/* RGB PSD text scaled into an int(number)-pixel black square at text minus extension + "_thumb.psd";
   0, -1..-4, -3 not RGB, -9 size outside 1..4096, -5. */
KV_API float CreateThumbnail(const char* text, double number, char* memBlock1, char* memBlock2);

/* ---- The open-file dialog and the product page ---- */

/* Shows a modal open dialog "Choose files to Gathermesh..." (several files, hidden files allowed;
   the desktop's file-chooser portal when one runs, else zenity, else kdialog) and keeps the
   chosen paths for GetFilePath; returns their count, or the module value `answer` (0 once a
   dialog has ended) when the dialog is cancelled. -1: no dialog can be shown (no DISPLAY or
   WAYLAND_DISPLAY; no portal and neither program on PATH); -2: the dialog failed. */
KV_API float GetOpenDialog(const char* text, double number, char* memBlock1, char* memBlock2);
/* Copies path int(number) (1-based) of the last selection into memBlock1: at most 256 bytes,
   not NUL-terminated when the path has 256 bytes or more; 0, or -1719 for an index outside
   1..count; 1234 for a path that has no text in the host's code page (Windows only: the
   process's ANSI code page cannot hold one of its characters). 66666 (no file address) does
   not occur. */
KV_API float GetFilePath(const char* text, double number, char* memBlock1, char* memBlock2);
/* Drops the last selection; 0. */
KV_API float ClearFileList(const char* text, double number, char* memBlock1, char* memBlock2);
/* Flushes standard output and starts the default handler (xdg-open, detached) on the product
   web page set at build time (KELVANE_PRODUCT_URL); 0 when started, -1 when it could not be. */
KV_API float inPut(const char* text, double number, char* memBlock1, char* memBlock2);

#ifdef __cplusplus
}
#endif

#endif /* KELVANE_KELVANE4_H */
