#include "ScriptedWindows/ImportTable/HandleLedger.h"

#include <mutex>

void HandleLedger::Opened(const std::string& kind, const std::string& closer, const void* handle) {
  const std::lock_guard lock(m_lock);
  const std::size_t number = ++m_counts[kind];
  m_handles[handle] = {number == 1 ? kind : kind + std::to_string(number), kind, closer, true};
}

void HandleLedger::Closed(const std::string& closer, const void* handle) {
  const std::lock_guard lock(m_lock);
  ++m_counts[closer];
  const auto found = m_handles.find(handle);
  if (found == m_handles.end()) return;
  Entry& entry = found->second;
  if (!entry.open)
    m_mistakes.push_back(entry.kind + " closed twice");
  else if (entry.closer != closer)
    m_mistakes.push_back(entry.kind + " closed by " + closer);
  entry.open = false;
}

void HandleLedger::Entered(const std::string& kind) {
  const std::lock_guard lock(m_lock);
  ++m_counts[kind];
  ++m_entered[kind];
}

void HandleLedger::Left(const std::string& closer, const std::string& kind) {
  const std::lock_guard lock(m_lock);
  ++m_counts[closer];
  if (m_entered[kind] == 0)
    m_mistakes.push_back(closer + " without " + kind);
  else
    --m_entered[kind];
}

std::size_t HandleLedger::Count(const std::string& kindOrCloser) const {
  const std::lock_guard lock(m_lock);
  const auto count = m_counts.find(kindOrCloser);
  return count != m_counts.end() ? count->second : 0;
}

std::size_t HandleLedger::Open(const std::string& kind) const {
  const std::lock_guard lock(m_lock);
  std::size_t open = 0;
  for (const auto& [handle, entry] : m_handles)
    if (entry.open && entry.kind == kind) ++open;
  const auto entered = m_entered.find(kind);
  return entered != m_entered.end() ? open + entered->second : open;
}

std::vector<std::string> HandleLedger::Leaks() const {
  const std::lock_guard lock(m_lock);
  std::map<std::string, std::size_t> open = m_entered;
  for (const auto& [handle, entry] : m_handles)
    if (entry.open) ++open[entry.kind];
  std::vector<std::string> leaks;
  for (const auto& [kind, count] : open)
    if (count != 0) leaks.push_back(kind + " x" + std::to_string(count));
  return leaks;
}

std::vector<std::string> HandleLedger::OpenHandles() const {
  const std::lock_guard lock(m_lock);
  std::vector<std::string> names;
  for (const auto& [handle, entry] : m_handles)
    if (entry.open) names.push_back(entry.name);
  return names;
}

std::vector<std::string> HandleLedger::Mistakes() const {
  const std::lock_guard lock(m_lock);
  return m_mistakes;
}

bool HandleLedger::Knows(const void* handle) const {
  const std::lock_guard lock(m_lock);
  return m_handles.contains(handle);
}

bool HandleLedger::IsOpen(const void* handle) const {
  const std::lock_guard lock(m_lock);
  const auto found = m_handles.find(handle);
  return found != m_handles.end() && found->second.open;
}

std::string HandleLedger::Use(const void* handle) {
  if (handle == nullptr) return "null";
  const std::lock_guard lock(m_lock);
  const auto found = m_handles.find(handle);
  if (found == m_handles.end()) {
    m_mistakes.emplace_back("a handle used that nobody gave out");
    return "?";
  }
  if (!found->second.open) m_mistakes.push_back(found->second.name + " used after it was closed");
  return found->second.name;
}

void HandleLedger::Forget(const void* handle) {
  const std::lock_guard lock(m_lock);
  m_handles.erase(handle);
}
