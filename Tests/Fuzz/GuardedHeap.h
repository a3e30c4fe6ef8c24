// The heap of the program while a target runs: counted, and on request such that every step beyond a block is noticed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace GuardedHeap {

// Stands in for malloc, calloc, realloc and free (and so for operator new and delete) of the program itself, as long as
// that lives: blocks outlive what made them. With `guards`, every block that a run takes ends where a page does, with a
// page behind it that nothing can be read from; once freed, it is out of reach for long.
void Install(bool guards);

// What runs between the two is counted and guarded.
void BeginRun() noexcept;
void EndRun() noexcept;

// How many guarded blocks there are.
std::size_t Blocks() noexcept;

// The bytes at the end of a page, until the next call. Not during a run.
std::span<const std::uint8_t> CopyToPageEnd(std::span<const std::uint8_t> bytes);

}  // namespace GuardedHeap
