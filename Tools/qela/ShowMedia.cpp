#include "Commands.h"
#include "Json.h"
#include "Media.h"
#include "Output.h"
#include "Service.h"
#include "Text.h"

ExitCode ShowMedia(const Options& options) {
  const Service service(options.verbose);
  const std::vector<ReportedAdapter> adapters = service.Report().Adapters();

  if (options.mediaMask != 0) {
    std::vector<std::uint32_t> indexes = options.indexes;
    if (indexes.empty())
      for (const ReportedAdapter& adapter : adapters) indexes.push_back(adapter.index);
    const bool match = service.Api().IsAdapterMediaType(options.mediaMask, indexes);
    Print(MatchText(match, options.json));
    return match ? kDone : kNo;
  }

  std::string text;
  Json json = {{"adapters", Json::array()}};
  for (const ReportedAdapter& adapter : adapters) {
    const std::string media = MediaOf(service.Api(), adapter.index);
    text += std::to_string(adapter.index) + " " + media + " " + Printable(adapter.description) + "\n";
    json["adapters"].push_back(
        {{"index", adapter.index}, {"description", ToUtf8(adapter.description)}, {"media", media}});
  }
  if (adapters.empty()) text = "No network adapter is up.\n";
  Print(options.json ? ToLine(json) : text);
  return kDone;
}
