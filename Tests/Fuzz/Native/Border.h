// Included in front of every source: takes the library's interface in, which is for the compiler of its hosts alone,
// and by which nothing crosses a border here.
#pragma once

// No module is imported.
#define __declspec(what)

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#define __MINGW32__ 1
#define _UCRT 1
#include <QeLaApi.h>
#undef _UCRT
#undef __MINGW32__
