// What the fuzz targets share.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

inline void Require(bool isTrue, const char* fact)
{
    if (isTrue)
        return;
    std::fprintf(stderr, "not true: %s\n", fact);
    std::abort();
}

/// The input up to the next byte 0, which is taken off with it; at the end an empty text.
inline std::string TakeText(std::string* input)
{
    const std::size_t end = input->find('\0');
    std::string text = input->substr(0, end);
    input->erase(0, end == std::string::npos ? end : end + 1);
    return text;
}
