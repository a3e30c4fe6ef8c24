#include "FwClient/Service/QeLaLib/QeLocation.h"

#include <windows.h>

#include <rpc.h>

namespace {

// An empty text when the system makes no UUID. A UUID that is unique on this machine only (RPC_S_UUID_LOCAL_ONLY)
// counts as none: location sets travel between machines.
std::wstring NewUuidText() {
  UUID uuid{};
  if (::UuidCreate(&uuid) != RPC_S_OK) return {};
  RPC_WSTR text = nullptr;
  if (::UuidToStringW(&uuid, &text) != RPC_S_OK) return {};
  struct Owner {
    RPC_WSTR* text;
    ~Owner() { ::RpcStringFreeW(text); }
  } const owner{&text};
  return reinterpret_cast<const wchar_t*>(text);
}

}  // namespace

CQeLocation::CQeLocation() : id(NewUuidText()), name(id + L" Location") {}

bool CQeLocation::SerializeToBytes(std::vector<std::uint8_t>& bytes) const { return SerializeObject(*this, bytes); }

bool CQeLocation::DeserializeFromBytes(const std::vector<std::uint8_t>& bytes) {
  return DeserializeObject(*this, bytes);
}

std::shared_ptr<_IEnumQeLocationCriterias> CQeLocation::GetCriterias() const {
  return std::make_shared<CQeLocationCriterias>(criterias);
}

std::wstring CQeLocation::GetId() const { return id; }

std::wstring CQeLocation::GetName() const { return name; }

std::wstring CQeLocation::GetNote() const { return note; }

std::uint32_t CQeLocation::AddCriteria(const LOCATION_CRITERIA_TYPE* kind, const std::wstring& value) {
  return kind != nullptr ? criterias.Add(*kind, value) : LCR_INVALID_KIND;
}

std::uint32_t CQeLocation::RemoveCriteria(const LOCATION_CRITERIA_TYPE* kind, const std::wstring& value) {
  return kind != nullptr ? criterias.Remove(*kind, value) : LCR_INVALID_KIND;
}

bool CQeLocation::ClearCriterias() {
  criterias.Clear();
  return true;
}

void CQeLocation::SetEnabled(const bool* value) {
  if (value != nullptr) enabled = *value;
}

void CQeLocation::SetName(const std::wstring& value) { name = value; }

void CQeLocation::SetNote(const std::wstring& value) { note = value; }

void CQeLocation::SetId(const std::wstring& value) { id = value; }

void CQeLocation::GetAdapterIndexes(std::vector<std::uint32_t>& indexes) const { indexes = adapterIndexes; }

bool CQeLocation::AssignFrom(const _IQeLocation& source) {
  id = source.GetId();
  name = source.GetName();
  note = source.GetNote();
  enabled = source.IsEnabled();
  source.GetAdapterIndexes(adapterIndexes);
  const std::shared_ptr<_IEnumQeLocationCriterias> others = source.GetCriterias();
  return others == nullptr || criterias.Merge(*others);  // a host's own implementation may have none
}

void CQeLocation::Pack(LaPacker& packer) const {
  packer.Array(6);
  criterias.Pack(packer);
  packer.Text(id);
  packer.Text(name);
  packer.Text(note);
  packer.Bool(enabled);
  packer.Array(adapterIndexes.size());
  for (const std::uint32_t index : adapterIndexes) packer.UInt32(index);
}

void CQeLocation::Unpack(LaReader& reader) {
  LaRecord record(reader);
  record.Next([&] { criterias.Unpack(reader); });
  record.Next([&] { reader.Text(id); });
  record.Next([&] { reader.Text(name); });
  record.Next([&] { reader.Text(note); });
  record.Next([&] { reader.Bool(enabled); });
  record.Next([&] { reader.Numbers(adapterIndexes); });
  record.End();
}
