// What a host in C++, who owns the credentials, may set. Used by our tools and tests; the library never includes this,
// and hosts in C have BLFrameworkCallback.h.
#pragma once

#include <BLFramework.h>
#include <KzVariantHost.h>

#include <cstdint>

namespace BLFrameworkHost {

// Makes "proxyCredentials" answer with this list. The elements are copied.
BLFRAMEWORK_API void setAnswer(const KzvElement* elements, std::uint32_t count);

// The same, with the list that the library asks for.
BLFRAMEWORK_API void setProxyCredentials(const wchar_t* userName, const wchar_t* password);

// Makes "proxyCredentials" succeed without an answer (null), or with one that is a text and no list.
BLFRAMEWORK_API void setNullAnswer();
BLFRAMEWORK_API void setTextAnswer(const wchar_t* text);

// Makes a call that can fail do so with this status, which is not 0, until another is named: BLFrameworkInit,
// BLGetObjectHandle, BLInvokeMethod, BLReleaseObjectHandle, or BLAlloc, which returns null. A null name: none fails.
BLFRAMEWORK_API void failCall(const char* function, int status);

// Forgets everything that was set.
BLFRAMEWORK_API void reset();

// What has been taken and not given back; all 0 when every user has cleaned up. Giving back more than was taken ends
// the process, as it would corrupt a host's own framework.
struct InUse {
  unsigned int initializations;
  unsigned int objectHandles;
  unsigned int blocks;
};
BLFRAMEWORK_API InUse inUse();

}  // namespace BLFrameworkHost
