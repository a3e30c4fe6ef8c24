# Whether the input is of the form that a JSON Schema describes: jq -e --slurpfile schema FILE -f json-schema.jq
# Knows what our schemas use, and fails for any other word: what is not understood would be taken as fulfilled.
def fits($root; $s):
  . as $value
  | ($s | keys - ["$schema", "$id", "$defs", "$ref", "title", "description", "type", "const", "enum", "required",
                  "additionalProperties", "properties", "items", "minimum", "maximum", "minLength", "default"]) as $new
  | if $new != [] then error("unknown words in the schema: \($new)") else . end
  | ($s["$ref"] == null or fits($root; $root["$defs"][$s["$ref"] | ltrimstr("#/$defs/")]))
  and ($s.type == null or type == $s.type or ($s.type == "integer" and type == "number" and floor == .))
  and (($s | has("const") | not) or . == $s.const)
  and ($s.enum == null or any($s.enum[]; . == $value))
  and ($s.minimum == null or . >= $s.minimum)
  and ($s.maximum == null or . <= $s.maximum)
  and ($s.minLength == null or length >= $s.minLength)
  and (if type == "object" then
         ((($s.required // []) - keys) == [])
         and ($s.additionalProperties != false or (keys - ($s.properties // {} | keys)) == [])
         and all(to_entries[]; .key as $key | $s.properties[$key] as $of | $of == null or (.value | fits($root; $of)))
       else true end)
  and (if type == "array" and $s.items != null then all(.[]; fits($root; $s.items)) else true end);
$schema[0] as $root | fits($root; $root)
