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

// What the log tells of an answer.
LocationExplanation::Question QuestionOf(const LoggedHostProbe& probe);
LocationExplanation::Question QuestionOf(const LoggedManagementServer& server);
// What became of each registry criterion up to the one that held: the lines come in the order of the criteria, and
// which belong to one follows from what it names. Nothing when they do not fit.
std::optional<std::vector<LocationExplanation::Question>> QuestionsOf(const std::vector<std::wstring>& criteria,
                                                                      const std::vector<LoggedRegistryFact>& facts,
                                                                      bool hasHeld);

// The adapter that came nearest: that held most kinds before one failed, then the one on which fewest fail, then the
// first. No failure where it is not known which kind failed there.
void FindFailure(LocationExplanation& explanation);

// Puts the sentence in, from all the rest.
void Conclude(LocationExplanation& explanation, Tense tense);
