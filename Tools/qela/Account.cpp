#include "Account.h"

#include <windows.h>
// After windows.h, which it needs.
#define SECURITY_WIN32
#include <security.h>

#include "Text.h"

std::string AccountName() {
  ULONG size = 0;
  ::GetUserNameExW(NameSamCompatible, nullptr, &size);
  std::wstring name(size, L'\0');
  if (size == 0 || !::GetUserNameExW(NameSamCompatible, name.data(), &size)) return "an account without a name";
  name.resize(size);
  return Printable(name.substr(0, name.find(L'\0')));
}
