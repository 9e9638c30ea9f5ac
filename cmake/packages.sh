# Sourced by the scripts of the root: what each of them needs from Debian, and how it gets there.

corvana_packages() {
  case "$1" in
    build) echo g++ cmake ninja-build pkg-config ccache lld \
             qt6-base-dev libxss-dev librsvg2-bin libabsl-dev zlib1g-dev libblkid-dev libsodium-dev libssl-dev nlohmann-json3-dev ;;
    # cmake reads tests and benchmarks in the same configuration
    test) echo clang-format clang-tidy libgtest-dev libgmock-dev libbenchmark-dev python3 dbus libglib2.0-bin \
            rsync attr tzdata e2fsprogs libcap2-bin openssl python3-aiosmtpd python3-dbusmock \
            desktop-file-utils appstream xvfb xdotool fonts-dejavu-core avahi-daemon iproute2 bindfs gocryptfs mergerfs \
            restic rclone openssh-client openssh-server ;;
    bench) echo libgtest-dev libgmock-dev libbenchmark-dev python3 dbus libglib2.0-bin curl ;;
    run) echo libgtest-dev libgmock-dev libbenchmark-dev python3 dbus rsync tzdata ;;
    fuzz) echo clang libclang-rt-14-dev libgtest-dev libgmock-dev ;;
    *) echo "unknown set of packages: $1" >&2; return 1 ;;
  esac
}

# corvana_need SET...: installs what is missing of these sets; says nothing and is quick when nothing is.
corvana_need() {
  local set package wanted=() missing=() present
  for set in "$@"; do
    # shellcheck disable=SC2207
    wanted+=($(corvana_packages "$set"))
  done
  if ! command -v dpkg-query > /dev/null; then
    echo "This is no Debian: make sure that there is: ${wanted[*]}" >&2
    return 0
  fi
  present=" $(dpkg-query -W -f '${db:Status-Status}=${Package} ' "${wanted[@]}" 2> /dev/null || true)"
  for package in "${wanted[@]}"; do
    [[ "$present" == *" installed=$package "* ]] || missing+=("$package")
  done
  [ ${#missing[@]} -eq 0 ] && return 0

  local as_root=()
  if [ "$(id -u)" -ne 0 ]; then
    command -v sudo > /dev/null || { echo "Missing, and no sudo to install them: ${missing[*]}" >&2; return 1; }
    as_root=(sudo)
  fi
  echo "==> installing ${missing[*]}"
  # RUNLEVEL=1 keeps packages from starting their services.
  "${as_root[@]}" env RUNLEVEL=1 DEBIAN_FRONTEND=noninteractive apt-get update -q
  "${as_root[@]}" env RUNLEVEL=1 DEBIAN_FRONTEND=noninteractive \
    apt-get install -q -y --no-install-recommends "${missing[@]}"
}

# corvana_configure PRESET: once.
corvana_configure() {
  [ ! -f "build/$1/build.ninja" ] || return 0
  echo "==> configuring $1"
  cmake --preset "$1" > "/tmp/corvana-configure.$$" 2>&1 ||
    { cat "/tmp/corvana-configure.$$"; rm -f "/tmp/corvana-configure.$$"; return 1; }
  rm -f "/tmp/corvana-configure.$$"
}

# corvana_build PRESET [TARGET...]: configures, then builds what is out of date.
corvana_build() {
  local preset="$1"
  shift
  corvana_configure "$preset"
  echo "==> building $preset"
  ninja -C "build/$preset" -j "$(nproc)" "$@"
}
