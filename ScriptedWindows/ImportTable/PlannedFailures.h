// Which of the coming calls fail.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <cstddef>
#include <string>
#include <vector>

#include "ScriptedWindows/ImportTable/PlainLock.h"

class PlannedFailures {
 public:
  // The n-th call of the function from now on fails; 1 is the next.
  void Fail(const std::string& function, DWORD error, std::size_t nth = 1);
  // Every call of the function fails until it is healed.
  void FailAlways(const std::string& function, DWORD error);
  void Heal(const std::string& function);
  void HealAll();

  // The n-th of all calls from now on, whatever it is, fails with ERROR_GEN_FAILURE.
  void FailCallNumber(std::size_t number);
  // How many calls there have been that could be made to fail.
  std::size_t FallibleCalls() const;

 protected:
  // Counts a call. The error that it is to fail with, or ERROR_SUCCESS.
  DWORD NextError(const std::string& function);

  mutable PlainLock m_lock;

 private:
  struct Plan {
    std::string function;
    DWORD error;
    std::size_t nth;  // 0: always
  };

  std::vector<Plan> m_plans;
  std::size_t m_calls = 0;
  std::size_t m_failNumber = 0;
};
