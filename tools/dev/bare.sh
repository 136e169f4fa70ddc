# Sourced by ./dev: ./dev bare, commands on a Debian machine that has nothing.

# bare [COMMAND...]: in a root of Debian's essential packages and apt, with this tree as it is now.
bare() {
  local root
  [ "$(id -u)" = 0 ] || die "bare makes a root with mounts of its own: run it as root"
  [ $# -gt 0 ] || set -- demo test
  root=$(mktemp -d /var/tmp/bare.XXXXXX)
  trap "rm -rf --one-file-system '$root'" EXIT
  # What is mounted and started in there ends with these namespaces, Ctrl-C included.
  unshare --mount --pid --ipc --fork --kill-child "$BASH" ./dev bare_inside "$root" "$@"
}

# Prints how many packages the root has, the MB that they take, and the MB that apt has fetched.
bare_size() {
  local packages kilobytes  # dpkg counts in KiB
  packages=$(chroot "$1" dpkg-query -W -f='${Installed-Size}\n')
  kilobytes=$(du -c --apparent-size -B 1000 "$1"/var/cache/apt/archives | tail -n 1)
  awk -v fetched="${kilobytes%%[!0-9]*}" '{ sum += $1 } END { printf "%d %d %d", NR, sum * 1.024 / 1000, fetched / 1000 }' \
    <<< "$packages"
}

bare_inside() {
  local root=$1 suite sources before after more command
  shift
  trap 'rm -f "$quiet_log"; exit 130' INT
  suite=$(. /etc/os-release; printf '%s' "$VERSION_CODENAME")
  sources=$(apt-get indextargets --format 'deb $(REPO_URI) $(RELEASE) $(COMPONENT)' \
    'Created-By: Packages' 'Origin: Debian' | sort -u)
  [ -n "$sources" ] || die "apt knows no Debian mirror: run apt-get update once"
  mount -t proc proc /proc
  mapfile -t sources <<< "$sources"
  quietly "making a bare root of $suite" "" mmdebstrap --variant=minbase "$suite" "$root" "${sources[@]}"
  apt-config dump | awk '/^Acquire::https?::/' > "$root/etc/apt/apt.conf.d/90machine"  # proxies
  mkdir "$root/harrowmossd"
  git ls-files -z -co --exclude-standard | tar -c --null -T - | tar -x -C "$root/harrowmossd"
  mount --bind "$root" "$root"  # the bench phone pivots its root, which must be a mount point
  mount -t proc proc "$root/proc"
  mount -t sysfs -o ro sys "$root/sys"
  mount --rbind /dev "$root/dev"
  before=$(bare_size "$root")
  for command in "$@"; do
    quietly "./dev $command" "" env -i HOME=/root TERM=dumb PATH=/usr/sbin:/usr/bin:/sbin:/bin \
      ${http_proxy:+http_proxy="$http_proxy"} ${https_proxy:+https_proxy="$https_proxy"} \
      chroot "$root" /harrowmossd/dev "$command"
    after=$(bare_size "$root")
    read -ra more <<< "$before $after"
    say "-- up to ./dev $command: $((more[3] - more[0])) packages," \
      "$((more[5] - more[2])) MB fetched, $((more[4] - more[1])) MB installed"
  done
}
