// Logs as hosts write them, and a folder to keep them in.
#pragma once

#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "ScriptedWindows/UniqueName.h"

// A folder of its own, gone with the object.
class LogFolder {
 public:
  LogFolder() : m_path(std::filesystem::temp_directory_path() / (L"qela-log-" + UniqueName())) {
    std::filesystem::create_directory(m_path);
  }
  ~LogFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
  }
  LogFolder(const LogFolder&) = delete;
  LogFolder& operator=(const LogFolder&) = delete;

  std::wstring Path(const std::wstring& name) const { return m_path / name; }
  std::wstring Write(const std::wstring& name, std::string_view bytes) const {
    std::ofstream(std::filesystem::path(Path(name)), std::ios::binary).write(bytes.data(), std::ssize(bytes));
    return Path(name);
  }

 private:
  std::filesystem::path m_path;
};

struct HostFormat {
  const char* name;
  std::function<std::wstring(const std::wstring& text, int number)> write;  // lines without the last line end
};
const std::vector<HostFormat>& HostFormats();

// The messages, one after the other.
std::wstring LogOf(const HostFormat& host, const std::vector<std::wstring>& texts, const std::wstring& lineEnd = L"\n");

// As our own log writes a text on one line.
std::wstring Escaped(std::wstring text);
std::wstring Replaced(std::wstring text, std::wstring_view what, std::wstring_view by);
