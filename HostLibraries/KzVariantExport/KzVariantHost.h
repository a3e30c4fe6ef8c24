// What the host's other libraries may build: lists. Used by BLFramework and tests; the library never
// includes this.
#pragma once

#include <KzVariantExport.h>

// An element of a list. A null name: it has none; a null text: it is not a text.
struct KzvElement {
  const wchar_t* name;
  const wchar_t* text;
};

// Like KzvBase::BuildNewKzVariant, for a list of elements.
KZVARIANT_API KzVariant* BuildNewKzVariantList(const KzvElement* elements, std::uint32_t count,
                                               KzVariantAlloc alloc) noexcept;
