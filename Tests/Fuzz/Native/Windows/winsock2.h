#pragma once

#include <windows.h>
// The system's own; what Windows calls otherwise stands below.
#include <arpa/inet.h>
#include <netinet/in.h>

// NOLINTBEGIN(readability-identifier-naming): Windows' names
struct IN_ADDR {
  union {
    struct {
      UCHAR s_b1, s_b2, s_b3, s_b4;
    } S_un_b;
    ULONG S_addr;
  } S_un;
};
struct IN6_ADDR {
  union {
    UCHAR Byte[16];
    WORD Word[8];
  } u;
};
struct WSADATA {
  int unused;
};
using WSAEVENT = HANDLE;
#define WSA_INVALID_EVENT nullptr
#define MAKEWORD(low, high) static_cast<WORD>((low) | (high) << 8)
int WSAStartup(WORD version, WSADATA* data);
int WSACleanup();
BOOL WSACloseEvent(WSAEVENT event);
// NOLINTEND(readability-identifier-naming)
