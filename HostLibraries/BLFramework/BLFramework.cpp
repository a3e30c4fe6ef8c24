#include <windows.h>
#include <BLFrameworkCallback.h>
#include <BLFrameworkHost.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "FwClient/Common/Utilities/HostCallback.h"

struct BLObject {};

namespace {

constexpr int kStatusFailed = 1;
constexpr int kStatusUnknown = 2;  // no such object, handle or method, or not initialized

struct NamedText {
  std::optional<std::wstring> name;
  std::optional<std::wstring> text;
};

struct State {
  HostCallback<qela_credentials_callback> callback;
  CriticalSection lock;
  std::vector<NamedText> answer;
  unsigned int initializations = 0;
  std::set<BLObjectHandle> handles;
  std::map<void*, std::size_t> blocks;
};

// Made when the library is loaded, which takes no memory that a first call would have to have. Never destroyed: a
// host's thread may still be in a call when the process ends.
union Immortal {
  Immortal() : state() {}
  ~Immortal() {}
  Immortal(const Immortal&) = delete;
  Immortal& operator=(const Immortal&) = delete;

  State state;
} g_immortal;

State& TheState() { return g_immortal.state; }

// What a function for C makes of running out of memory, the only thing that throws here.
template <typename Result, typename Body>
Result WithoutThrowing(Result lack, Body body) noexcept {
  try {
    return body();
  } catch (...) {
    return lack;
  }
}

[[noreturn]] void EndProcess(const char* reason) {
  static_cast<void>(std::fprintf(stderr, "blframework: %s\n", reason));
  std::abort();
}

// Null when there is no memory.
void* Allocate(State& state, std::size_t bytes) noexcept {
  return WithoutThrowing<void*>(nullptr, [&] {
    std::unique_ptr<void, decltype(&std::free)> block(std::malloc(bytes), &std::free);
    if (block != nullptr) state.blocks.emplace(block.get(), bytes);
    return block.release();
  });
}

// Throws where there is no memory: a null answer is what a host may have set.
KzVariant* OrThrow(KzVariant* variant) {
  if (variant == nullptr) throw std::bad_alloc();
  return variant;
}

KzVariant* BuildList(const std::vector<NamedText>& texts) {
  std::vector<KzvElement> elements;
  elements.reserve(texts.size());
  for (const NamedText& text : texts)
    elements.push_back({text.name ? text.name->c_str() : nullptr, text.text ? text.text->c_str() : nullptr});
  return OrThrow(BuildNewKzVariantList(elements.data(), static_cast<std::uint32_t>(elements.size()),
                                       [](std::size_t bytes) { return Allocate(TheState(), bytes); }));
}

// What the host's callback answers; nothing when none is set. It runs outside the lock, since it may call the
// framework. The only copies of the texts are wiped: this one at the end, the answer when it is freed.
class HostCredentials {
 public:
  explicit HostCredentials(State& state) {
    m_credentials.size = sizeof m_credentials;
    state.callback.Run([&](const auto& target) {
      m_asked = true;
      m_given = target.function(&m_credentials, target.context) == QELA_STATUS_OK;
    });
    m_credentials.user_name[QELA_USER_NAME_UNITS - 1] = L'\0';
    m_credentials.password[QELA_PASSWORD_UNITS - 1] = L'\0';
  }
  ~HostCredentials() { ::SecureZeroMemory(&m_credentials, sizeof m_credentials); }
  HostCredentials(const HostCredentials&) = delete;
  HostCredentials& operator=(const HostCredentials&) = delete;

  bool Asked() const noexcept { return m_asked; }
  KzVariant* BuildAnswer() const {
    const KzvElement elements[] = {{L"userName", m_credentials.user_name}, {L"password", m_credentials.password}};
    return OrThrow(BuildNewKzVariantList(elements, m_given ? 2 : 0,
                                         [](std::size_t bytes) { return Allocate(TheState(), bytes); }));
  }

