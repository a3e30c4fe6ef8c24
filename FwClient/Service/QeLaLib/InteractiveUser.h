// The user who is logged on at the console, found by the process of the user's shell.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <string>
#include <string_view>

// Hands out the access token of the process that runs the user's shell. 0 for success, and the caller closes the token;
// otherwise 0x80004005 (E_FAIL) and a null token. Throws only std::bad_alloc.
HRESULT GetInteractiveUserToken(HANDLE* token);

// True on a 64-bit system, where the process is found with tasklist; elsewhere a snapshot of the processes tells.
bool IsWow64SystemDirectoryPresent();

// Runs the system's tasklist program hidden and hands out the id of the first process whose image name is exactly
// `imageName`, letter case included. False, with `processId` as it was, when there is none or a call fails. Takes as
// long as tasklist does, 30 seconds at most. Throws only std::bad_alloc.
bool FindProcessIdWithTasklist(const std::wstring& imageName, DWORD* processId);

// The same for tasklist's output, for tests: lines of quoted fields separated by commas, image name and id first.
// Other lines are skipped.
bool FindProcessIdInCsv(std::string_view text, const std::wstring& imageName, DWORD* processId);
