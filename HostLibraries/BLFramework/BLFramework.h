// The credentials of hosts that bring no business-logic framework of their own: the calls that the library makes. A
// host's own library of the same name may take its place. The one object is "RVX", with the one method
// "proxyCredentials".
//
// It may be used from any thread.
#pragma once

#include <KzVariantExport.h>

#include <cstddef>

#if defined(BLFRAMEWORK_BUILDING)
#define BLFRAMEWORK_API __declspec(dllexport)
#else
#define BLFRAMEWORK_API __declspec(dllimport)
#endif

struct BLObject;
using BLObjectHandle = BLObject*;

extern "C" {

// Calls answer with a status: 0 for success.

// Comes before all other calls. It counts: each success needs one BLFrameworkCleanUp.
BLFRAMEWORK_API int BLFrameworkInit() noexcept;
BLFRAMEWORK_API void BLFrameworkCleanUp() noexcept;

// A handle of the object of that name, for BLReleaseObjectHandle. The two numbers are a host's own framework's; this
// one takes and ignores them.
BLFRAMEWORK_API int BLGetObjectHandle(const char* objectName, unsigned int, unsigned int,
                                      BLObjectHandle* objectHandle) noexcept;
BLFRAMEWORK_API int BLReleaseObjectHandle(BLObjectHandle objectHandle) noexcept;

// Runs a method. Success sets `answer`, which the caller frees with BLFree; a failure leaves it alone.
BLFRAMEWORK_API int BLInvokeMethod(BLObjectHandle objectHandle, const char* method, const KzVariant* argument,
                                   KzVariant** answer) noexcept;

// The framework's memory. BLAlloc returns null when there is none; BLFree takes null.
BLFRAMEWORK_API void* BLAlloc(std::size_t bytes) noexcept;
BLFRAMEWORK_API void BLFree(void* memory) noexcept;

}  // extern "C"
