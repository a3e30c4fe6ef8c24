// Finding a process by its image name with the system's own tasklist program.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <string>
#include <string_view>

// Runs tasklist hidden and hands out the id of the first process whose image name is exactly `imageName`, letter case
// included. False, with `processId` as it was, when there is none or a call fails. Takes as long as tasklist does, 30
// seconds at most. Throws only std::bad_alloc.
bool FindProcessIdWithTasklist(const std::wstring& imageName, DWORD* processId);

// The same for tasklist's output, for tests: lines of quoted fields separated by commas, image name and id first.
// Other lines are skipped.
bool FindProcessIdInCsv(std::string_view text, const std::wstring& imageName, DWORD* processId);
