#include "EditMessages.h"

#include "Output.h"

void Note(const std::string& text) { PrintDiagnostic("qela: note: " + text + "\n"); }

void SaveEdit(StoredSetEdit& edit) {
  edit.Save();
  PrintDiagnostic(
      "A running service keeps its own copy: one whose host reloads on edit takes this over now, another when it loads "
      "again. One that saves before that overwrites it.\n");
}
