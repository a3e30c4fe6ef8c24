// What every command says that edits the stored set. All of it goes to standard error.
#pragma once

#include <string>

// A line that begins with "qela: note: ".
void Note(const std::string& text);

// What a service that is running makes of an edit that was saved.
void TellAboutServices();
