// What a shell offers when a command line is begun.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <string>
#include <vector>

// What the last of the words, which may be empty, can become behind the others: commands, options once it begins with a
// dash, and values that are known. `names` gives those of the stored locations. Nothing where the shell knows better,
// as with files.
std::vector<std::string> Completions(const CLI::App& root, std::vector<std::string> words,
                                     const std::function<std::vector<std::string>()>& names);
