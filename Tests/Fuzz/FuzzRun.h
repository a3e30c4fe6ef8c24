// What the program that runs the targets knows of the run that goes on.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

struct FuzzRun {
  std::size_t bytesAskedFor = 0;
  std::vector<bool>* kinds = nullptr;  // that were seen so far; null where they are not collected
  bool isNewKind = false;
  bool isSlow = false;
};

inline constexpr std::size_t kFuzzKinds = 1 << 16;

FuzzRun& CurrentFuzzRun() noexcept;
