// The library as a file that is loaded.
#include <windows.h>

#include <cstddef>
#include <string>
#include <vector>

#include "Bench/Job.h"
#include "Tests/Support/TestFile.h"

namespace {

constexpr double kLargestBytes = 1'258'291;  // 1.2 MiB

bool LoadAndUnload(const std::wstring& path) {
  const HMODULE module = ::LoadLibraryW(path.c_str());
  return module != nullptr && ::FreeLibrary(module) != FALSE;
}

template <typename T>
const T* At(HMODULE module, DWORD offset) {
  return reinterpret_cast<const T*>(reinterpret_cast<const std::byte*>(module) + offset);
}

// References to what a library imports from, so that it stays loaded while the library comes and goes: Windows' part of
// the time would hide the library's.
class LoadedImports {
 public:
  explicit LoadedImports(const std::wstring& path) {
    const HMODULE module = ::LoadLibraryW(path.c_str());
    if (module == nullptr) return;
    const auto* const dos = At<IMAGE_DOS_HEADER>(module, 0);
    const auto* const headers = At<IMAGE_NT_HEADERS>(module, static_cast<DWORD>(dos->e_lfanew));
    const IMAGE_DATA_DIRECTORY& table = headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
    for (const auto* import = At<IMAGE_IMPORT_DESCRIPTOR>(module, table.VirtualAddress); import->Name != 0; ++import)
      m_modules.push_back(::LoadLibraryA(At<char>(module, import->Name)));
    ::FreeLibrary(module);
  }
  ~LoadedImports() {
    for (const HMODULE module : m_modules) ::FreeLibrary(module);
  }
  LoadedImports(const LoadedImports&) = delete;
  LoadedImports& operator=(const LoadedImports&) = delete;

 private:
  std::vector<HMODULE> m_modules;
};

void Load(Run& run) {
  const std::wstring own = (ProgramFolder() / L"QeLaLib.dll").native();
  const std::wstring floor = (ProgramFolder() / L"EmptyDll.dll").native();
  const LoadedImports imports(own);
  if (!LoadAndUnload(own) || !LoadAndUnload(floor)) return run.Fail("a library does not load");
  run.Compare([&] { LoadAndUnload(own); }, [&] { LoadAndUnload(floor); });
}

void Measure(Run& run) {
  WIN32_FILE_ATTRIBUTE_DATA file{};
  if (!::GetFileAttributesExW((ProgramFolder() / L"QeLaLib.dll").c_str(), GetFileExInfoStandard, &file))
    return run.Fail("there is no QeLaLib.dll");
  run.Tell(file.nFileSizeLow);
}

}  // namespace

void AddModuleJobs(Jobs& jobs) {
  jobs.push_back({.name = "load and unload", .goal = {.factor = 2.5}, .measure = Load});
  jobs.push_back({.name = "size of QeLaLib.dll",
                  .unit = Unit::kBytes,
                  .goal = {.constant = kLargestBytes},
                  .measure = Measure,
                  .pace = Job::Pace::kOnce});
}
