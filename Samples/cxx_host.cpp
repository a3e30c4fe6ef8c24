// A host in C++, built with the library's compiler: prints the current locations whenever they change, until its
// standard input ends.
#include <QeLaApi.h>

#include <cstdio>

namespace {

void Show(std::shared_ptr<_IEnumQeLocations> current) {
  std::printf("current:");
  for (std::uint64_t i = 0; i < current->GetCount(); ++i) std::printf(" %ls", current->GetItem(i)->GetName().c_str());
  std::printf("\n");
  std::fflush(stdout);
}

}  // namespace

int main() {
  const std::shared_ptr<_IQeLaApiSmart> service = GetQeLaApiSmart(nullptr);  // reads the stored locations
  Show(service->GetCurrentLocations());
  if (!service->StartDiscovery(&Show)) return 1;
  while (std::getchar() != EOF) continue;
  return service->StopDiscovery() ? 0 : 1;
}
