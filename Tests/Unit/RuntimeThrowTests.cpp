// The stand-in for pthread_mutex_init, which the linker puts into this program as well.
#include <pthread.h>

#include <gtest/gtest.h>

#include <cerrno>

#include "ScriptedWindows/ImportTable/HeapWatch.h"

namespace {

// The thread library's own locks look at the result.
TEST(RuntimeThrow, TellsOfAMutexForWhichThereIsNoMemory) {
  pthread_mutex_t mutex;
  HeapWatch heap(ThisProgram());
  heap.FailAt(0);
  const int error = ::pthread_mutex_init(&mutex, nullptr);
  EXPECT_TRUE(heap.StopFailing()) << "it is made at once, not when it is first locked";
  EXPECT_EQ(error, ENOMEM);
}

TEST(RuntimeThrow, MakesAMutexThatNobodyHolds) {
  pthread_mutex_t mutex;
  ASSERT_EQ(::pthread_mutex_init(&mutex, nullptr), 0);
  EXPECT_EQ(::pthread_mutex_trylock(&mutex), 0);
  EXPECT_EQ(::pthread_mutex_unlock(&mutex), 0);
  EXPECT_EQ(::pthread_mutex_destroy(&mutex), 0);
}

}  // namespace
