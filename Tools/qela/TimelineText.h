// A timeline in words, for the console and the page.
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "Timeline.h"

// The files of the log by name, as Timeline::Place numbers them.
using FileNames = std::vector<std::string>;

// What log it is, and what of it cannot be taken as it stands.
std::string Summary(const Timeline& timeline, const FileNames& files);
std::string InWords(const Timeline::Place& place);  // the time; where the log has none, the number of the calculation
std::string LineInWords(const Timeline::Place& place, const FileNames& files);
std::string InWords(std::chrono::milliseconds time);
// How long it is from one to the other; empty where the log does not tell.
std::string TimeBetween(const Timeline::Place& from, const Timeline::Place& to);
std::string InWords(const std::vector<Timeline::Adapter>& adapters);
std::string InWords(const Timeline::Current& current);
// From when to when, and what ended it.
std::string InWords(const Timeline::Period& period);
std::string InWords(const Timeline::Gap& gap);
std::vector<std::string> InWords(const Timeline::Change& change);  // a line each
std::string CauseInWords(const Timeline::Change& change);          // behind the place; empty where the log has none
std::string InWords(const Timeline::Slow& slow);
std::string InWords(const Timeline::ClockSetBack& back);
