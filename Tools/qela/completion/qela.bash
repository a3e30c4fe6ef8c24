# Completion of qela's commands, options and location names for Bash. Source it, for example from ~/.bashrc.
_qela() {
  local candidate
  COMPREPLY=()
  while IFS= read -r candidate; do
    COMPREPLY+=("$(printf %q "${candidate%$'\r'}")") # names may hold blanks
  done < <("$1" complete -- "${COMP_WORDS[@]:1:COMP_CWORD}" 2>/dev/null)
}
complete -o default -F _qela qela qela.exe
