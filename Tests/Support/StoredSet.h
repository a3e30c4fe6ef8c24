// The stored location set, in either kind of a test's own registry.
#pragma once

#include <windows.h>

#include <cstdint>
#include <optional>
#include <vector>

#include "ScriptedWindows/Windows/ScriptedRegistry.h"

// Below HKEY_LOCAL_MACHINE.
inline constexpr wchar_t kLaKeyPath[] = L"SOFTWARE\\Corvane\\Tessel\\Firewall\\LA";
inline constexpr wchar_t kLaValueName[] = L"la";

template <typename Registry>
class WithStoredSet : public Registry {
 public:
  using Registry::Registry;

  void Put(const std::vector<std::uint8_t>& bytes, DWORD type = REG_BINARY) {
    Registry::Set(kLaKeyPath, kLaValueName, type, bytes.data(), bytes.size());
  }
  bool HasKey() const { return Registry::HasKey(kLaKeyPath); }
  std::optional<std::vector<std::uint8_t>> Value() const { return Registry::Value(kLaKeyPath, kLaValueName); }
};

// In memory.
class StoredRegistry : public WithStoredSet<ScriptedRegistry> {
 public:
  using WithStoredSet<ScriptedRegistry>::WithStoredSet;

  void MakeEmptyKey() {
    RemoveKey(kLaKeyPath);
    MakeKey(kLaKeyPath);
  }
  void Remove() { RemoveKey(kLaKeyPath); }
  DWORD ValueType() const { return TypeOf(kLaKeyPath, kLaValueName); }
};
