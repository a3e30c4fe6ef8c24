#include "Commands.h"
#include "Json.h"
#include "LocationText.h"
#include "Output.h"
#include "Service.h"

ExitCode ShowCurrent(const Options& options) {
  const Service service;
  const std::vector<AdapterProps> adapters = service.Report().Adapters();
  Json list = Json::array();
  std::string text;
  for (const auto& location : ToVector(*service.Api().GetCurrentLocations())) {
    if (options.json)
      list.emplace_back(LocationReference(*location, adapters)).emplace("criteria", CriteriaDetails(*location));
    else
      text += LocationText(*location, adapters) + "\n" + CriteriaLines(*location);
  }
  if (options.json)
    text = ToLine({{"current", std::move(list)}});
  else if (text.empty())
    text = "No location is current.\n";
  Print(text);
  return kDone;
}
