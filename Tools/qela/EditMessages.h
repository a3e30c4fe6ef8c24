// What every command says that edits the stored set. All of it goes to standard error.
#pragma once

#include <string>

#include "StoredSet.h"

// A line that begins with "qela: note: ".
void Note(const std::string& text);

// Saves, and tells what a service that is running makes of it.
void SaveEdit(StoredSetEdit& edit);
