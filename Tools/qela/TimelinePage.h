// A timeline as a page: a picture of it, and the same facts in tables.
#pragma once

#include <string>

#include "Timeline.h"
#include "TimelineText.h"

// Of very many lines the tables show the first ones, and say so.
std::string TimelinePage(const Timeline& timeline, const FileNames& files);
