// A log file's lines, in blocks, whatever its encoding.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "FwClient/Common/Utilities/UniqueHandle.h"

// Shows on a terminal how far the reading is, once it takes longer than a second. The line is gone with the object.
class LogProgress {
 public:
  LogProgress();
  ~LogProgress();
  LogProgress(const LogProgress&) = delete;
  LogProgress& operator=(const LogProgress&) = delete;

  // `size` is 0 where it is not known.
  void Tell(const std::wstring& path, std::uint64_t done, std::uint64_t size);

 private:
  bool m_isWatched;
  bool m_isShown = false;
  std::chrono::steady_clock::time_point m_next;
};

// What grows on while it is read is read up to the size that it had at first. Lines of more than kLongestLine are
// passed over: they become empty ones.
class LogBlocks {
 public:
  static constexpr std::size_t kLongestLine = 4 << 20;

  // Throws CommandError (kFailed) when the file cannot be opened, and Next when it cannot be read.
  LogBlocks(const std::wstring& path, LogProgress& progress);

  // The next lines, each with its end; only the file's last may have none. They are UTF-8, or in another encoding of
  // which ASCII is a part. Valid until the next call. False at the end.
  bool Next(std::string_view& lines);
  // Whether they are UTF-8 for sure, since the file says so or was UTF-16. From the first block on.
  bool IsUtf8() const { return m_encoding != Encoding::kBytes; }

 private:
  enum class Encoding { kBytes, kUtf8, kUtf16, kUtf16BigEndian };

  bool Fill();
  std::size_t Read(char* to, std::size_t size);
  void Recognise();
  void AppendUtf16();
  void SkipLine();

  std::wstring m_path;
  LogProgress& m_progress;
  UniqueKernelHandle m_file;
  std::optional<std::uint64_t> m_size;  // a pipe has none
  std::uint64_t m_read = 0;
  Encoding m_encoding = Encoding::kBytes;
  bool m_isRecognised = false;
  bool m_isSkipping = false;
  std::string m_raw;  // read, but not yet in the buffer
  std::wstring m_units;
  std::unique_ptr<char[]> m_buffer;
  std::size_t m_begin = 0;  // of what has not been handed out
  std::size_t m_end = 0;
};
