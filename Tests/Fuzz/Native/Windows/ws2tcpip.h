#pragma once

#include <winsock2.h>

INT InetPtonW(INT family, PCWSTR text, void* address);
PCWSTR InetNtopW(INT family, const void* address, PWSTR text, std::size_t units);