 private:
  qela_credentials m_credentials{};
  bool m_asked = false;
  bool m_given = false;
};

void SetAnswer(std::vector<NamedText> answer) {
  State& state = TheState();
  const std::lock_guard lock(state.lock);
  state.answer.swap(answer);
}

}  // namespace

int BLFrameworkInit() noexcept {
  State& state = TheState();
  const std::lock_guard lock(state.lock);
  ++state.initializations;
  return 0;
}

void BLFrameworkCleanUp() noexcept {
  State& state = TheState();
  const std::lock_guard lock(state.lock);
  if (state.initializations == 0) EndProcess("BLFrameworkCleanUp without BLFrameworkInit");
  --state.initializations;
}

int BLGetObjectHandle(const char* objectName, unsigned int, unsigned int, BLObjectHandle* objectHandle) noexcept {
  State& state = TheState();
  const std::lock_guard lock(state.lock);
  if (state.initializations == 0 || objectName == nullptr || std::strcmp(objectName, "RVX") != 0) return kStatusUnknown;
  return WithoutThrowing(kStatusFailed, [&] {
    auto object = std::make_unique<BLObject>();
    state.handles.insert(object.get());
    *objectHandle = object.release();
    return 0;
  });
}

int BLReleaseObjectHandle(BLObjectHandle objectHandle) noexcept {
  State& state = TheState();
  const std::lock_guard lock(state.lock);
  if (state.handles.erase(objectHandle) == 0) EndProcess("BLReleaseObjectHandle of an unknown handle");
  delete objectHandle;
  return 0;
}

int BLInvokeMethod(BLObjectHandle objectHandle, const char* method, const KzVariant* argument,
                   KzVariant** answer) noexcept {
  State& state = TheState();
  std::unique_lock lock(state.lock);
  const wchar_t* const text = KzvView(argument).String();
  if (!state.handles.contains(objectHandle) || std::strcmp(method, "proxyCredentials") != 0 || text == nullptr ||
      std::wcscmp(text, L"proxyCredentials") != 0)
    return kStatusUnknown;
  lock.unlock();
  return WithoutThrowing(kStatusFailed, [&] {
    const HostCredentials credentials(state);
    lock.lock();
    *answer = credentials.Asked() ? credentials.BuildAnswer() : BuildList(state.answer);
    return 0;
  });
}

void* BLAlloc(std::size_t bytes) noexcept {
  State& state = TheState();
  const std::lock_guard lock(state.lock);
  return Allocate(state, bytes);
}

void BLFree(void* memory) noexcept {
  if (memory == nullptr) return;
  State& state = TheState();
  const std::lock_guard lock(state.lock);
  const auto block = state.blocks.find(memory);
  if (block == state.blocks.end()) EndProcess("BLFree of memory that is not the framework's");
  ::SecureZeroMemory(memory, block->second);  // an answer may hold a password
  state.blocks.erase(block);
  std::free(memory);
}

qela_status QELA_CALL BLFrameworkSetCredentialsCallback(qela_credentials_callback callback, void* context) {
  State& state = TheState();
  state.callback.Set(callback, context);
  state.callback.WaitForEarlier(INFINITE);
  return QELA_STATUS_OK;
}

namespace BLFrameworkHost {

void setAnswer(const KzvElement* elements, std::uint32_t count) {
  std::vector<NamedText> texts(count);
  for (std::uint32_t i = 0; i < count; ++i) {
    if (elements[i].name != nullptr) texts[i].name = elements[i].name;
    if (elements[i].text != nullptr) texts[i].text = elements[i].text;
  }
  SetAnswer(std::move(texts));
}

void setProxyCredentials(const wchar_t* userName, const wchar_t* password) {
  const KzvElement elements[] = {{L"userName", userName}, {L"password", password}};
  setAnswer(elements, 2);
}

void reset() { SetAnswer({}); }

InUse inUse() {
  State& state = TheState();
  const std::lock_guard lock(state.lock);
  return {state.initializations, static_cast<unsigned int>(state.handles.size()),
          static_cast<unsigned int>(state.blocks.size())};
}

}  // namespace BLFrameworkHost
