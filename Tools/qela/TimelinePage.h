// A timeline as a page: a picture of it, and the same facts in tables.
#pragma once

#include <string>

#include "Timeline.h"
#include "TimelineText.h"

// Of a log with very many changes the page shows the first ones, and says so.
std::string TimelinePage(const Timeline& timeline, const FileNames& files);
