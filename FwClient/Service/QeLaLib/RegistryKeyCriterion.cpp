#include "FwClient/Service/QeLaLib/RegistryKeyCriterion.h"

std::uint32_t IsRegistryKeyCriterionMet(const std::wstring&) { return 0; }
