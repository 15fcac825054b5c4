// The data a command works on, read whole from a file or stdin, and its
// result written to stdout, both untouched by text-mode conversions.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "secret_bytes.h"

// "-" or an empty path reads stdin. Throws ClientError (exit_code::kData).
SecretBytes ReadData(const std::string& path);

// Throws ClientError (exit_code::kData) when stdout cannot take it.
void WriteData(const uint8_t* data, size_t size);

// The -o option: the file at path, or stdout when path is empty or "-".
// Throws ClientError (exit_code::kData).
void WriteOutput(const std::string& path, const uint8_t* data, size_t size);

// Puts stdin and stdout in binary mode where the platform has a text mode.
void UseBinaryStdio();
