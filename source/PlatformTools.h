// Path, file and string helpers shared by the driver, the chunk tree and the
// converters. None of them prints or throws; failures show in the result.
#pragma once

#include <cstdint>
#include <cstdio>
#include <ctime>
#include <string>

namespace tolvin {

bool fileExists(const std::string& path, bool unused = false);
int64_t fileSize(const std::string& path);
// True for a plain file (a link to one counts); false for folders, pipes,
// devices, sockets and paths that do not exist.
bool isRegularFile(const std::string& path);
// True when both paths name one existing file (the same file through a link
// or another name counts).
bool sameFile(const std::string& first, const std::string& second);

// Opens a plain file for reading ("rb"); null for anything else, and a pipe
// or device swapped in for the file never blocks the open.
FILE* openRegularFile(const std::string& path);
// Reads up to `count` bytes at `offset` with positioned reads, however many
// that takes, leaving the descriptor's position alone; returns how many it
// got (fewer when the file ends or a read fails first).
uint64_t readAt(int descriptor, void* buffer, uint64_t count, uint64_t offset);

// Text after the last "." of the whole path (not stopping at separators).
std::string getFileExtension(const std::string& path);
// Text before the last "." of the whole path; unchanged without a ".".
std::string stripFileExtension(const std::string& path);
// Text after the later of the last "/" and the last backslash.
std::string getFileFromPath(const std::string& path);
// Text before the later of the last "/" and the last backslash; "." without one.
std::string getPathFromFile(const std::string& path);

// Creates one folder level per call: when the parent is missing, only the
// nearest missing ancestor is created. 0 when the folder exists afterwards
// (or already did), 2 on failure.
int PCreateDir(const std::string& path);

// Replaces each of \ / * ? > < | : and blank with "_", keeping the length.
void cleanPathName(std::string& name);
// Replaces control bytes (below 32, and 127) with `replacement`, so that a
// text taken from a bank can never start a line of its own.
void replaceControlBytes(std::string& text, char replacement);
// `name` cut to at most `limit` bytes where a file system takes no longer
// names: the text before its extension is shortened, never inside a UTF-8
// character, and the extension is kept.
std::string fitFileName(const std::string& name, size_t limit);
// Drops bytes of value 32 or less from both ends.
void trim(const std::string& input, std::string& output);
// Lower-cases A-Z only.
void lowercase(const std::string& input, std::string& output);

bool LittleEndian();

// The local time `when` as asctime writes it, without its line end; "" when
// the clock gives a time the calendar functions cannot express.
std::string conversionDate(std::time_t when);
std::string conversionDate();

// Whole-file reading: a zero-filled buffer of the file length plus the wanted
// spare bytes, rounded up to 16; `spare` returns the spare bytes granted.
uint8_t* binFileInternalize(const std::string& path, uint64_t& length, uint64_t& spare);
uint8_t* binFileAlloc(uint64_t size);
void binFileFree(uint8_t* buffer);
bool binFileExternalize(const std::string& path, const void* data, uint64_t count);

}  // namespace tolvin
