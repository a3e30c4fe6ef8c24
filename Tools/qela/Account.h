#pragma once

#include <string>

// The account that this thread runs as: DOMAIN\user, in UTF-8 for people. Its SID where it has no name.
std::string AccountName();
