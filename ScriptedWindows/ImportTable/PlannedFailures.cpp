#include "ScriptedWindows/ImportTable/PlannedFailures.h"

#include <mutex>

void PlannedFailures::Fail(const std::string& function, DWORD error, std::size_t nth) {
  const std::lock_guard lock(m_lock);
  m_plans.push_back({function, error, nth});
}

void PlannedFailures::FailAlways(const std::string& function, DWORD error) { Fail(function, error, 0); }

void PlannedFailures::Heal(const std::string& function) {
  const std::lock_guard lock(m_lock);
  std::erase_if(m_plans, [&](const Plan& plan) { return plan.function == function; });
}

void PlannedFailures::HealAll() {
  const std::lock_guard lock(m_lock);
  m_plans.clear();
}

void PlannedFailures::FailCallNumber(std::size_t number) {
  const std::lock_guard lock(m_lock);
  m_failNumber = m_calls + number;
}

std::size_t PlannedFailures::FallibleCalls() const {
  const std::lock_guard lock(m_lock);
  return m_calls;
}

DWORD PlannedFailures::NextError(const std::string& function) {
  const std::lock_guard lock(m_lock);
  DWORD error = ++m_calls == m_failNumber ? ERROR_GEN_FAILURE : ERROR_SUCCESS;
  for (auto plan = m_plans.begin(); plan != m_plans.end();) {
    const bool meant = plan->function == function;
    const bool counted = meant && plan->nth != 0;
    const bool due = meant && (plan->nth == 0 || --plan->nth == 0);
    if (due && error == ERROR_SUCCESS) error = plan->error;
    plan = due && counted ? m_plans.erase(plan) : plan + 1;
  }
  return error;
}
