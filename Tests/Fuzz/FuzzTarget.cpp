#include "Tests/Fuzz/FuzzTarget.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include "Tests/Fuzz/FuzzRun.h"

namespace {

// Filled before main, by objects of other sources.
std::vector<const FuzzTarget*>& Targets() {
  static std::vector<const FuzzTarget*> targets;
  return targets;
}

}  // namespace

FuzzTarget::FuzzTarget(std::string_view name, Run run, std::vector<std::string_view> tokens)
    : m_name(name), m_run(run), m_tokens(std::move(tokens)) {
  std::vector<const FuzzTarget*>& targets = Targets();
  const auto behind =
      std::find_if(targets.begin(), targets.end(), [name](const FuzzTarget* target) { return target->Name() > name; });
  targets.insert(behind, this);
}

const std::vector<const FuzzTarget*>& FuzzTarget::All() { return Targets(); }

void FuzzFail(std::string_view what) {
  std::fprintf(stderr, "fuzz: %.*s\n", static_cast<int>(what.size()), what.data());
  std::fflush(stderr);
  std::abort();
}

FuzzRun& CurrentFuzzRun() noexcept {
  static FuzzRun run;
  return run;
}

void FuzzKind(std::uint32_t kind) noexcept {
  FuzzRun& run = CurrentFuzzRun();
  if (run.kinds == nullptr) return;
  std::vector<bool>::reference seen = (*run.kinds)[kind % kFuzzKinds];
  if (!seen) run.isNewKind = seen = true;
}

std::size_t FuzzBytesAskedFor() noexcept { return CurrentFuzzRun().bytesAskedFor; }

bool FuzzIsSlow() noexcept { return CurrentFuzzRun().isSlow; }
