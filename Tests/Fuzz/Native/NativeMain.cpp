// Clang's fuzzer around the target that the program's file is named after. Of those that it holds, --targets tells the
// names; --tokens tells the target's dictionary.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "Tests/Fuzz/FuzzRun.h"
#include "Tests/Fuzz/FuzzTarget.h"

namespace {

const FuzzTarget* g_target = nullptr;

// As the fuzzer's dictionaries have them.
void PrintTokens() {
  std::puts("# what inputs are made of");  // no dictionary may be empty
  for (const std::string_view token : g_target->Tokens()) {
    std::fputc('"', stdout);
    for (const char byte : token) std::printf("\\x%02X", static_cast<unsigned char>(byte));
    std::fputs("\"\n", stdout);
  }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* count, char*** arguments) {
  const std::string_view asked = *count == 2 ? (*arguments)[1] : "";
  const auto& targets = FuzzTarget::All();
  if (asked == "--targets") {
    for (const FuzzTarget* const target : targets) std::printf("%s\n", std::string(target->Name()).c_str());
    std::exit(0);
  }
  std::string_view name = (*arguments)[0];
  name.remove_prefix(name.find_last_of('/') + 1);
  const auto found =
      std::find_if(targets.begin(), targets.end(), [&](const FuzzTarget* target) { return target->Name() == name; });
  if (found == targets.end()) {
    std::fputs("fuzz: this program must be called by the name of a target; --targets tells them\n", stderr);
    std::exit(1);
  }
  g_target = *found;
  CurrentFuzzRun().isSlow = true;
  if (asked == "--tokens") {
    PrintTokens();
    std::exit(0);
  }
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  (*g_target)({data, size});
  return 0;
}
