#include "FwClient/Service/QeLaLib/ProxyCredentials.h"

#include <windows.h>
#include <BLFramework.h>
#include <KzVariantExport.h>

#include <cstdint>
#include <cwchar>
#include <optional>

#include "FwClient/Common/Utilities/AsciiCase.h"

namespace {

constexpr wchar_t kObjectName[] = L"RVX";
constexpr wchar_t kArgument[] = L"proxyCredentials";
constexpr char kMethodName[] = "proxyCredentials";
constexpr int kObjectNameBytes = 8;

// Cleans up what it has started; a framework that did not start must not be cleaned up, nor asked for anything.
class FrameworkGuard {
 public:
  FrameworkGuard() noexcept : m_started(::BLFrameworkInit() == 0) {}
  ~FrameworkGuard() {
    if (m_started) ::BLFrameworkCleanUp();
  }
  FrameworkGuard(const FrameworkGuard&) = delete;
  FrameworkGuard& operator=(const FrameworkGuard&) = delete;

  bool Started() const noexcept { return m_started; }

 private:
  bool m_started;
};

class ObjectHandleGuard {
 public:
  // The framework takes names in the thread's code page. A name that cannot be converted is not passed at all.
  explicit ObjectHandleGuard(const wchar_t* objectName) noexcept {
    char name[kObjectNameBytes] = {};
    const bool converted =
        ::WideCharToMultiByte(CP_THREAD_ACP, 0, objectName, -1, name, kObjectNameBytes, nullptr, nullptr) != 0;
    m_opened = ::BLGetObjectHandle(converted ? name : nullptr, 0, 0, &m_handle) == 0;
  }
  ~ObjectHandleGuard() {
    if (m_opened) ::BLReleaseObjectHandle(m_handle);
  }
  ObjectHandleGuard(const ObjectHandleGuard&) = delete;
  ObjectHandleGuard& operator=(const ObjectHandleGuard&) = delete;

  bool Opened() const noexcept { return m_opened; }
  BLObjectHandle Get() const noexcept { return m_handle; }

 private:
  BLObjectHandle m_handle = nullptr;
  bool m_opened = false;
};

// Wipes every text of an answer in place at the end of the scope, exceptions included: the framework frees the memory
// as it gets it, and need not wipe it. Texts of all names, since only the product knows which are secret. The product
// hands out its texts as constant, but the answer is the caller's own by then. An empty text is not written to: it may
// be a constant of the product's.
class AnswerWiper {
 public:
  explicit AnswerWiper(const KzVariant* answer) noexcept : m_answer(answer) {}
  ~AnswerWiper() {
    const KzvView answer(m_answer);
    Wipe(answer);
    const KzvList* const list = answer.List();
    for (std::uint32_t i = 0; list != nullptr && i < list->count; ++i) Wipe(answer[i]);
  }
  AnswerWiper(const AnswerWiper&) = delete;
  AnswerWiper& operator=(const AnswerWiper&) = delete;

 private:
  static void Wipe(const KzvView& variant) noexcept {
    auto* const text = const_cast<wchar_t*>(variant.String());
    if (text != nullptr && *text != L'\0') ::SecureZeroMemory(text, std::wcslen(text) * sizeof(wchar_t));
  }

  const KzVariant* m_answer;
};

bool HasName(const KzvView& element, const wchar_t* name) noexcept {
  const wchar_t* const elementName = element.Name();
  return elementName != nullptr && EqualsIgnoringAsciiCase(elementName, name);
}

// The texts go straight from the answer to the context, so that no other copy is made. Elements that are not texts are
// passed over.
void CopyCredentials(const KzvView& answer, ProxyContext& context) {
  const KzvList* const list = answer.List();
  if (list == nullptr) return;
  for (std::uint32_t i = 0; i < list->count; ++i) {
    const KzvView element = answer[i];
    const wchar_t* const text = element.String();
    if (text == nullptr) continue;
    if (HasName(element, L"userName")) AssignSecret(context.userName, text);
    if (HasName(element, L"password")) AssignSecret(context.password, text);
  }
}

}  // namespace

bool GetProxyCredentials(ProxyContext& context, const std::wstring&) {
  const FrameworkGuard framework;
  if (!framework.Started()) return true;
  // Declared before the object's handle because it goes after it: handle, argument, framework is the order in which
  // the framework takes them back. The answer, declared last, goes first.
  std::optional<AutoPtr> argument;
  const ObjectHandleGuard object(kObjectName);
  if (!object.Opened()) return true;
  argument.emplace(KzvString(kArgument, nullptr, 0).BuildNewKzVariant(&::BLAlloc), &::BLFree);
  if (argument->Get() == nullptr) return true;
  KzVariant* answer = nullptr;
  if (::BLInvokeMethod(object.Get(), kMethodName, argument->Get(), &answer) != 0) return true;
  const AutoPtr answerOwner(answer, &::BLFree);
  const AnswerWiper answerWiper(answer);
  CopyCredentials(KzvView(answer), context);
  return true;
}
