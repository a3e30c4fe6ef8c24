#include "EditMessages.h"

#include "Output.h"

void Note(const std::string& text) { PrintDiagnostic("qela: note: " + text + "\n"); }

void TellAboutServices() {
  PrintDiagnostic(
      "A running service takes this over at once where its host reloads on edit, and otherwise when it loads again; if "
      "it saves first, this is lost.\n");
}
