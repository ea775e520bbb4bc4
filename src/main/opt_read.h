// Reading start-up options as every module of the process reads them: silOptRead into a zeroed
// 128-byte buffer, present when the call answers more than 0.
#pragma once

#include <cstdint>

using OptText = char[128];

bool optText(const char* key, OptText& buf);
// Numbers are read as the device's atoi reads them: leading digits, 0 for text; values past 32
// bits wrap rather than being undefined.
uint32_t optNumber(const char* text);
// True when text starts with the letter, in either case.
bool optFirstIs(const char* text, char lower);
