// Whole files, and standard input.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

inline constexpr std::uint64_t kMostFileBytes = 64ULL << 20;

// The file's name for messages; "-" is standard input.
std::string ShownFileName(const std::wstring& path);

// "-" reads standard input. Throws CommandError (kFailed) with the path and the reason, also when there is more than
// `limit`.
std::string ReadFileBytes(const std::wstring& path, std::uint64_t limit = kMostFileBytes);

// What stands there keeps standing until all has been written. Throws CommandError (kFailed) with the path and the
// reason.
void WriteFileBytes(const std::wstring& path, const std::string& bytes);

// For who reads or writes a file by other ways. `error` is the system's.
[[noreturn]] void FailReading(const std::wstring& path, unsigned long error);
[[noreturn]] void FailWriting(const std::wstring& path, unsigned long error);

// A page is never written over what it tells of: throws CommandError (kFailed) when it is one of the logs.
void RefuseToOverwrite(const std::vector<std::wstring>& logs, const std::wstring& page);
