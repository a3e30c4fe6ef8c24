// A scripted machine that moves between networks, and the locations that are those networks.
#pragma once

#include <windows.h>

#include <cstddef>
#include <format>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "FwClient/Service/QeLaLib/Include/QeLaApi.h"
#include "ScriptedWindows/ImportTable/PlainLock.h"
#include "ScriptedWindows/Windows/AdapterList.h"
#include "ScriptedWindows/Windows/FakeAdapters.h"
#include "ScriptedWindows/Windows/FakeAddressChanges.h"
#include "ScriptedWindows/Windows/FakeAddressTable.h"

// Networks are numbered. Each has a gateway of its own, by which a location knows it.
constexpr unsigned kNetworks = 64;
inline std::string GatewayOf(unsigned network) { return std::format("10.20.{}.1", network); }
inline std::wstring WideGatewayOf(unsigned network) { return std::format(L"10.20.{}.1", network); }

// The network that has the gateway, or none.
inline std::optional<unsigned> NetworkOf(const std::wstring& gateway) {
  for (unsigned network = 0; network < kNetworks; ++network)
    if (gateway == WideGatewayOf(network)) return network;
  return std::nullopt;
}

class Machine {
 public:
  static constexpr std::uint32_t kIndex = 5;
  static constexpr wchar_t kMac[] = L"02-00-00-00-00-07";
  static constexpr wchar_t kOwnAddress[] = L"10.9.9.9";

  explicit Machine(HMODULE module) : m_changes(module), m_table(module), m_adapters(module, Inside(0)) {}

  // One change of address. First it is so, then it is told, as the system does it.
  void Move(unsigned network) {
    const std::lock_guard lock(m_lock);
    m_adapters.Set(Inside(network));
    m_table.Change();
    m_changes.Fire();
  }
  // A change that moves the machine nowhere.
  void ChangeSomethingElse() {
    const std::lock_guard lock(m_lock);
    m_table.Change();
    m_changes.Fire();
  }
  // The machine has no adapter: a snapshot fails.
  void Unplug() {
    const std::lock_guard lock(m_lock);
    m_adapters.Set({});
    m_table.Change();
    m_changes.Fire();
  }

  FakeAdapters& Adapters() { return m_adapters; }

 private:
  static AdapterList Inside(unsigned network) {
    AdapterList list;
    list.Add(L"Adapter")
        .Index(kIndex)
        .Mac({2, 0, 0, 0, 0, 7})
        .Ip("10.9.9.9")
        .Ip(std::format("10.20.{}.15", network).c_str())
        .Gateway(GatewayOf(network).c_str());
    return list;
  }

  PlainLock m_lock;
  FakeAddressChanges m_changes;
  FakeAddressTable m_table;
  FakeAdapters m_adapters;
};
