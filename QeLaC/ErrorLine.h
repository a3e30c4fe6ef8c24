// The library's printf-style error printer, as a callback with a whole line.
#pragma once

void PrintErrorLine(const char* format, ...);
