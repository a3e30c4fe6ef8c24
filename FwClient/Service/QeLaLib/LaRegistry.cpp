#include "FwClient/Service/QeLaLib/LaRegistry.h"

#include <limits>
#include <utility>

#include "FwClient/Common/Utilities/UniqueHandle.h"

namespace {

// One query; with a null buffer it tells the size only. A value of another type is ERROR_INVALID_DATA.
LSTATUS QueryBinary(HKEY key, const std::wstring& name, BYTE* buffer, DWORD& size) {
  DWORD type = REG_NONE;
  const LSTATUS status = ::RegQueryValueExW(key, name.c_str(), nullptr, &type, buffer, &size);
  if (status != ERROR_SUCCESS) return status;
  return type == REG_BINARY ? ERROR_SUCCESS : ERROR_INVALID_DATA;
}

}  // namespace

unsigned long ReadLaValue(const std::wstring& keyPath, const std::wstring& valueName,
                          std::vector<std::uint8_t>& bytes) {
  UniqueRegKey key;
  LSTATUS status = ::RegOpenKeyExW(HKEY_LOCAL_MACHINE, keyPath.c_str(), 0, KEY_READ, key.put());
  if (status != ERROR_SUCCESS) return static_cast<unsigned long>(status);

  DWORD size = 0;
  status = QueryBinary(key.get(), valueName, nullptr, size);
  if (status != ERROR_SUCCESS) return static_cast<unsigned long>(status);

  // The value may have changed since: one that has grown is a failed read, one that has shrunk is cut to size. A value
  // that was empty has no buffer, so that the second query, too, only tells the size.
  std::vector<std::uint8_t> read(size);
  status = QueryBinary(key.get(), valueName, read.data(), size);
  if (status != ERROR_SUCCESS) return static_cast<unsigned long>(status);
  if (size > read.size()) return ERROR_MORE_DATA;
  read.resize(size);
  bytes = std::move(read);
  return ERROR_SUCCESS;
}

unsigned long WriteLaValue(const std::wstring& keyPath, const std::wstring& valueName,
                           const std::vector<std::uint8_t>& bytes) {
  if (bytes.size() > std::numeric_limits<DWORD>::max()) return ERROR_INVALID_PARAMETER;
  UniqueRegKey key;
  LSTATUS status = ::RegOpenKeyExW(HKEY_LOCAL_MACHINE, keyPath.c_str(), 0, KEY_ALL_ACCESS, key.put());
  if (status != ERROR_SUCCESS)
    status = ::RegCreateKeyExW(HKEY_LOCAL_MACHINE, keyPath.c_str(), 0, nullptr, 0, KEY_READ | KEY_WRITE, nullptr,
                               key.put(), nullptr);
  if (status == ERROR_SUCCESS)
    status =
        ::RegSetValueExW(key.get(), valueName.c_str(), 0, REG_BINARY, bytes.data(), static_cast<DWORD>(bytes.size()));
  if (status == ERROR_SUCCESS) status = ::RegFlushKey(key.get());
  return static_cast<unsigned long>(status);
}
