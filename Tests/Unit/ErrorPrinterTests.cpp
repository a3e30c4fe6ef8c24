#include "FwClient/Service/QeLaLib/ErrorPrinter.h"

#include <gtest/gtest.h>

#include <atomic>
#include <new>
#include <string>
#include <thread>

#include "Tests/Unit/PrintedErrors.h"

namespace {

void ThrowBadAlloc(const char*, ...) { throw std::bad_alloc(); }
void ThrowNumber(const char*, ...) { throw 1; }

std::atomic<unsigned> g_calls;
void CountCall(const char*, ...) { ++g_calls; }
void CountCallAndRemovePrinter(const char*, ...) {
  ++g_calls;
  errorPrinter = nullptr;
}

TEST(ErrorPrinter, IsNullAtFirst) { EXPECT_EQ(errorPrinter.load(), nullptr); }

TEST(ErrorPrinter, NothingHappensWithoutAPrinter) { PrintError("lost %s", "line"); }

TEST(ErrorPrinter, GetsTheFormatAndItsNarrowArguments) {
  const PrintedErrors errors;
  PrintError("UCD SerializeToBytes failed for %s", "class CQeLocation");
  PrintError("%d %s", 7, "x");
  EXPECT_EQ(errors.Lines(), (std::vector<std::string>{"UCD SerializeToBytes failed for class CQeLocation", "7 x"}));
}

TEST(ErrorPrinter, WhatThePrinterThrowsEndsThere) {
  errorPrinter = &ThrowBadAlloc;
  EXPECT_NO_THROW(PrintError("line"));
  errorPrinter = &ThrowNumber;
  EXPECT_NO_THROW(PrintError("line"));
  errorPrinter = nullptr;
}

TEST(ErrorPrinter, MayRemoveItselfWhileItRuns) {
  g_calls = 0;
  errorPrinter = &CountCallAndRemovePrinter;
  PrintError("first");
  PrintError("second");
  EXPECT_EQ(g_calls, 1u);
}

TEST(ErrorPrinter, MayBeRemovedByAnotherThreadAtAnyTime) {
  g_calls = 0;
  std::atomic<bool> stop = false;
  std::thread host([&] {
    while (!stop) {
      errorPrinter = &CountCall;
      errorPrinter = nullptr;
    }
  });
  // A printer that is tested and then read again for the call would be null within a few thousand calls.
  for (int i = 0; i < 200'000 || g_calls == 0; ++i) PrintError("line");
  stop = true;
  host.join();
  EXPECT_GT(g_calls, 0u);
}

}  // namespace
