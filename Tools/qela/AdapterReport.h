// The adapters as the library saw them. Its interface hands out none, but it reports every adapter of every calculation
// to the host's log, and a host owns its log.
#pragma once

#include <LogLibHost.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "FwClient/Service/QeLaLib/AdapterProps.h"

// Reads the text that follows "Adapter properties:\n" in an event; empty when it is not of that form.
//
// Description and DNS suffix may hold anything, labels and line breaks included. All other fields hold no line break,
// so the suffix, which comes from the network, is always told apart; a description could only be misread if it imitated
// the whole report.
std::optional<AdapterProps> ParseAdapterProperties(std::wstring_view text);

// Listens to the log while it lives. One at a time.
class AdapterReport {
 public:
  // `onSkipped` is called on the discovery thread each time the library says there that it does not call its host,
  // because the list is the one that it reported last. It must not throw.
  // `onEvent` is called with every event, first, on the thread that logs it. It must not throw either.
  explicit AdapterReport(std::function<void()> onSkipped = {}, std::function<void(std::wstring_view)> onEvent = {});
  ~AdapterReport();
  AdapterReport(const AdapterReport&) = delete;
  AdapterReport& operator=(const AdapterReport&) = delete;

  // The adapters of the last calculation, in the library's order. On the thread that runs a calculation's callback
  // these are the adapters which that calculation matched.
  std::vector<AdapterProps> Adapters() const;

  // How many adapters of the last calculation were reported in a form that could not be read.
  std::size_t Unreadable() const;

 private:
  void OnEvent(std::wstring_view text);

  const std::function<void()> m_onSkipped;
  const std::function<void(std::wstring_view)> m_onEvent;
  mutable std::mutex m_mutex;
  std::vector<AdapterProps> m_adapters;
  std::size_t m_unreadable = 0;
};
