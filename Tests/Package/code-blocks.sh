# The code that a page shows. Sourced.

# code_blocks PAGE FOLDER: writes it to FOLDER/SECTION/FILE. A block of code names its file behind the language; sections are
# counted.
code_blocks() {
  awk -v folder="$2" '
    file == "" && /^#/ { ++section }
    /^```$/ && file != "" { close(file); file = ""; next }
    /^```(c|cpp|cmake) / { path = folder "/" section; system("mkdir -p " path); file = path "/" $2; next }
    file != "" { print > file }' "$1"
}
