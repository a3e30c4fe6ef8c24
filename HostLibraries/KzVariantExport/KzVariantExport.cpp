#include <KzVariantExport.h>
#include <KzVariantHost.h>

#include <cstring>
#include <cwchar>
#include <new>

struct KzVariant {
  const wchar_t* name;
  const wchar_t* text;
  const KzvList* list;
};

namespace {

// A list, as the view finds it behind its count.
struct ListOfVariants : KzvList {
  const KzVariant* elements;
};

std::size_t Units(const wchar_t* text) { return text == nullptr ? 0 : std::wcslen(text) + 1; }

// Copies the text to `*end` and moves that behind it. Null stays null.
const wchar_t* Place(const wchar_t* text, wchar_t** end) {
  if (text == nullptr) return nullptr;
  wchar_t* const start = *end;
  std::memcpy(start, text, Units(text) * sizeof(wchar_t));
  *end += Units(text);
  return start;
}

}  // namespace

KzVariant* KzvBase::BuildNewKzVariant(KzVariantAlloc alloc) const noexcept {
  void* const block = alloc(sizeof(KzVariant) + (Units(m_text) + Units(m_name)) * sizeof(wchar_t));
  if (block == nullptr) return nullptr;
  auto* const variant = ::new (block) KzVariant{};
  auto* end = reinterpret_cast<wchar_t*>(variant + 1);
  variant->name = Place(m_name, &end);
  variant->text = Place(m_text, &end);
  return variant;
}

KzvString::KzvString(const wchar_t* text, const wchar_t* name, std::uint32_t) noexcept : KzvBase(text, name) {}

KzVariant* BuildNewKzVariantList(const KzvElement* elements, std::uint32_t count, KzVariantAlloc alloc) noexcept {
  std::size_t units = 0;
  for (std::uint32_t i = 0; i < count; ++i) units += Units(elements[i].name) + Units(elements[i].text);
  void* const block =
      alloc(sizeof(KzVariant) + sizeof(ListOfVariants) + count * sizeof(KzVariant) + units * sizeof(wchar_t));
  if (block == nullptr) return nullptr;
  auto* const variant = ::new (block) KzVariant{};
  auto* const list = ::new (variant + 1) ListOfVariants{};
  auto* const values = reinterpret_cast<KzVariant*>(list + 1);
  auto* end = reinterpret_cast<wchar_t*>(values + count);
  for (std::uint32_t i = 0; i < count; ++i) {
    auto* const value = ::new (values + i) KzVariant{};
    value->name = Place(elements[i].name, &end);
    value->text = Place(elements[i].text, &end);
  }
  list->count = count;
  list->elements = values;
  variant->list = list;
  return variant;
}

const KzvList* KzvView::List() const noexcept { return m_variant == nullptr ? nullptr : m_variant->list; }

KzvView KzvView::operator[](std::uint32_t index) const noexcept {
  const KzvList* const list = List();
  if (list == nullptr || index >= list->count) return KzvView(nullptr);
  return KzvView(static_cast<const ListOfVariants*>(list)->elements + index);
}

const wchar_t* KzvView::String() const noexcept { return m_variant == nullptr ? nullptr : m_variant->text; }

const wchar_t* KzvView::Name() const noexcept { return m_variant == nullptr ? nullptr : m_variant->name; }
