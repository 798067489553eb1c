#!/usr/bin/env bash
# The demo's session mode twice on one folder: both runs succeed, the second
# restores exactly the layout the first built, and the file between them is
# plain JSON with the settings file's keys.
set -euo pipefail
demo=$1
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT

# The printed layout, without its title line.
layout() { sed -n '/^layout \(built\|restored\)/,/^ConfigureMixer/p' "$1" | sed '1d;$d' | grep -v '\[library'; }

"$demo" --session --duration 6 --config-dir "$dir" >"$dir/first.log" 2>&1 || { cat "$dir/first.log"; exit 1; }
grep -q '^layout built:' "$dir/first.log"
/usr/bin/python3 - "$dir/Settings.json" <<'PY'
import json, sys
text = open(sys.argv[1]).read()
root = json.loads(text)
assert text.startswith('{\n    "'), "indent of 4"
assert list(root) == sorted(root), "keys in byte order"
engine = root["Tidemix Engine Settings"]
for key in ["Tidemix Settings Version", "Microphone Settings", "Mixer Inputs Local", "Mixer Inputs Stream",
            "Mixer Output Local", "Mixer Output Stream", "Mixer Input Buffer Size MSec",
            "Mixer Output Buffer Size MSec V2"]:
    assert key in engine, key
assert isinstance(root["Tidemix Application Settings"], dict)
names = [i["inputName"] for i in engine["Mixer Inputs Local"]]
assert names == [i["inputName"] for i in engine["Mixer Inputs Stream"]] and len(names) == 3, names
PY
"$demo" --session --duration 6 --config-dir "$dir" >"$dir/second.log" 2>&1 || { cat "$dir/second.log"; exit 1; }
grep -q '^layout restored from' "$dir/second.log"
diff <(layout "$dir/first.log") <(layout "$dir/second.log")
echo "session demo: the same layout both times"
