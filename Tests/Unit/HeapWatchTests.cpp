// The watch itself, on which the tests without memory rely.
#include "ScriptedWindows/ImportTable/HeapWatch.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdlib>

#include "Tests/Support/OtherThread.h"

namespace {

// Through a pointer that the compiler cannot see through, or it would leave unused memory out.
void* Take(std::size_t bytes) {
  void* (*volatile take)(std::size_t) = &std::malloc;
  return take(bytes);
}
void GiveBack(void* block) { std::free(block); }

void* TakeFromHeap(std::size_t bytes) { return ::HeapAlloc(::GetProcessHeap(), 0, bytes); }
void GiveBackToHeap(void* block) { ::HeapFree(::GetProcessHeap(), 0, block); }

TEST(HeapWatch, CountsAllocationsTheirBytesAndWhatIsLeft) {
  const HeapWatch heap(ThisProgram());
  void* const block = Take(100);
  void* const other = TakeFromHeap(20);
  EXPECT_EQ(heap.Allocations(), 2u);
  EXPECT_EQ(heap.BytesAskedFor(), 120u);
  EXPECT_EQ(heap.BlocksLeft(), 2);
  GiveBack(block);
  GiveBackToHeap(other);
  EXPECT_EQ(heap.BlocksLeft(), 0);
  EXPECT_EQ(heap.Allocations(), 2u);
}

TEST(HeapWatch, FailsThatOneAllocation) {
  HeapWatch heap(ThisProgram());
  heap.FailAt(1);
  void* const blocks[] = {Take(1), Take(1), TakeFromHeap(1)};
  EXPECT_TRUE(heap.StopFailing());
  EXPECT_NE(blocks[0], nullptr);
  EXPECT_EQ(blocks[1], nullptr);
  EXPECT_NE(blocks[2], nullptr);
  GiveBack(blocks[0]);
  GiveBackToHeap(blocks[2]);
}

TEST(HeapWatch, FailsFromOneAllocationOnUntilItIsEnded) {
  HeapWatch heap(ThisProgram());
  heap.FailAt(0, HeapWatch::Failing::kFromThenOn);
  void* const blocks[] = {TakeFromHeap(1), Take(1)};
  EXPECT_TRUE(heap.StopFailing());
  EXPECT_EQ(blocks[0], nullptr);
  EXPECT_EQ(blocks[1], nullptr);
  GiveBack(Take(1));
  EXPECT_EQ(heap.BlocksLeft(), 0);
}

TEST(HeapWatch, TellsThatNothingFailed) {
  HeapWatch heap(ThisProgram());
  heap.FailAt(1);
  GiveBack(Take(1));
  EXPECT_FALSE(heap.StopFailing());
}

TEST(HeapWatch, LeavesOutWhatIsAllocatedInAPause) {
  HeapWatch heap(ThisProgram());
  heap.FailAt(0);
  {
    const HeapWatch::Pause pause;
    void* const block = Take(1);
    EXPECT_NE(block, nullptr);
    GiveBack(block);
  }
  EXPECT_EQ(heap.Allocations(), 0u);
  EXPECT_EQ(Take(1), nullptr) << "the failure is still due after the pause";
  EXPECT_TRUE(heap.StopFailing());
}

TEST(HeapWatch, LeavesOtherThreadsAlone) {
  std::size_t counted = 0;
  void* block = nullptr;
  {
    HANDLE const go = ::CreateEventW(nullptr, TRUE, FALSE, nullptr);
    OtherThread other([&] {
      ::WaitForSingleObject(go, INFINITE);
      const HeapWatch::Pause pause;  // of a thread that is not watched
      block = Take(1);
    });
    HeapWatch heap(ThisProgram());
    heap.FailAt(0, HeapWatch::Failing::kFromThenOn);
    ::SetEvent(go);
    const bool ended = other.HasEnded();
    const bool failed = heap.StopFailing();
    counted = heap.Allocations();
    EXPECT_TRUE(ended);
    EXPECT_FALSE(failed);
    ::CloseHandle(go);
  }
  EXPECT_EQ(counted, 0u);
  EXPECT_NE(block, nullptr);
  GiveBack(block);
}

}  // namespace
