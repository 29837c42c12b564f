# Shared by ./run, ./test and the scripts beside this file: installs what is missing, configures
# and builds, one caller at a time. Sourced by bash, with the top of the checkout as $root.
#
# Everything here writes to standard error, so that a program's own output stays clean.
# shellcheck shell=bash

# One line an argument.
say() { printf '%s\n' "$@" >&2; }
die() {
  say "$@"
  exit 1
}

# The names of one or more sections of scripts/packages with their reasons, one a line.
packages_of() {
  awk -v wanted=" $* " '
    /^#/ || /^$/ { next }
    /^\[/ { name = substr($0, 2, length($0) - 2); next }
    index(wanted, " " name " ") && !seen[$1]++' "$root/scripts/packages"
}

# Is one of the alternatives `a|b` installed? $installed holds all installed names, one a line.
is_installed() {
  local name
  for name in ${1//|/ }; do
    [[ $installed == *$'\n'"$name"$'\n'* ]] && return 0
  done
  return 1
}

apt_get() {
  # Another package manager may be at work: wait for it instead of failing.
  ${as_root[@]+"${as_root[@]}"} env DEBIAN_FRONTEND=noninteractive \
    apt-get -o DPkg::Lock::Timeout=600 "$@" >&2 </dev/null
}

# need SECTION...: installs what is missing from these sections; no apt call when nothing is.
need() {
  local wanted missing=() reasons=() name reason installed as_root=()
  wanted=$(packages_of "$@")
  if ! command -v dpkg-query >/dev/null; then
    command -v cmake >/dev/null && command -v ninja >/dev/null && return 0
    say "This is not a Debian system, so nothing can be installed from here. Please install:"
    die "$wanted"
  fi
  installed=$'\n'$(dpkg-query -W -f '${db:Status-Abbrev}${Package}\n' | sed -n 's/^.i *//p')$'\n'
  while read -r name reason; do
    is_installed "$name" && continue
    missing+=("${name%%|*}")
    reasons+=("$(printf '  %-22s %s' "${name%%|*}" "$reason")")
  done <<<"$wanted"
  ((${#missing[@]})) || return 0

  say "Missing packages:"
  printf '%s\n' "${reasons[@]}" >&2
  if ((EUID != 0)); then
    command -v sudo >/dev/null ||
      die "" "Installing them takes root, and there is no sudo here. As root, run:" \
        "  apt-get update && apt-get install -y --no-install-recommends ${missing[*]}"
    as_root=(sudo)
  fi
  say "Installing them with apt-get ..."
  # --no-remove: never trade something that the user has for something that we want.
  local install=(install -y --no-install-recommends --no-remove "${missing[@]}")
  if compgen -G '/var/lib/apt/lists/*_Packages*' >/dev/null && apt_get "${install[@]}"; then
    return 0
  fi
  # No package lists yet, or they are older than what the mirror has.
  apt_get update || say "apt-get update reported a problem; trying the installation all the same."
  apt_get "${install[@]}" ||
    die "" "The packages above could not be installed; apt-get says why." \
      "Once that is put right (a network connection is needed), run this again."
}

# take_lock NAME: waits until no other call in this checkout holds it. Held until this shell ends;
# $lock is its descriptor, for commands that must not hold it on: `command {lock}>&-`.
take_lock() {
  mkdir -p "$root/build" || die "Could not create $root/build. Is the folder writable?"
  exec {lock}>>"$root/build/$1.lock" || die "Could not open $root/build/$1.lock."
  flock -n "$lock" && return 0
  say "Another ./run or ./test is at work in this folder; waiting for it to finish ..."
  flock "$lock"
}

# Compile jobs: one a core, but no more than memory allows; a large file takes about 1 GiB.
build_jobs() {
  local cores memory
  cores=$(nproc)
  memory=$(awk '/^MemAvailable:/ { print int($2 / 1048576) }' /proc/meminfo)
  ((memory >= 1)) || memory=1
  echo $((cores < memory ? cores : memory))
}

# configure PRESET: only when there is no usable build folder yet. Later changes of CMake files are
# seen by the build itself, but not those of the presets and of the checkout's own place.
configure() {
  local preset=$1 folder=$root/build/$1 stamp
  stamp="$root $(cksum <"$root/CMakePresets.json")"
  [[ -f $folder/build.ninja && -f $folder/.configured && $(<"$folder/.configured") == "$stamp" ]] &&
    return 0
  if [[ -f $folder/CMakeCache.txt ]] &&
    ! grep -qxF "CMAKE_HOME_DIRECTORY:INTERNAL=$root" "$folder/CMakeCache.txt"; then
    say "build/$preset belongs to another place on disk; starting it afresh."
    rm -rf "$folder"
  fi
  say "Configuring the $preset build ..."
  mkdir -p "$folder"
  if ! (cd "$root" && cmake --preset "$preset") >"$folder/configure.log" 2>&1; then
    cat "$folder/configure.log" >&2
    die "" "Configuring failed; the lines above say why. They are also in build/$preset/configure.log."
  fi
  echo "$stamp" >"$folder/.configured"
}

# Reads ninja's output: progress as one line that moves on a terminal, as a line for each tenth
# elsewhere; errors in full; nothing at all when there is nothing to do.
show_progress() {
  local line last=0 tenth moving='' width
  [[ -t 2 ]] && moving=yes && width=$(tput cols 2>/dev/null || echo 80)
  while IFS= read -r line; do
    if [[ $line =~ ^\[([0-9]+)/([0-9]+)\]\  ]]; then
      # Not work of ours: ninja looking whether there are new files.
      [[ $line == *"Re-checking globbed directories"* ]] && continue
      if [[ $moving ]]; then
        printf '\r\033[K%s' "${line:0:width-1}" >&2
      else
        tenth=$((10 * BASH_REMATCH[1] / BASH_REMATCH[2]))
        ((tenth > last)) && say "  building: $((tenth * 10))% of ${BASH_REMATCH[2]} steps"
        last=$tenth
      fi
    elif [[ $line != "ninja: no work to do." && $line != "ninja: Entering directory"* && $line != "-- "* ]]; then
      say "${moving:+$'\r\033[K'}$line"
    fi
  done
  [[ $moving ]] && printf '\r\033[K' >&2
  return 0
}

# build PRESET [TARGET]: brings the build up to date; silent when it is.
build() {
  local preset=$1 target=${2:-all}
  configure "$preset"
  NINJA_STATUS='[%f/%t] ' cmake --build "$root/build/$preset" --target "$target" \
    -j "$(build_jobs)" 2>&1 </dev/null | show_progress
  ((PIPESTATUS[0] == 0)) ||
    die "" "The $preset build failed; the compiler's words are above." \
      "If they make no sense, delete build/$preset and try again."
}

# A step that installs and builds, with the lock held while it lasts: prepare PRESET TARGET SECTION...
prepare() {
  local preset=$1 target=$2
  shift 2
  (
    take_lock build
    need "$@"
    build "$preset" "$target"
  ) || exit 1
}
