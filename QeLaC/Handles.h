// The handles that the host holds.
//
// A handle is a number that was never given out before. It is looked up, not followed, so that a wrong one is told from
// a right one whatever it is; and who has looked one up holds the object while it works, so that another thread may
// close it meanwhile.
#pragma once

#include <qela.h>

#include <memory>

struct _IQeLocation;
struct _IEnumQeLocationCriterias;
struct _IEnumQeLocations;
class Service;

namespace Handles {

enum class Kind { kService, kLocation, kCriteria, kLocations };

// What a handle of the C interface stands for.
template <typename Handle>
struct Of;
template <>
struct Of<qela_service> {
  static constexpr Kind kKind = Kind::kService;
  using Object = Service;
};
template <>
struct Of<qela_location> {
  static constexpr Kind kKind = Kind::kLocation;
  using Object = _IQeLocation;
};
template <>
struct Of<qela_criteria> {
  static constexpr Kind kKind = Kind::kCriteria;
  using Object = _IEnumQeLocationCriterias;
};
template <>
struct Of<qela_locations> {
  static constexpr Kind kKind = Kind::kLocations;
  using Object = _IEnumQeLocations;
};

void* Add(Kind kind, std::shared_ptr<void> object);
std::shared_ptr<void> Find(Kind kind, const void* handle) noexcept;
std::shared_ptr<void> Remove(Kind kind, const void* handle) noexcept;

}  // namespace Handles

// Gives the object a handle. Throws std::bad_alloc.
template <typename Handle>
Handle* AddHandle(std::shared_ptr<typename Handles::Of<Handle>::Object> object) {
  return static_cast<Handle*>(Handles::Add(Handles::Of<Handle>::kKind, std::move(object)));
}

// The object of the handle, or an empty pointer.
template <typename Handle>
std::shared_ptr<typename Handles::Of<Handle>::Object> FindHandle(const Handle* handle) noexcept {
  return std::static_pointer_cast<typename Handles::Of<Handle>::Object>(
      Handles::Find(Handles::Of<Handle>::kKind, handle));
}

// Ends the handle. Returns its object, or an empty pointer.
template <typename Handle>
std::shared_ptr<typename Handles::Of<Handle>::Object> RemoveHandle(const Handle* handle) noexcept {
  return std::static_pointer_cast<typename Handles::Of<Handle>::Object>(
      Handles::Remove(Handles::Of<Handle>::kKind, handle));
}
