#pragma once

#include <windows.h>

using RPC_WSTR = unsigned short*;
inline constexpr LONG RPC_S_OK = 0;
LONG UuidCreate(UUID* uuid);
LONG UuidToStringW(const UUID* uuid, RPC_WSTR* text);
LONG RpcStringFreeW(RPC_WSTR* text);
