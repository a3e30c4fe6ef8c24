#include "ScriptedWindows/Windows/FakeAdapters.h"

#include <mutex>
#include <utility>

#include "ScriptedWindows/Complaint.h"
#include "ScriptedWindows/ImportTable/HeapWatch.h"

struct FakeAdapters::State {
  mutable std::mutex mutex;
  AdapterList list;
  std::deque<Answer> script;
  ULONG error = ERROR_SUCCESS;
  std::function<void()> hook;
  std::vector<Call> calls;
};

namespace {

// What the replaced call reads. A thread may still be inside it when the patch goes, so the state is shared.
std::mutex g_activeMutex;
std::shared_ptr<void> g_active;

}  // namespace

FakeAdapters::FakeAdapters(HMODULE module, AdapterList list)
    : m_state([&] {
        auto state = std::make_shared<State>();
        state->list = std::move(list);
        const std::lock_guard lock(g_activeMutex);
        Require(g_active == nullptr, "there are fake adapters already");
        g_active = state;
        return state;
      }()),
      m_patch(module, "GetAdaptersAddresses", &FakeAdapters::GetAdapters) {}

FakeAdapters::~FakeAdapters() {
  const std::lock_guard lock(g_activeMutex);
  g_active.reset();
}

void FakeAdapters::Set(AdapterList list) {
  const std::lock_guard lock(m_state->mutex);
  m_state->list = std::move(list);
}

void FakeAdapters::Script(std::vector<Answer> answers) {
  const std::lock_guard lock(m_state->mutex);
  m_state->script.assign(answers.begin(), answers.end());
}

void FakeAdapters::FailAlways(ULONG error) {
  const std::lock_guard lock(m_state->mutex);
  m_state->error = error;
}

void FakeAdapters::OnCall(std::function<void()> hook) {
  const std::lock_guard lock(m_state->mutex);
  m_state->hook = std::move(hook);
}

std::vector<FakeAdapters::Call> FakeAdapters::Calls() const {
  const std::lock_guard lock(m_state->mutex);
  return m_state->calls;
}

std::size_t FakeAdapters::CallCount() const {
  const std::lock_guard lock(m_state->mutex);
  return m_state->calls.size();
}

void FakeAdapters::ClearCalls() {
  const std::lock_guard lock(m_state->mutex);
  m_state->calls.clear();
}

ULONG WINAPI FakeAdapters::GetAdapters(ULONG family, ULONG flags, void* reserved, IP_ADAPTER_ADDRESSES* buffer,
                                       ULONG* bytes) {
  const HeapWatch::Pause pause;
  std::shared_ptr<State> state;
  {
    const std::lock_guard lock(g_activeMutex);
    state = std::static_pointer_cast<State>(g_active);
  }
  if (state == nullptr) return ERROR_NO_DATA;  // the fake has just gone

  std::function<void()> hook;
  {
    const std::lock_guard lock(state->mutex);
    hook = state->hook;
  }
  if (hook) hook();

  const std::lock_guard lock(state->mutex);
  Call call{family, flags, reserved, buffer, *bytes, 0, ERROR_SUCCESS, ::GetCurrentThreadId()};
  if (!state->script.empty()) {
    const Answer answer = state->script.front();
    state->script.pop_front();
    call.result = answer.result;
    if (answer.bytes.has_value()) *bytes = *answer.bytes;
  } else if (state->error != ERROR_SUCCESS) {
    call.result = state->error;
  } else {
    call.result = state->list.CopyTo(buffer, *bytes);
  }
  call.bytesWritten = *bytes;
  state->calls.push_back(call);
  return call.result;
}
