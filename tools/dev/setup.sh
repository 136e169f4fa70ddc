# Sourced by ./dev: the packages of each command, and their installation.

# Debian 12 packages, by purpose. bash, coreutils, tar, gzip and diff are on every Debian machine.
declare -A packages=(
  [build]="g++ cmake ninja-build"
  [phone]="mksh toybox iproute2"                           # the phone's shell, tools and ip
  [user]="uidmap"                                          # users other than root boot phones in a user namespace
  [gtest]="libgtest-dev nlohmann-json3-dev"
  [kit]="python3 clang libc++-14-dev libc++abi-14-dev"
  [platform]="lld m4 checkpolicy secilc"                   # for checks against the platform's files, if present
  [clang]="clang"
  [sanitizers]="clang libclang-rt-14-dev llvm"             # llvm: symbols in reports, line counts
  [style]="git clang-format"
  [arm64]="g++-aarch64-linux-gnu libc6-dev-arm64-cross googletest qemu-user-static"
  [guest]="qemu-system-arm cpio"
  [bench]="libspdlog-dev python3"
  [clock]="libfaketime"
  [bare]="mmdebstrap"
  [adb]="adb python3"                                      # for ./dev phone --adb, and tests of tools/fleet
  [browser]="chromium python3"                             # some 400 MB with dependencies
)

# Groups of packages for each command. A command without a row installs nothing.
declare -A needs=(
  [demo]="build phone"
  [phone]="build phone"
  ["phone --adb"]="build phone adb"
  [ctl]="build phone"
  [test]="build phone gtest kit"
  [check]="build phone gtest kit platform style sanitizers clock adb"
  [coverage]="build phone gtest kit sanitizers"
  [fuzz]="build phone sanitizers"
  [cost]="build phone"
  [bench]="build phone bench"
  [faults]="build phone"
  [soak]="build phone clock"
  [arm64]="build phone gtest arm64"
  ["arm64 guest"]="guest"
  [bare]="bare"
  [page]="build browser"
  ["build release"]="build gtest"
  ["build debug"]="build gtest"
  ["build clang"]="build gtest clang"
  ["build asan"]="build gtest sanitizers"
  ["build tsan"]="build gtest sanitizers"
  ["build coverage"]="build gtest sanitizers"
  ["build arm64"]="build gtest arm64"
)

# missing_packages COMMAND: prints the packages that are not installed, one per line.
missing_packages() {
  local groups=${needs[$1]} group wanted installed package
  [ -d "${PLATFORM_DIR:-../shared/platform}" ] || groups=${groups/platform/}
  [[ $groups != *phone* ]] || [ "$(id -u)" = 0 ] || groups+=" user"
  wanted=$(for group in $groups; do printf '%s\n' ${packages[$group]}; done | sort -u)
  # The status is 1 when a package is unknown; the others are listed nevertheless.
  installed=$(dpkg-query -W -f='${db:Status-Status} ${Package}\n' $wanted 2> /dev/null) || [ $? = 1 ] ||
    die "dpkg-query failed: Debian 12 is required"
  for package in $wanted; do
    [[ $'\n'$installed$'\n' == *$'\n'"installed $package"$'\n'* ]] || printf '%s\n' "$package"
  done
}

# setup COMMAND: installs the missing packages of the command. On failure prints apt's output.
setup() {
  local missing
  missing=$(missing_packages "$1")
  [ -z "$missing" ] || locked install_packages "$1"
}

install_packages() {
  local missing as_root=() by_hand install
  missing=$(missing_packages "$1")  # again: another ./dev may have installed them meanwhile
  [ -n "$missing" ] || return 0
  missing=${missing//$'\n'/ }
  by_hand="as root: apt-get update; apt-get install --no-install-recommends $missing"
  say "-- missing: $missing"
  if [ "$(id -u)" != 0 ]; then
    command -v sudo > /dev/null || die "installing needs root, and there is no sudo; $by_hand"
    sudo -v || die "installing needs root, and sudo refused; $by_hand"
    as_root=(sudo)
  fi
  export DEBIAN_FRONTEND=noninteractive
  # Waits for dpkg's lock: another apt may be running.
  install=("${as_root[@]}" apt-get install -y -q --no-install-recommends -o DPkg::Lock::Timeout=600)
  if [ -n "$(dpkg --audit)" ]; then  # an installation was interrupted
    quietly "finishing an interrupted installation" "$by_hand" "${as_root[@]}" dpkg --configure -a
  fi
  quietly "fetching the package lists" "$by_hand" "${as_root[@]}" apt-get update -q
  quietly "installing $(wc -w <<< "$missing") packages and what they depend on" "$by_hand" "${install[@]}" $missing
}
