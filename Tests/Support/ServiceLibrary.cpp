#include "Tests/Support/ServiceLibrary.h"

#include <gtest/gtest.h>

#include "Tests/Support/TestFile.h"

namespace {

template <typename Function>
Function FindExport(HMODULE module, const char* name) {
  const FARPROC function = ::GetProcAddress(module, name);
  if (function == nullptr) ADD_FAILURE() << "no export " << name;
  return reinterpret_cast<Function>(reinterpret_cast<void*>(function));
}

}  // namespace

ServiceLibrary::ServiceLibrary() : m_module(::LoadLibraryW((ProgramFolder() / L"QeLaLib.dll").c_str())) {
  if (m_module == nullptr) {
    ADD_FAILURE() << "QeLaLib.dll does not load, error " << ::GetLastError();
    return;
  }
  m_getApi = FindExport<decltype(m_getApi)>(m_module, "GetQeLaApi");
  m_getApiSmart = FindExport<decltype(m_getApiSmart)>(m_module, "GetQeLaApiSmart");
}

ServiceLibrary::~ServiceLibrary() { Unload(); }

void ServiceLibrary::Unload() {
  if (m_module != nullptr) ::FreeLibrary(m_module);
  m_module = nullptr;
}
