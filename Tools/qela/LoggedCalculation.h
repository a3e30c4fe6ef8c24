// A calculation of the library's as its log tells it: what it saw, what it asked, and what it decided.
#pragma once

#include <QeLaCriteria.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "FwClient/Service/QeLaLib/AdapterProps.h"
#include "LoggedMessage.h"

// One question to a web host.
struct LoggedHostProbe {
  // What a request came to. The log does not say whether it was the direct one, the one by auto-discovery or the
  // user's.
  struct Request {
    bool wasSent = false;  // then `code` is the HTTP status, and otherwise the error
    std::uint32_t code = 0;
  };

  std::wstring host;
  bool answer = false;
  std::vector<Request> requests;
  std::vector<std::uint32_t> certificateErrors;  // flags
  std::optional<std::chrono::milliseconds> took;
};

// A line about a registry criterion; which one of several it belongs to, it does not say.
struct LoggedRegistryFact {
  enum class What { kKeyMissing, kKeyMissing64, kKeyExists, kNoText, kNoNumber, kValueDiffers, kValueAgrees };
  What what{};
  std::wstring name;  // of the key without its hive, or of the value
  std::wstring data;  // that was read
};

struct LoggedManagementServer {
  bool answer = false;
  std::vector<std::wstring> names;  // that DNS was asked for, in order
  std::optional<std::chrono::milliseconds> took;
};

// One adapter against one location.
struct LoggedAdapterTest {
  struct Held {
    LOCATION_CRITERIA_TYPE kind{};
    // As the line has it. Two kinds name another server than the one that held: LCT_DHCP_SERVER the adapter's DHCPv4
    // server, also when the DHCPv6 one agreed, and LCT_SECONDARY_WINS its primary one. Empty where the line has none.
    std::wstring named;
  };

  std::uint32_t ifIndex = 0;
  std::wstring description;
  std::vector<Held> held;  // in order; what failed has no line
  std::vector<LoggedRegistryFact> registry;
  std::vector<LoggedHostProbe> hosts;
  std::optional<bool> matches;  // none when the log breaks off before
};

struct LoggedLocation {
  std::wstring name;
  std::optional<bool> asksForManagementServer;
  // Nothing else: it is not tested against adapters, and all of them match.
  bool hasNoTextCriteria = false;
  std::vector<LoggedAdapterTest> adapters;
  std::optional<LoggedManagementServer> managementServer;  // when it was asked
  std::optional<bool> isCurrent;                           // none when the log breaks off before
  std::wstring id;                                         // told for those that are current
  std::optional<LogTime> began;
  std::optional<LogTime> ended;
};

struct LoggedCalculation {
  // What woke the discovery thread; a host's own Load or Save, and the first calculation of a process, have no line.
  enum class Cause { kNone, kAddressChange };
  // What the discovery thread did with the result.
  enum class Report { kNone, kRaised, kSkipped };

  bool hasBeginning = false;  // otherwise the log begins in the middle, and the adapters are not known
  bool isComplete = false;    // something follows in the log that comes only after a calculation, or the next one
  // Not empty: the lines are not those of one calculation from here on (two at once, or some are missing). What stands
  // in this record came before.
  std::string broken;
  Cause cause = Cause::kNone;
  Report report = Report::kNone;

  bool hasFailed = false;              // no adapters, so that no location is tested and none is current
  std::vector<AdapterProps> adapters;  // without media type and physical address, which the log does not tell
  std::size_t unreadableAdapters = 0;  // that were reported in a form which cannot be read
  std::vector<LoggedLocation> locations;

  std::optional<LogTime> began;
  std::optional<LogTime> ended;  // its last message
  std::size_t file = 0;          // where it begins
  std::uint64_t line = 0;

  // Each location has its verdict, each adapter could be read, and nothing speaks against the record.
  bool IsWhole() const;
};

// Takes the messages of a log in their order and makes calculations of them. It believes only what is said in the order
// in which the library says it: from the first message that does not fit, the rest of the calculation is left out.
class CalculationReader {
 public:
  // The calculation before the one that this message begins. What the discovery thread says of a calculation comes
  // behind it, so that it is handed out only then.
  std::optional<LoggedCalculation> OnMessage(const LoggedMessage& message);
  // The last one, when there is one.
  std::optional<LoggedCalculation> End();

 private:
  enum class Phase { kNone, kSnapshot, kAdapters, kLocations, kOver };

  void Begin(const LoggedMessage& message, bool hasBeginning);
  // Each answers whether the message was its own; the first one stops what follows from being read.
  bool TakeOfDiscovery(std::wstring_view text);
  bool TakeOfSnapshot(std::wstring_view text);
  bool TakeOfLocation(std::wstring_view text, const LoggedMessage& message);
  bool TakeOfAdapterTest(std::wstring_view text);
  bool TakeOfRegistry(std::wstring_view text);
  bool TakeOfHost(std::wstring_view text);
  bool TakeOfManagementServer(std::wstring_view text);

  void BeginAdapterTest(std::wstring_view text);
  void EndAdapterTest(bool matches);
  void EndLocation(std::wstring_view text);
  void Break(const char* reason);
  LoggedAdapterTest* OpenTest();
  std::optional<std::chrono::milliseconds> SinceProbeBegan() const;

  LoggedCalculation m_calculation;
  Phase m_phase = Phase::kNone;
  bool m_isLocationOpen = false;
  LoggedHostProbe m_host;           // under way
  LoggedManagementServer m_server;  // under way
  std::optional<LogTime> m_now;
  std::optional<LogTime> m_probeBegan;
  bool m_addressesChanged = false;  // said since the last calculation began
};
