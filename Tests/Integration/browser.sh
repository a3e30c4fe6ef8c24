# Opens pages in a browser without a display. Sourced after lab.sh.
command -v chromium-headless-shell >/dev/null || { echo "the browser is missing: run this by ./dev test" >&2; exit 1; }

# browse ARGUMENT...: as root in a container there is no sandbox, and there may be little shared memory.
browse() {
  timeout 60 chromium-headless-shell --no-sandbox --disable-gpu --disable-dev-shm-usage --disable-background-networking \
    --disable-component-update --user-data-dir="$(mktemp -d -p "$folder")" --enable-logging=stderr "$@"
}

# open_page FILE: $complaints is what the browser says on its console, $requests are the addresses on the network that it
# asked for.
open_page() {
  browse --log-net-log="$folder/requests.json" --dump-dom "file://$folder/$1" >"$folder/opened.html" 2>"$folder/browser.log" ||
    failed "the browser does not open $1" "$(tail "$folder/browser.log")"
  complaints=$(grep CONSOLE "$folder/browser.log" || true)
  requests=$(jq -r '.events[].params.url? // empty' "$folder/requests.json" | sort -u)
}

# measure_page FILE WIDTH light|dark: $measured is what a script finds in a copy of the page that may run it.
measure_page() {
  local preferred=1
  [ "$3" = light ] || preferred=0
  { sed '/http-equiv="Content-Security-Policy"/d' "$1" && printf '<script>%s</script>' "$(<"$tests/measure-page.js")"; } >"measured-$1"
  browse --blink-settings=preferredColorScheme="$preferred" --window-size="$2,900" --dump-dom "file://$folder/measured-$1" \
    2>"$folder/browser.log" >"$folder/measured.dom" || failed "the browser does not open $1" "$(tail "$folder/browser.log")"
  measured=$(sed -n 's|.*<output id="measured">\([^<]*\)</output>.*|\1|p' "$folder/measured.dom" | base64 -d)
  [ -n "$measured" ] || failed "nothing was measured" "$(grep CONSOLE "$folder/browser.log")"
}
