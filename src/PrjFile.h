// The TPose project file: the reference list of FrameState.h saved with attached data files,
// and reopened with the data files extracted. Part of the plug-in frame's own subsystem, kept
// in a file of its own so that Kelvane4.cpp stays the export table.
//
// Layout (every word unsigned 32-bit, most significant byte first):
//   header  16 bytes          the four words of thisPrjHdr (reserved, reserved, count N, modifier)
//   records N x 516 bytes     the TPoseRef records: value word, 255-byte name, 257-byte data
//   chunks  any number        number, length L = data size + 16, 0, 0, the L - 16 data bytes,
//                             then one padding byte (a copy of the last data byte; 0 when empty)
#pragma once

#include <cstddef>
#include <cstdint>

inline constexpr size_t kPrjHeaderSize = 16;
inline constexpr size_t kPrjRecordSize = 516;
inline constexpr size_t kPrjChunkHeaderSize = 16;

// Writes the header and every record of tPoseList to path (an existing file is replaced
// atomically). 0, or -17 when the file cannot be written.
int writePrjFile(const char* path);

// Appends the data file at datPath as one chunk to the project at prjPath (created when missing).
// The project's header is left as it is. 0; -1 when the data file cannot be read (or is too large
// for a chunk); -2 when the project cannot be appended to.
int addDatFile(const char* datPath, const char* prjPath);

// The number a data file is filed under: the leading decimal digits of its name without folder
// and extension; 0 when the name does not start with a number or the number exceeds 32 bits.
uint32_t datFileNumber(const char* datPath);

// Reads the project at prjPath: replaces thisPrjHdr and tPoseList, then extracts every chunk as
// <number>X.dat into the folder part of targetPath. -17 when the file cannot be read (the state is
// then untouched), else 0. Never trusts the file: only records wholly present are taken, chunks
// shorter than their header or reaching the end of the file are skipped, and nothing is written
// outside the folder of targetPath.
int openPrjFile(const char* prjPath, const char* targetPath);
