// A module as it is when it has just been loaded, beside the one that the process has used.
#pragma once

#include <windows.h>

#include <filesystem>
#include <utility>
#include <vector>

// A copy of the file of a loaded module ("LogLib.dll"), under a name that no other module has.
class ModuleCopy {
 public:
  explicit ModuleCopy(const wchar_t* name);
  ~ModuleCopy();
  ModuleCopy(const ModuleCopy&) = delete;
  ModuleCopy& operator=(const ModuleCopy&) = delete;

  // While it lives, the copy is loaded, and what this program calls of the module it calls of the copy.
  class Loaded {
   public:
    explicit Loaded(const ModuleCopy& copy);
    ~Loaded();
    Loaded(const Loaded&) = delete;
    Loaded& operator=(const Loaded&) = delete;

    HMODULE Module() const { return m_module; }

   private:
    HMODULE m_module;
    std::vector<std::pair<void**, void*>> m_before;  // entries of the program's table
  };

 private:
  HMODULE m_module;
  std::filesystem::path m_file;
};
