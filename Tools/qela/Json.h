// JSON forms; Docs/qela.md describes them for the scripts that read them.
#pragma once

#include <QeLaLocation.h>

#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "AdapterReport.h"

using Json = nlohmann::ordered_json;
using Locations = std::vector<std::shared_ptr<_IQeLocation>>;

// One line with its line break.
std::string ToLine(const Json& json);

// ID, name and the adapters that matched.
Json LocationReference(const _IQeLocation& location, const std::vector<ReportedAdapter>& adapters);
Json LocationReferences(const Locations& locations, const std::vector<ReportedAdapter>& adapters);

// The answer to a question, as text or JSON.
std::string MatchText(bool match, bool json);

// The criteria by kind, those without a value included.
Json CriteriaDetails(const _IQeLocation& location);
Json LocationDetails(const _IQeLocation& location, bool current);
Json AdapterDetails(const ReportedAdapter& adapter, const std::string& media);
