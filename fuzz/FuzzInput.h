#pragma once
#include <cstddef>
#include <cstdint>
#include <string>

// The reader works on files, so every input goes through a scratch file first.

// A fresh directory, memory-backed when possible (a disk would flush every input); aborts
// when none can be made.
std::string MakeScratchDirectory(const char* prefix);

// Replaces the file's contents with the input; aborts when it can't.
void WriteInput(const std::string& path, const uint8_t* data, size_t size);
