// What the explanations from several sources share.
#pragma once

#include <functional>
#include <optional>
#include <vector>

#include "Explanation.h"
#include "FwClient/Service/QeLaLib/AdapterProps.h"

// What is known of an answer; for the adapter in this position, since the library asks again for each.
using KnownAnswer = std::function<LocationExplanation::Question(std::size_t adapter, LOCATION_CRITERIA_TYPE kind,
                                                                const std::wstring& text)>;

// By the library's matcher; without `failure` and `sentence`.
LocationExplanation ExplainBy(const CQeLocation& location, const std::vector<AdapterProps>& adapters,
                              const KnownAnswer& answer);

// The adapter that came nearest: that held most kinds before one failed, then the one on which fewest fail, then the
// first.
void FindFailure(LocationExplanation& explanation);

// Puts the sentence in, from all the rest.
void Conclude(LocationExplanation& explanation, Tense tense);
