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
