#include "CalculationProgress.h"

#include <algorithm>
#include <chrono>

#include "Output.h"
#include "Text.h"

namespace {

// Takes the beginning off a text that has it.
bool Skip(std::wstring_view& text, std::wstring_view beginning) {
  if (!text.starts_with(beginning)) return false;
  text.remove_prefix(beginning.size());
  return true;
}

}  // namespace

void AwaitedProbe::OnEvent(std::wstring_view text) {
  const std::lock_guard lock(m_mutex);
  if (Skip(text, L"IsCurrentLocation checking location ")) {
    m_location = text;
    const auto found = std::find_if(m_set.begin(), m_set.end(),
                                    [&](const CQeLocation& location) { return location.Name() == m_location; });
    m_record = found == m_set.end() ? nullptr : &*found;
    m_host = 0;
    m_dnsName.clear();
  } else if (Skip(text, L"IsDomainReachable was able to match domain ")) {
    m_host = 0;  // the next adapter begins with the first host
  } else if (Skip(text, L"IsDomainReachable was unable to match domain ")) {
    if (m_record == nullptr) return;
    const std::vector<std::wstring>& hosts = m_record->Criterias().Texts(LCT_DOMAIN_REACHABLE);
    if (!hosts.empty()) m_host = (m_host + 1) % hosts.size();
  } else if (Skip(text, L"IsZELTReachable calling DnsQuery on ")) {
    m_dnsName = text;
  } else if (text.starts_with(L"CheckZeltReachability ")) {
    m_dnsName.clear();
  }
}

std::string AwaitedProbe::Words() const {
  const std::lock_guard lock(m_mutex);
  std::string words;
  if (!m_dnsName.empty())
    words = "DNS for the management server " + Printable(m_dnsName);
  else if (m_record != nullptr && !m_record->Criterias().Texts(LCT_DOMAIN_REACHABLE).empty())
    words = "the web host " + Printable(m_record->Criterias().Texts(LCT_DOMAIN_REACHABLE)[m_host]);
  else
    words = "the library";
  return m_location.empty() ? words : words + " (location \"" + Printable(m_location) + "\")";
}

CalculationProgress::CalculationProgress(const AwaitedProbe& awaited) : m_awaited(awaited) {
  if (IsTerminal(STD_ERROR_HANDLE)) m_thread = std::thread([this] { Run(); });
}

CalculationProgress::~CalculationProgress() {
  {
    const std::lock_guard lock(m_mutex);
    m_hasEnded = true;
  }
  m_changed.notify_one();
  if (m_thread.joinable()) m_thread.join();
}

void CalculationProgress::Run() {
  using std::chrono::seconds;
  std::size_t width = 0;  // of the line that stands there
  const auto show = [&](std::string line) {
    const std::size_t length = line.size();
    if (length < width) line.append(width - length, ' ');
    width = length;
    PrintDiagnostic("\r" + line);
  };
  std::unique_lock lock(m_mutex);
  for (seconds waited(2);
       !m_changed.wait_for(lock, waited == seconds(2) ? waited : seconds(1), [&] { return m_hasEnded; }); ++waited)
    show("qela: waiting for " + m_awaited.Words() + ", " + std::to_string(waited.count()) + " s");
  if (width == 0) return;
  show({});
  PrintDiagnostic("\r");
}
