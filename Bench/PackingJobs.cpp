// Collections as bytes, and back.
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "Bench/FloorPacking.h"
#include "Bench/Job.h"
#include "Bench/MeasuredService.h"

namespace {

constexpr std::size_t kLocations = 1000;

// A collection with the set's locations, and its bytes.
struct Filled {
  Filled(const MeasuredService& service, const PlainSet& set) : collection(service.Api().CreateLocations()) {
    msgpack::sbuffer buffer;
    PackCollection(buffer, set);
    const auto* const first = reinterpret_cast<const std::uint8_t*>(buffer.data());
    bytes.assign(first, first + buffer.size());
    isRead = collection->DeserializeFromBytes(bytes);
  }
  std::shared_ptr<_IEnumQeLocations> collection;
  std::vector<std::uint8_t> bytes;
  bool isRead;
};

void Serialise(Run& run) {
  const PlainSet set = UsualLocations(run.Size(kLocations));
  const MeasuredService service(Adapters(1), {});
  const Filled filled(service, set);
  std::vector<std::uint8_t> bytes;
  filled.collection->SerializeToBytes(bytes);
  if (!filled.isRead || bytes != filled.bytes) return run.Fail("the library writes other bytes than the floor");
  run.Compare([&] { filled.collection->SerializeToBytes(bytes); },
              [&] {
                msgpack::sbuffer buffer;
                PackCollection(buffer, set);
                benchmark::DoNotOptimize(buffer.data());
              });
}

void DeserialiseAnew(Run& run) {
  const MeasuredService service(Adapters(1), {});
  const Filled filled(service, UsualLocations(run.Size(kLocations)));
  if (!filled.isRead) return run.Fail("the library does not read what the floor writes");
  run.Compare([&] { service.Api().CreateLocations()->DeserializeFromBytes(filled.bytes); },
              [&] {
                PlainSet set;
                UnpackCollection(filled.bytes, set);
                benchmark::DoNotOptimize(set.data());
              });
}

void DeserialiseOverTheOldOne(Run& run) {
  const MeasuredService service(Adapters(1), {});
  const Filled filled(service, UsualLocations(run.Size(kLocations)));
  PlainSet set;
  if (!filled.isRead || !UnpackCollection(filled.bytes, set)) return run.Fail("the bytes are not read");
  run.Compare([&] { filled.collection->DeserializeFromBytes(filled.bytes); },
              [&] { UnpackCollection(filled.bytes, set); });
}

}  // namespace

void AddPackingJobs(Jobs& jobs) {
  jobs.push_back({.name = "serialise 1000", .goal = {.factor = 0.8}, .measure = Serialise});
  jobs.push_back(
      {.name = "deserialise 1000 into a new collection", .goal = {.factor = 1.0}, .measure = DeserialiseAnew});
  jobs.push_back(
      {.name = "deserialise 1000 over the old one", .goal = {.factor = 1.1}, .measure = DeserialiseOverTheOldOne});
}
