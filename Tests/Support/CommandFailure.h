// How qela's parts refuse.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "Tools/qela/CommandError.h"

// The message with which it fails, in this way.
inline std::string FailureOf(const std::function<void()>& function, ExitCode code = kFailed) {
  try {
    function();
  } catch (const CommandError& error) {
    EXPECT_EQ(error.Code(), code);
    return error.what();
  }
  ADD_FAILURE() << "it did not fail";
  return {};
}
