# Functions that ./run and ./test share. Notes go to standard error, so that standard output is the program's alone.

readonly BUILD_PACKAGES=(
  g++ cmake ninja-build ccache pkg-config
  libopencv-dev libdnnl-dev libglib2.0-dev libgstreamer1.0-dev libgstreamer-plugins-base1.0-dev libyuv-dev nlohmann-json3-dev
  libcairo2-dev libsoup-3.0-dev libturbojpeg0-dev libcrypt-dev libgnutls28-dev
  python3-onnx ca-certificates  # the networks are fetched and converted
)
readonly RUN_PACKAGES=(
  gstreamer1.0-plugins-base gstreamer1.0-plugins-good gstreamer1.0-libav  # decoders
  gstreamer1.0-plugins-bad                                                # h264parse, h265parse: sizes before decoding
  dbus-daemon systemd                                                     # the lens's bus, and busctl to ask it
  glib-networking                                                         # cameras and the page over TLS
  fonts-dejavu-core                                                       # the overlays' text
)

readonly SIMULATOR_PACKAGES=(
  libegl-dev libgl-dev libglm-dev
  gstreamer1.0-plugins-base gstreamer1.0-plugins-good gstreamer1.0-plugins-ugly  # encoders
)

# ensure_packages PACKAGE...: installs those that are missing; says nothing when none is.
ensure_packages() {
  local missing=() package
  for package in "$@"; do
    if [[ "$(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null)" != installed ]]; then
      missing+=("$package")
    fi
  done
  if ((${#missing[@]} == 0)); then
    return
  fi
  local as_root=()
  if ((EUID != 0)); then
    if ! command -v sudo >/dev/null; then
      echo "missing packages, and no sudo to install them with: apt-get install ${missing[*]}" >&2
      return 1
    fi
    as_root=(sudo)
  fi
  echo "Installing ${missing[*]}" >&2
  local apt=("${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -q -y)
  logged build/install.log "${apt[@]}" update
  logged build/install.log "${apt[@]}" install --no-install-recommends "${missing[@]}"
}

# ensure_command COMMAND PACKAGE: installs the package unless there is such a command, from wherever it came.
ensure_command() {
  command -v "$1" >/dev/null || ensure_packages "$2"
}

# ensure_node_modules FOLDER: what the folder's package-lock.json names, installed once.
ensure_node_modules() {
  local folder=$1 installed=$1/node_modules/installed-lock.json
  if ! cmp -s "$folder/package-lock.json" "$installed"; then
    echo "Installing the node modules of $folder" >&2
    logged build/npm.log npm --prefix "$folder" ci --no-audit --no-fund
    cp "$folder/package-lock.json" "$installed"
  fi
}

# take_network ARGUMENT...: what --network names, with the option, goes to `network`; the rest to `arguments`.
take_network() {
  local folder
  network=() arguments=()
  while (($# > 0)); do
    case $1 in
      --network=*) folder=${1#*=} ;;
      --network) folder=${2:-} && shift ;;
      *) arguments+=("$1") && shift && continue ;;
    esac
    shift || true
    if [[ -z "$folder" || "$folder" == -* ]] || ((${#network[@]} > 0)); then
      echo "--network wants one folder" >&2
      return 2
    fi
    [[ "$folder" == /* ]] || folder=$PWD/$folder
    network=("--network=$folder")
  done
}

# needs_networks ARGUMENT...: whether what ./run is asked for looks for people in pictures. A trace holds what the networks
# saw.
needs_networks() {
  local argument previous=
  [[ " $* " != *" --help "* && "${1:-}" != @(explain|camera|tls) ]] || return 1
  for argument in "$@"; do
    if [[ "$1" == replay && "$previous" != --trace && -f "$argument" &&
      "$(head -c 64 -- "$argument" | tr -d '\0 ')" == '{"kind":"trace"'* ]]; then
      return 1
    fi
    previous=$argument
  done
}

# targets_for ARGUMENT...: what of the build goes to `targets`: a room is watched, and a video replayed, by a part of it, so
# that the first start is sooner; other commands have programs of their own, and so have traces.
targets_for() {
  targets=(velmor_run velmor_care)
  [[ "${1:-}" == replay ]] || targets+=(velmor_camera)
  needs_networks "$@" || [[ "${1:-}" == @(camera|tls) ]] || targets=(all)
  local argument
  for argument in "$@"; do
    [[ "$argument" != @(evaluate|model|--truth|--truth=*) ]] || targets=(all)
  done
}

# needs_simulator ARGUMENT...: whether ./run evaluates scripts of the simulator: the suite, or a folder with some.
needs_simulator() {
  [[ "${1:-}" == evaluate && " $* " != *" --help "* ]] || return 1
  local argument previous= folder=
  for argument in "${@:2}"; do
    if [[ "$argument" != -* && "$argument" != *=* && ! "$previous" =~ ^--(jobs|json|report|into|settings)$ ]]; then
      folder=$argument
    fi
    previous=$argument
  done
  [[ -z "$folder" ]] || find "$folder" -name '*.json' ! -name '*.settings.json' -print -quit 2>/dev/null | grep -q .
}

# ensure_networks [--network=FOLDER]: the networks stand in models/; says nothing when they do.
ensure_networks() {
  # Neither the user's Python packages nor another Python: Debian's onnx belongs to Debian's numpy.
  local set_up=(/usr/bin/python3 -Es models/set_up.py) status=0 npm_is_missing=3
  "${set_up[@]}" "$@" || status=$?
  if ((status == npm_is_missing)); then
    status=0
    ensure_command npm npm || true  # the next line says what can be done without it
    "${set_up[@]}" --npm-was-tried "$@" || status=$?
  fi
  return "$status"
}

# logged FILE COMMAND...: the command's output goes to the file, and to the user when the command fails.
logged() {
  local log=$1
  shift
  mkdir -p "$(dirname "$log")"
  "$@" >"$log" 2>&1 </dev/null || told_failure "$log" "$@"
}

# told_failure FILE COMMAND...: shows the log of a command that has failed, and fails.
told_failure() {
  local log=$1
  shift
  cat "$log" >&2
  echo "failed: $* (this log: $log)" >&2
  return 1
}

# build FOLDER CMAKE_OPTION...: configures and builds one tree, one build of it at a time: what `targets` names of it, or
# what is usual.
build() {
  start_build "$@"
  await_build
}

# start_build FOLDER CMAKE_OPTION...: the same, but what takes minutes goes on beside what the shell does next, until
# await_build; it ends with the shell, whatever ends that.
start_build() {
  local folder=$1
  shift
  builder=
  if ! mkdir -p "$folder" 2>/dev/null || [[ ! -w build ]]; then
    echo "$PWD/build: cannot be written to, and the program is built there; use a checkout of your own" >&2
    return 1
  fi
  exec 9>"$folder.lock"
  flock 9
  logged "$folder.log" cmake -S . -B "$folder" -G Ninja -DCMAKE_CXX_COMPILER_LAUNCHER=ccache "$@"
  build_command=(ninja -C "$folder" -j "$(nproc)" "${targets[@]:-all}") build_log=$folder.log
  if ! "${build_command[@]}" -n | grep -q 'no work to do'; then
    echo "Building $folder (a few minutes the first time)" >&2
    set -m  # in a process group of its own, so that all of it can be ended
    "${build_command[@]}" >"$build_log" 2>&1 </dev/null &
    builder=$!
    set +m
    trap 'kill -- "-$builder" 2>/dev/null || true' EXIT
  fi
}

await_build() {
  if [[ -n "$builder" ]]; then
    local status=0
    wait "$builder" || status=$?
    trap - EXIT
    ((status == 0)) || told_failure "$build_log" "${build_command[@]}"
  fi
  exec 9>&-
}
