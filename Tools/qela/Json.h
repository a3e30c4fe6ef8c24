// JSON forms; Docs/qela.md describes them for the scripts that read them.
#pragma once

#include <QeLaLocation.h>

#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "FwClient/Service/QeLaLib/AdapterProps.h"

using Json = nlohmann::ordered_json;

// An object as one line with its line break. The first member is the version of these forms, "schema".
std::string ToLine(const Json& json);

// UTF-8 of texts, which may hold anything.
Json Texts(const std::vector<std::wstring>& texts);

// ID, name and the adapters that matched.
using Locations = std::vector<std::shared_ptr<_IQeLocation>>;
Json LocationReference(const _IQeLocation& location, const std::vector<AdapterProps>& adapters);
Json LocationReferences(const Locations& locations, const std::vector<AdapterProps>& adapters);

// The answer to a question, as text or JSON.
std::string MatchText(bool match, bool json);

// The criteria by kind, those without a value included.
Json CriteriaDetails(const _IQeLocation& location);
Json LocationDetails(const _IQeLocation& location);
Json AdapterDetails(const AdapterProps& adapter);
