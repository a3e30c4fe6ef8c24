// A user's certificate store and a server's list of issuers, as a test scripts them.
#pragma once

#include "ScriptedWindows/Windows/WindowsScript.h"
// After windows.h.
#include <wincrypt.h>
#include <winhttp.h>

class FakeCertificates : public OnlyOne<FakeCertificates> {
 public:
  explicit FakeCertificates(WindowsScript& script);

  // How many certificates of the store match.
  std::size_t matching = 1;
  // How many issuers the server lists, and whether there is a list at all.
  DWORD issuers = 1;
  bool listsIssuers = true;
  std::wstring issuerName = L"CN=Test";

 private:
  // A chain of one certificate, and the store that it was found in.
  struct Chain {
    HCERTSTORE store = nullptr;
    CERT_CONTEXT certificate{};
    CERT_CHAIN_ELEMENT element{};
    CERT_CHAIN_ELEMENT* elements[1]{};
    CERT_SIMPLE_CHAIN simple{};
    CERT_SIMPLE_CHAIN* simples[1]{};
    CERT_CHAIN_CONTEXT context{};
  };

  static HCERTSTORE WINAPI OpenStore(LPCSTR, DWORD, HCRYPTPROV_LEGACY, DWORD, const void*);
  static BOOL WINAPI CloseStore(HCERTSTORE, DWORD);
  static PCCERT_CHAIN_CONTEXT WINAPI FindChain(HCERTSTORE, DWORD, DWORD, DWORD, const void*, PCCERT_CHAIN_CONTEXT);
  static void WINAPI FreeChain(PCCERT_CHAIN_CONTEXT);
  static PCCERT_CONTEXT WINAPI DuplicateCertificate(PCCERT_CONTEXT);
  static BOOL WINAPI FreeCertificate(PCCERT_CONTEXT);
  static DWORD WINAPI NameToText(DWORD, PCERT_NAME_BLOB, DWORD, LPWSTR, DWORD);
  static BOOL WINAPI QueryOption(HINTERNET, DWORD, LPVOID, LPDWORD);

  WindowsScript& m_script;
  std::deque<Chain> m_chains;
  std::deque<CERT_CONTEXT> m_duplicates;
  CERT_NAME_BLOB m_issuer{};
  void* m_list = nullptr;
  std::deque<ImportPatch> m_patches;
};
