#!/bin/bash
# Makes the quick set's traces and what they tell anew: tests/stories/renew.sh [--rules] [STORY...], all of quick_set.txt
# where none is named. With --rules what the networks saw stays, and only the rules decide again, in seconds; without,
# recordings are rendered where the cache has none of that script, and the networks look at them: minutes a story.
# `git diff` then shows by the *.events.txt what has changed.
set -euo pipefail
shopt -s inherit_errexit
cd "$(dirname "$(readlink -f "$0")")/../.."
source cmake/build.sh

readonly SET=tests/stories
readonly CACHE=${XDG_CACHE_HOME:-$HOME/.cache}/velmor_care/suite
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# recording_of STORY: the recording's path without its ending.
recording_of() {
  if [[ "$1" == demo ]]; then
    echo simulator/demo/demo
  else
    render "$1" >&2
    echo "$CACHE/$1"
  fi
}

# render STORY: in the cache stands its recording, with the sums of the script and the simulator that made it, written
# last: another drawing of the same script is another recording.
render() {
  local script=simulator/suite/$1.json kept=$CACHE/$1 rendered=$work/rendered sums file
  if [[ ! -f "$script" ]]; then
    echo "$script: there is no such story" >&2
    return 1
  fi
  sums=$(sha256sum "$script" build/release/bin/velmor_simulator)
  [[ ! -f "$kept.made_of" || "$(<"$kept.made_of")" != "$sums" ]] || return 0
  echo "Rendering $1"
  rm -rf "$rendered"
  mkdir -p "$rendered" "$(dirname "$kept")"
  build/release/bin/velmor_simulator record "$script" "$rendered"
  rm -f "$kept.made_of"
  for file in "$rendered"/*; do mv "$file" "$(dirname "$kept")/"; done
  echo "$sums" >"$kept.made_of"
}

build_simulator() {
  ensure_packages "${BUILD_PACKAGES[@]}" "${SIMULATOR_PACKAGES[@]}"
  targets=(velmor_simulator)
  build build/release -DCMAKE_BUILD_TYPE=Release -DVELMOR_TESTS=OFF
}

# make_trace STORY: $work/new.jsonl.
make_trace() {
  local recording
  if [[ "$rules_only" ]]; then
    xz -dc "$SET/$1.trace.jsonl.xz" >"$work/stored.jsonl"
    ./run replay "$work/stored.jsonl" --trace "$work/new.jsonl" >&2
  else
    recording=$(recording_of "$1")
    ./run replay "$recording.mp4" --settings "$recording.settings.json" --trace "$work/new.jsonl" >&2
  fi
}

# store STORY: what explain tells, without its first line, which names the file and the program.
store() {
  mkdir -p "$(dirname "$SET/$1")"
  ./run explain "$work/new.jsonl" >"$work/told.txt"
  xz -9e --threads=1 -c "$work/new.jsonl" >"$work/new.xz"
  tail -n +2 "$work/told.txt" >"$work/events.txt"
  mv "$work/new.xz" "$SET/$1.trace.jsonl.xz"
  mv "$work/events.txt" "$SET/$1.events.txt"
}

rules_only=
if [[ "${1:-}" == --rules ]]; then
  rules_only=yes
  shift
fi
stories=("$@")
if ((${#stories[@]} == 0)); then
  mapfile -t stories < <(grep '^[^#]' "$SET/quick_set.txt")
fi
ensure_packages xz-utils
[[ "$rules_only" ]] || build_simulator
for story in "${stories[@]}"; do
  echo "$story"
  make_trace "$story"
  store "$story"
done
