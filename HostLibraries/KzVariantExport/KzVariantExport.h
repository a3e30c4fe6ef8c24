// The variants of hosts that bring no library of their own for them: the calls that the library makes. A host's own
// library of the same name may take its place.
#pragma once

#include <cstddef>
#include <cstdint>

#if defined(KZVARIANT_BUILDING)
#define KZVARIANT_API __declspec(dllexport)
#else
#define KZVARIANT_API __declspec(dllimport)
#endif

// A value with an optional name: a text, or a list of variants. It is one block of memory, with all that it holds
// inside, and so is freed with one call.
struct KzVariant;

using KzVariantAlloc = void* (*)(std::size_t bytes);
using KzVariantFree = void (*)(void* memory);

// What a variant is built from.
class KZVARIANT_API KzvBase {
 public:
  // Builds the variant in memory from `alloc` (null when that gives none). Whoever asked for it frees it with the
  // counterpart of `alloc`.
  KzVariant* BuildNewKzVariant(KzVariantAlloc alloc) const noexcept;

 protected:
  KzvBase(const wchar_t* text, const wchar_t* name) noexcept : m_text(text), m_name(name) {}

 private:
  const wchar_t* m_text;
  const wchar_t* m_name;
};

// A text, and the name that it has as an element of a list (null: none). Both must outlive the object. The flags are
// a host's own library's; this one takes and ignores them.
class KZVARIANT_API KzvString : public KzvBase {
 public:
  KzvString(const wchar_t* text, const wchar_t* name, std::uint32_t flags) noexcept;
};

// How a list begins.
struct KzvList {
  std::uint32_t count;  // of the elements
};

// Reads a variant, which must outlive the view and the texts that the view hands out. A view of a null variant is a
// view of nothing: no list, no text, no name.
class KZVARIANT_API KzvView {
 public:
  explicit KzvView(const KzVariant* variant) noexcept : m_variant(variant) {}

  // Null when the variant is not a list.
  const KzvList* List() const noexcept;

  // An element of the list; a view of nothing when there is no such element.
  KzvView operator[](std::uint32_t index) const noexcept;

  // Null when the variant is not a text, or has no name.
  const wchar_t* String() const noexcept;
  const wchar_t* Name() const noexcept;

 private:
  const KzVariant* m_variant;
};

// Owns a variant and frees it with the function given.
class AutoPtr {
 public:
  AutoPtr(KzVariant* variant, KzVariantFree free) noexcept : m_variant(variant), m_free(free) {}
  ~AutoPtr() {
    if (m_variant != nullptr) m_free(m_variant);
  }
  AutoPtr(const AutoPtr&) = delete;
  AutoPtr& operator=(const AutoPtr&) = delete;

  KzVariant* Get() const noexcept { return m_variant; }

 private:
  KzVariant* m_variant;
  KzVariantFree m_free;
};
